#include "URLDlgs.h"

#include "DialogLook.h"
#include "Global2.h"
#include "Global2Widgets.h"
#include "HttpGet.h"
#include "IniFile.h"
#include "ProxySelection.h"
#include "StatsSettings.h"
#include "StatsSources.h"
#include "TextFile.h"
#include "UpdateEngine.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace {

const QString UrlsPage = QStringLiteral("urls.txt");
const QString SuiteSection = QStringLiteral("velkin");
const QString FirstLine = QStringLiteral("velkin urls");

} // namespace

// The downloads report their progress to a front end; this one puts it on
// the dialog's own bar and passes everything else to the real one.
class TURLDlg::DownloadFrontEnd : public FrontEnd {
public:
    DownloadFrontEnd(FrontEnd* target, QProgressBar* bar) : m_target(target), m_bar(bar) {}

    int showMessage(const QString& text, MsgDlgType type, int buttons, MsgStyle style) override {
        return m_target->showMessage(text, type, buttons, style);
    }
    bool isInteractive() const override { return m_target->isInteractive(); }
    void setProgress(int percent) override { m_bar->setValue(percent); }
    void beep() override { m_target->beep(); }

private:
    FrontEnd* m_target;
    QProgressBar* m_bar;
};

TURLDlg::TURLDlg(QWidget* owner, FrontEnd* frontEnd, QString urlsPath, QString proxyName,
                 QStringList proxySettings)
    : QDialog(owner), m_frontEnd(frontEnd), m_urlsPath(std::move(urlsPath)),
      m_proxyName(std::move(proxyName)), m_proxySettings(std::move(proxySettings)) {
    setObjectName(QStringLiteral("TURLDlg"));
    setWindowTitle(QStringLiteral("URL Manager"));
    resize(600, 420);

    Editor = new QPlainTextEdit(this);
    Editor->setObjectName(QStringLiteral("Editor"));
    // URLs are long; wrapped they would read as two entries.
    Editor->setLineWrapMode(QPlainTextEdit::NoWrap);

    ProgressBar = new QProgressBar(this);
    ProgressBar->setObjectName(QStringLiteral("ProgressBar"));
    ProgressBar->setRange(0, 100);
    ProgressBar->setValue(0);

    RefreshBtn = NamedButton(this, QStringLiteral("RefreshBtn"), QStringLiteral("&Refresh"));
    HelpBtn = NamedButton(this, QStringLiteral("HelpBtn"), QStringLiteral("&Help"));
    ImportBtn = NamedButton(this, QStringLiteral("ImportBtn"), QStringLiteral("&Import..."));
    ImportBtn->setToolTip(QStringLiteral("Make the list from an all pingers index"));
    OkBtn = NamedButton(this, QStringLiteral("OkBtn"), QStringLiteral("OK"));
    CancelBtn = NamedButton(this, QStringLiteral("CancelBtn"), QStringLiteral("Cancel"));
    OkBtn->setDefault(true);
    connect(RefreshBtn, &QPushButton::clicked, this, &TURLDlg::RefreshBtnClick);
    connect(HelpBtn, &QPushButton::clicked, this, &TURLDlg::HelpBtnClick);
    connect(ImportBtn, &QPushButton::clicked, this, &TURLDlg::ImportBtnClick);
    connect(OkBtn, &QPushButton::clicked, this, &QDialog::accept);
    connect(CancelBtn, &QPushButton::clicked, this, &QDialog::reject);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(ProgressBar, 1);
    buttons->addWidget(RefreshBtn);
    buttons->addWidget(ImportBtn);
    buttons->addWidget(HelpBtn);
    buttons->addWidget(OkBtn);
    buttons->addWidget(CancelBtn);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Editor, 1);
    layout->addLayout(buttons);

    ApplyMainWindowLook(this, {Editor});
    Editor->setFont(ToQFont(StringToFont(LoadMainSettings(IniFile(IniFileName())).editorFont)));

    m_downloadFrontEnd = std::make_unique<DownloadFrontEnd>(m_frontEnd, ProgressBar);
    setEditorText(ReadLines(m_urlsPath).join(u'\n'), false);
    Editor->setFocus();
}

