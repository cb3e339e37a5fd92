#include "HistoryWins.h"

#include "Global2.h"
#include "Global2Widgets.h"
#include "IniFile.h"
#include "StatsSettings.h"
#include "TextFile.h"

#include <QPlainTextEdit>
#include <QTextBrowser>
#include <QUrl>
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
    return FindDocFile(HistoryFile);
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

QTextBrowser* OpenHelpViewer(QWidget* owner) {
    return owner ? owner->findChild<QTextBrowser*>(QStringLiteral("HelpViewer")) : nullptr;
}

void ShowHelpViewer(QWidget* owner, const QString& path) {
    QTextBrowser* viewer = OpenHelpViewer(owner);
    if (!viewer) {
        viewer = new QTextBrowser(owner);
        viewer->setObjectName(QStringLiteral("HelpViewer"));
        viewer->setWindowFlag(Qt::Window);
        viewer->setWindowTitle(QStringLiteral("VKstats Help"));
        viewer->setOpenExternalLinks(true);
        viewer->resize(720, 560);
    }
    viewer->setSource(QUrl::fromLocalFile(path));
    viewer->show();
    viewer->raise();
    viewer->activateWindow();
}
