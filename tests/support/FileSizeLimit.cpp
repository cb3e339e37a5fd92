#include "FileSizeLimit.h"

#include <csignal>

FileSizeLimit::FileSizeLimit(rlim_t bytes) {
    m_ok = getrlimit(RLIMIT_FSIZE, &m_old) == 0;
    m_oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    if (m_ok) {
        rlimit limited = m_old;
        limited.rlim_cur = bytes;
        m_ok = setrlimit(RLIMIT_FSIZE, &limited) == 0;
    }
}

FileSizeLimit::~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &m_old);
    std::signal(SIGXFSZ, m_oldHandler);
}