TURLDlg::~TURLDlg() = default;

bool TURLDlg::isModified() const {
    return Editor->document()->isModified();
}

void TURLDlg::setEditorText(const QString& text, bool modified) {
    Editor->setPlainText(text);
    Editor->document()->setModified(modified);
}

void TURLDlg::setBusy(bool busy) {
    m_downloading = busy;
    // Cancel stays: during a download it stops the download.
    Editor->setReadOnly(busy);
    OkBtn->setEnabled(!busy);
    RefreshBtn->setEnabled(!busy);
    ImportBtn->setEnabled(!busy);
    HelpBtn->setEnabled(!busy);
}

int TURLDlg::download(const QString& url, QStringList& lines, QString& reason) {
    m_cancel = false;
    ProgressBar->setValue(0);
    setBusy(true);
    HttpSession session;
    QDateTime lastModified; // none sent: always the whole list
    PageLines page;
    const int code =
        session.HTTPGet(m_downloadFrontEnd.get(), url, page, m_proxySettings, &m_cancel,
                        ReadTimeoutSeconds(IniFile(IniFileName())), lastModified);
    lines = page.toStringList();
    setBusy(false);
    reason = session.lastErrorText();
    return code;
}

void TURLDlg::RefreshBtnClick() {
    if (m_downloading)
        return;
    // Without the suite's own list, the pinger index is the next best.
    if (!StatsSourceList(m_urlsPath, m_frontEnd).pageNames(SuiteSection).contains(UrlsPage)) {
        ImportBtnClick();
        return;
    }
    const bool noProxy = m_proxyName.isEmpty() || m_proxyName == ProxySelection::noneEntry();
    const QString question = QStringLiteral("Shall I go online and fetch urls.txt?     \nProxy: ") +
                             (noProxy ? QStringLiteral("none") : m_proxyName);
    if (MsgDlg(m_frontEnd, question, Confirm, MbYesNo) != IdYes)
        return;
    // The list on disk says where to fetch from, not the text being edited.
    const QString url = StatsSourceList(m_urlsPath, m_frontEnd).urlOfPage(SuiteSection, UrlsPage);
    if (url.isEmpty())
        return; // the user was told there is no URL

    QStringList lines;
    QString reason;
    const int code = download(url, lines, reason);
    if (code != HttpCode::Ok) {
        // The user asked for the stop; there is nothing to explain.
        if (m_cancel)
            return;
        MsgDlg(m_frontEnd,
               QStringLiteral("I was unable to fetch urls.txt from\n%1\n%2 (%3): %4\nYour URLs "
                              "are unchanged.")
                   .arg(url, UpdateEngine::resultWord(code), QString::number(code), reason),
               Error, MbOk);
        return;
    }

    const QString text = lines.join(u'\n');
    if (!lines.isEmpty() && lines.first().trimmed().toLower() == FirstLine) {
        // Modified even when it equals the file: closing asks, so that a
        // fetched list is never kept or dropped without a word.
        setEditorText(text, true);
        m_reviewing = false;
        return;
    }
    MsgDlg(m_frontEnd,
           QStringLiteral("The new page doesn't look correct. The first line\nshould be 'Velkin "
                          "URLS'. I'll put this page in the    \neditor window for your viewing. "
                          "Click Cancel to\nreturn to original page."),
           Warning, MbOk);
    // A second bad page keeps the first original: Cancel goes back to the
    // text the user had, not to an earlier bad page.
    if (!m_reviewing) {
        m_originalText = Editor->toPlainText();
        m_originalModified = isModified();
    }
    m_reviewing = true;
    setEditorText(text, true);
}

