#include "HistoryWins.h"

#include "Global2.h"
#include "Global2Widgets.h"
#include "IniFile.h"
#include "StatsSettings.h"
#include "TextFile.h"

#include <QFileInfo>
#include <QPlainTextEdit>
#include <QVBoxLayout>

namespace {

const QString HistoryFile = QStringLiteral("vkstats.history.txt");

} // namespace

THistoryWin::THistoryWin(QWidget* owner) : QWidget(owner, Qt::Window) {
    setObjectName(QStringLiteral("THistoryWin"));
    setWindowTitle(QStringLiteral("VKstats History"));
    // One window per command; nothing keeps it once the user closes it.
    setAttribute(Qt::WA_DeleteOnClose);
    resize(620, 440);

    Viewer = new QPlainTextEdit(this);
    Viewer->setObjectName(QStringLiteral("Viewer"));
    Viewer->setReadOnly(true);
    Viewer->setLineWrapMode(QPlainTextEdit::NoWrap);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(Viewer);
}

void THistoryWin::applyLook() {
    const MainSettings settings = LoadMainSettings(IniFile(IniFileName()));
    Viewer->setFont(ToQFont(StringToFont(settings.windowFont)));
    QPalette palette = Viewer->palette();
    palette.setColor(QPalette::Base, ToQColor(settings.windowColor));
    Viewer->setPalette(palette);
}

void THistoryWin::showFile(const QString& path) {
    m_path = path;
    applyLook();
    Viewer->setPlainText(ReadLines(path).join(u'\n'));
}

QString HistoryFileName() {
    const QString folder = ProgramFolder();
    for (const QString& path :
         {folder + HistoryFile, folder + QStringLiteral("docs/") + HistoryFile}) {
        if (QFileInfo(path).isFile())
            return path;
    }
    return {};
}

void ShowHistory(QWidget* owner) {
    const QString path = HistoryFileName();
    if (path.isEmpty())
        return;
    THistoryWin* window =
        owner ? owner->findChild<THistoryWin*>(QString(), Qt::FindDirectChildrenOnly) : nullptr;
    if (!window)
        window = new THistoryWin(owner);
    window->showFile(path);
    window->show();
    window->raise();
    window->activateWindow();
}
