#include "StatsSettings.h"

namespace {

const QString Stats = QStringLiteral("stats");

QString key(const char* name) {
    return QString::fromLatin1(name);
}

qint64 readColor(const IniFile& ini) {
    const QString text = ini.readString(Stats, key("windowcolor"), QString()).trimmed();
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    return ok ? value : SystemWindowColor;
}

// Field i of the record as a number, or the default when missing or not one.
int numberField(const QString& record, int i, int def) {
    bool ok = false;
    const int value = GetField(i, record, u',').trimmed().toInt(&ok);
    return ok ? value : def;
}

} // namespace

QString DefaultFont(const char* prefix, qint64 color) {
    return QString::fromLatin1(prefix) + QString::number(color);
}

const QStringList& UpdatePageOrder() {
    static const QStringList order = {
        QStringLiteral("mlist.txt"),     QStringLiteral("pubring.mix"),
        QStringLiteral("rlist.txt"),     QStringLiteral("pubring.asc"),
        QStringLiteral("nymserver.asc"), QStringLiteral("mail2news.txt"),
        QStringLiteral("advisory.txt"),  QStringLiteral("urls.txt"),
    };
    return order;
}

QString ToCommaText(const QStringList& items) {
    QStringList out;
    for (const QString& item : items) {
        const bool quote =
            item.isEmpty() || item.contains(u' ') || item.contains(u',') || item.contains(u'"');
        out.append(quote ? u'"' + QString(item).replace(u'"', QStringLiteral("\"\"")) + u'"'
                         : item);
    }
    return out.join(u',');
}

WindowGeometry ParseWindowRecord(const QString& record, QSize currentSize) {
    WindowGeometry geometry;
    geometry.state = numberField(record, 0, 0);
    // Field 1, the placement mode, is skipped on purpose: the window always
    // starts with its designed placement.
    geometry.rect = QRect(numberField(record, 2, 0), numberField(record, 3, 0),
                          numberField(record, 4, currentSize.width()),
                          numberField(record, 5, currentSize.height()));
    return geometry;
}

QString MakeWindowRecord(const QString& previous, int state, int placement, const QRect& normal) {
    QStringList fields = {QString::number(state), QString::number(placement)};
    if (state == 0) {
        fields << QString::number(normal.left()) << QString::number(normal.top())
               << QString::number(normal.width()) << QString::number(normal.height());
    } else {
        // A minimised or maximised window keeps the last normal rectangle.
        const QStringList old = previous.split(u',');
        for (int i = 2; i <= 5; ++i)
            fields << (i < old.size() ? old.at(i) : QString());
    }
    return fields.join(u',');
}

MainSettings LoadMainSettings(const IniFile& ini) {
    const IniFile::Operation reading(ini);
    MainSettings s;
    s.windowColor = readColor(ini);
    s.statsFont = ini.readString(Stats, key("statsfont"), DefaultFont("Courier New,10,,"));
    s.showToolbar = ini.readBool(Stats, key("showtoolbar"), true);
    s.showStatusBar = ini.readBool(Stats, key("showstatusbar"), true);
    const QString pages = ini.readString(Stats, key("pages"), QString());
    for (const QString& page : UpdatePageOrder()) {
        if (pages.contains(page))
            s.tickedPages.append(page);
    }
    s.windowFont = ini.readString(Stats, key("windowfont"), DefaultFont("Courier New,9,,"));
    s.editorFont = ini.readString(Stats, key("editorfont"), DefaultFont("Courier New,9,,"));
    s.dialogFont = ini.readString(Stats, key("dialogfont"), DefaultFont("MS Sans Serif,8,,"));
    s.barNew = ini.readBool(Stats, key("barnew"), false);
    s.noStaleSave = ini.readBool(Stats, key("nostalesave"), false);
    s.exitLeft = ini.readBool(Stats, key("exitleft"), false);
    s.window = ini.readString(Stats, key("window"), QString());
    return s;
}

bool SaveMainSettings(IniFile& ini, const MainSettingsToSave& s) {
    QStringList ordered;
    for (const QString& page : UpdatePageOrder()) {
        if (s.tickedPages.contains(page))
            ordered.append(page);
    }
    IniFile::Operation saving(ini);
    return ini.writeString(Stats, key("window"), s.window) &&
           ini.writeString(Stats, key("lastproxy"), s.lastProxy) &&
           ini.writeString(Stats, key("windowcolor"), QString::number(s.windowColor)) &&
           ini.writeString(Stats, key("windowfont"), s.windowFont) &&
           ini.writeString(Stats, key("editorfont"), s.editorFont) &&
           ini.writeString(Stats, key("dialogfont"), s.dialogFont) &&
           ini.writeString(Stats, key("pages"), ToCommaText(ordered)) &&
           ini.writeBool(Stats, key("showstatusbar"), s.showStatusBar) &&
           ini.writeBool(Stats, key("showtoolbar"), s.showToolbar) && saving.commit();
}

StatsOptions LoadStatsOptions(const IniFile& ini) {
    const IniFile::Operation reading(ini);
    StatsOptions o;
    o.autoLoad = ini.readBool(Stats, key("autoload"), true);
    o.windowCentered = ini.readBool(Stats, key("windowcentered"), false);
    o.barNew = ini.readBool(Stats, key("barnew"), false);
    o.noStaleSave = ini.readBool(Stats, key("nostalesave"), false);
    o.cascadeStatsOnly = ini.readBool(Stats, key("cascadestatsonly"), true);
    o.cascade = ini.readBool(Stats, key("cascade"), true);
    o.windowColor = readColor(ini);
    o.windowFont = ini.readString(Stats, key("windowfont"), DefaultFont("MS Sans Serif,8,,"));
    o.dialogFont = ini.readString(Stats, key("dialogfont"), DefaultFont("MS Sans Serif,8,,"));
    o.editorFont = ini.readString(Stats, key("editorfont"), DefaultFont("Courier New,9,,"));
    o.timeoutSeconds = ini.readInteger(Stats, key("timeoutseconds"), 30);
    if (o.timeoutSeconds <= 0)
        o.timeoutSeconds = 30;
    return o;
}

bool SaveStatsOptions(IniFile& ini, const StatsOptions& o) {
    IniFile::Operation saving(ini);
    return ini.writeBool(Stats, key("barnew"), o.barNew) &&
           ini.writeBool(Stats, key("cascadestatsonly"), o.cascadeStatsOnly) &&
           ini.writeBool(Stats, key("cascade"), o.cascade) &&
           ini.writeBool(Stats, key("autoload"), o.autoLoad) &&
           ini.writeBool(Stats, key("windowcentered"), o.windowCentered) &&
           ini.writeString(Stats, key("windowcolor"), QString::number(o.windowColor)) &&
           ini.writeString(Stats, key("windowfont"), o.windowFont) &&
           ini.writeString(Stats, key("dialogfont"), o.dialogFont) &&
           ini.writeString(Stats, key("editorfont"), o.editorFont) &&
           ini.writeInteger(Stats, key("timeoutseconds"), o.timeoutSeconds) &&
           ini.writeBool(Stats, key("nostalesave"), o.noStaleSave) && saving.commit();
}

int TimeoutFromText(const QString& text) {
    bool ok = false;
    const int value = text.trimmed().toInt(&ok);
    return ok ? value : 30;
}

int ReadTimeoutSeconds(const IniFile& ini) {
    // A time-out of 0 would fail every download at once; treat it as the
    // options dialog shows it.
    const int seconds = ini.readInteger(Stats, key("timeoutseconds"), 30);
    return seconds <= 0 ? 30 : seconds;
}
