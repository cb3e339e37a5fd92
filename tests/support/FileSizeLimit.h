#pragma once

#include <sys/resource.h>

// Lowers the soft file-size limit of this process for its lifetime and
// raises it back when it goes, so a failing check in between cannot leave
// the test process unable to write. A write past the limit then fails with
// EFBIG instead of raising SIGXFSZ.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

    // False when the limit could not be lowered here.
    bool ok() const { return m_ok; }

private:
    rlimit m_old{};
    void (*m_oldHandler)(int) = nullptr;
    bool m_ok = false;
};