void TURLDlg::ImportBtnClick() {
    if (m_downloading)
        return;
    bool ok = false;
    const QString location =
        QInputDialog::getText(this, QStringLiteral("Import Pinger Index"),
                              QStringLiteral("The all pingers index, as a file or an address:"),
                              QLineEdit::Normal,
                              IniFile(IniFileName())
                                  .readString(QStringLiteral("pingersite"),
                                              QStringLiteral("allpingersindex"), QString()),
                              &ok)
            .trimmed();
    if (ok && !location.isEmpty())
        importIndex(location);
}

bool TURLDlg::importIndex(const QString& location) {
    QStringList index;
    if (location.startsWith(QLatin1String("http://")) ||
        location.startsWith(QLatin1String("https://"))) {
        QString reason;
        const int code = download(location, index, reason);
        if (code != HttpCode::Ok) {
            if (!m_cancel)
                MsgDlg(m_frontEnd,
                       QStringLiteral("I was unable to fetch the pinger index from\n%1\n%2 (%3): "
                                      "%4\nYour URLs are unchanged.")
                           .arg(location, UpdateEngine::resultWord(code), QString::number(code),
                                reason),
                       Error, MbOk);
            return false;
        }
    } else {
        const QString path =
            location.startsWith(QLatin1String("file:")) ? QUrl(location).toLocalFile() : location;
        if (!QFileInfo(path).isFile()) {
            MsgDlg(m_frontEnd, QStringLiteral("There is no file ") + path, Error, MbOk);
            return false;
        }
        index = ReadLines(path);
    }
    const QStringList urls = AllPingersToUrls(index, SplitLines(Editor->toPlainText()));
    if (urls.isEmpty()) {
        MsgDlg(m_frontEnd,
               QStringLiteral("No pinger in that index publishes all four pages (mlist, mixring,\n"
                              "rlist, pgpring). Your URLs are unchanged."),
               Warning, MbOk);
        return false;
    }
    // Modified, so that closing asks before the new list replaces the file.
    setEditorText(urls.join(u'\n'), true);
    m_reviewing = false;
    return true;
}

void TURLDlg::HelpBtnClick() {
    const QString help = HelpFileName();
    if (!QFileInfo::exists(help)) {
        MsgDlg(m_frontEnd,
               QStringLiteral("Sorry, there is no program help available!\nThe help file ") +
                   QFileInfo(help).fileName() + QStringLiteral(" is missing."),
               Information, MbOk);
        return;
    }
    QUrl url = QUrl::fromLocalFile(help);
    url.setFragment(QStringLiteral("sources"));
    m_frontEnd->openUrl(url);
}

bool TURLDlg::FormCloseQuery() {
    if (!isModified())
        return true;
    const int answer =
        MsgDlg(m_frontEnd, QStringLiteral("Your URLs are modified. Save your changes?"), Confirm,
               MbYesNoCancel);
    if (answer == IdNo)
        return true;
    if (answer != IdYes)
        return false;
    if (!WriteLines(m_urlsPath, SplitLines(Editor->toPlainText()))) {
        // Kept open with the text, so nothing the user typed is lost.
        MsgDlg(m_frontEnd, StatsSourceList::saveFailedMessage(m_urlsPath), Error, MbOk);
        return false;
    }
    m_saved = true;
    return true;
}

void TURLDlg::done(int result) {
    if (m_downloading) {
        // Leaving during a download stops the download; the dialog stays.
        m_cancel = true;
        return;
    }
    if (m_reviewing && result != Accepted) {
        // "Click Cancel to return to original page."
        setEditorText(m_originalText, m_originalModified);
        m_reviewing = false;
        return;
    }
    if (FormCloseQuery())
        QDialog::done(result);
}

bool ShowURLManager(QWidget* owner, FrontEnd* frontEnd, const QString& urlsPath,
                    const QString& proxyName, const QStringList& proxySettings) {
    VK_ASSERT(frontEnd != nullptr, URLDlgsUnit);
    VK_ASSERT(!urlsPath.isEmpty(), URLDlgsUnit);
    TURLDlg dialog(owner, frontEnd, urlsPath, proxyName, proxySettings);
    dialog.exec();
    return dialog.saved();
}
