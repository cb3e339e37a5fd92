#include "ProxySelection.h"

#include "Global2.h"
#include "SuiteDatabase.h"

#include <QFileInfo>

#include <algorithm>

bool ProxySelection::build() {
    if (IsDataFileEncrypted(m_frontEnd))
        return false;
    QStringList stored;
    if (SuiteDataFile* file = TheSuiteDataFile(); file && file->database)
        file->database->getProxyRecords(stored);

    struct Entry {
        QString name;
        QString record;
    };
    QList<Entry> offered;
    for (QString record : std::as_const(stored)) {
        // The suite keeps 0xAD where a slash belongs.
        record.replace(QChar(0xAD), u'/');
        if (GetField(2, record, u',') != QStringLiteral(" "))
            offered.append({GetField(0, record, u','), record});
    }
    // Sorted by the shown name, so records stay in step with the box.
    std::stable_sort(offered.begin(), offered.end(), [](const Entry& a, const Entry& b) {
        return a.name.compare(b.name, Qt::CaseInsensitive) < 0;
    });
    m_names = {noneEntry()};
    m_records = {noneEntry()};
    for (const Entry& entry : offered) {
        m_names.append(entry.name);
        m_records.append(entry.record);
    }
    return true;
}

int ProxySelection::find(const QString& name) const {
    for (int i = 0; i < m_names.size(); ++i) {
        if (m_names.at(i).compare(name, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}

QString ProxySelection::currentName() const {
    return m_current >= 0 && m_current < m_names.size() ? m_names.at(m_current) : QString();
}

void ProxySelection::warnGone(const QString& name, const char* tail) {
    MsgDlg(m_frontEnd,
           QStringLiteral("The proxy you have been using for stats     \nretrieval--") + name +
               QString::fromLatin1(tail),
           Warning, MbOk);
}

void ProxySelection::load(const QString& lastProxy, bool unattended) {
    bool gone = false;
    if (build()) {
        const int found = find(lastProxy);
        m_current = found < 0 ? 0 : found;
        if (found < 0)
            warnGone(lastProxy, "--is no \nlonger present!");
        gone = found < 0 && !lastProxy.isEmpty();
    }
    choose(m_current);
    // A user of a proxy (Tor) must never find that pages went out directly
    // because the proxy's record disappeared: only a person decides that.
    if (gone && (unattended || !continueWithout()))
        block({QStringLiteral("The proxy \"%1\" chosen for stats retrieval is no longer present.")
                   .arg(lastProxy),
               QStringLiteral("Nothing is downloaded without it. Choose a proxy, or <none>, "
                              "in the Proxy box.")});
}

bool ProxySelection::continueWithout() const {
    return MsgDlg(m_frontEnd,
                  QStringLiteral("Continue without a proxy?\n\n"
                                 "Yes: pages are fetched directly, without a proxy.\n"
                                 "No: nothing is fetched until you choose a proxy."),
                  Confirm, MbYesNo) == IdYes;
}

void ProxySelection::block(const QStringList& why) {
    m_blockReason = why;
    // Settings that no download can use, so that a caller that forgot to
    // look at blocked() still sends nothing directly.
    m_settings = {QStringLiteral("kind=unusable")};
}

void ProxySelection::choose(int index) {
    if (IsDataFileEncrypted(m_frontEnd))
        return;
    if (index < 0 || index >= m_names.size())
        return;
    m_current = index;
    m_settings.clear();
    m_blockReason.clear();
    if (index == 0)
        return;
    // A chosen proxy whose record cannot be used must stop the downloads,
    // never let them go out directly: the user asked for a proxy.
    if (!TVKDB::proxyRecordToSettings(m_records.at(index), m_settings))
        block({QStringLiteral("The proxy \"%1\" cannot be used: its stored record is "
                              "incomplete.")
                   .arg(m_names.at(index)),
               QStringLiteral("Nothing is downloaded without it. Mend it in the proxy manager, "
                              "or choose another in the Proxy box.")});
}

bool ProxySelection::recheck() {
    const QString shown = currentName();
    // Refused, and said so, while the suite keeps the data file encrypted.
    if (!build())
        return false;
    const int found = find(shown);
    if (found < 0) {
        if (m_frontEnd)
            m_frontEnd->bringToFront();
        m_current = 0;
        warnGone(shown, "--has been delete!");
        return true;
    }
    m_current = found;
    return false;
}

QString ProxySelection::proxyManagerPath() {
    return ProgramFolder() + QStringLiteral("vkproxy");
}
