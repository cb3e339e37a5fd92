#pragma once

#include "FrontEnd.h"

#include <QString>
#include <QStringList>

// The proxy box's logic: the suite's stored proxies offered by name, the
// last choice restored, and the settings of the chosen proxy handed to the
// downloads. The box shows names(); records() stay in the same order.
class ProxySelection {
public:
    static QString noneEntry() { return QStringLiteral("<none>"); }

    explicit ProxySelection(FrontEnd* frontEnd) : m_frontEnd(frontEnd) {}

    // Start-up: builds the list, selects lastProxy (or "<none>" with a
    // warning when it is gone) and takes its settings. When the proxy is
    // gone, a run nobody watches (unattended) is held back; otherwise the
    // user is asked whether to go on without a proxy.
    void load(const QString& lastProxy, bool unattended = false);
    // The user picked entry index.
    void choose(int index);
    // Downloads are held back because the proxy they should use is gone or
    // unusable; blockReason() says why, in lines for the status page. Only
    // a choice of the user lifts it.
    bool blocked() const { return !m_blockReason.isEmpty(); }
    const QStringList& blockReason() const { return m_blockReason; }
    // The suite said its proxies changed: rebuild and keep the shown name.
    // When that proxy is gone the window comes forward, "<none>" is shown and
    // true is returned. The settings stay as they were until the user
    // chooses again, on purpose.
    bool recheck();

    const QStringList& names() const { return m_names; }
    const QStringList& records() const { return m_records; }
    int currentIndex() const { return m_current; }
    QString currentName() const;
    const QStringList& settings() const { return m_settings; }

    // The proxy manager tool, offered only when it is installed.
    static QString proxyManagerPath();

private:
    bool build();
    int find(const QString& name) const;
    void warnGone(const QString& name, const char* tail);
    void block(const QStringList& why);
    bool continueWithout() const;

    FrontEnd* m_frontEnd;
    QStringList m_names;
    QStringList m_records;
    QStringList m_settings;
    QStringList m_blockReason;
    int m_current = -1;
};
