#include "DialogTestSupport.h"
#include "Global2.h"
#include "StatsSources.h"
#include "StatsWins4.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "TextFile.h"
#include "URLDlgs.h"
#include "UrlsCases.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QInputDialog>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <functional>
#include <memory>

namespace {

const QString SaveQuestion = QStringLiteral("Your URLs are modified. Save your changes?");
const QString BadPage = QStringLiteral(
    "The new page doesn't look correct. The first line\nshould be 'Velkin URLS'. I'll put this "
    "page in the    \neditor window for your viewing. Click Cancel to\nreturn to original page.");

QString fetchQuestion(const QString& shownProxy) {
    return QStringLiteral("Shall I go online and fetch urls.txt?     \nProxy: ") + shownProxy;
}

QString failureMessage(const QString& url, const QString& meaning) {
    return QStringLiteral("I was unable to fetch urls.txt from\n") + url + u'\n' + meaning +
           QStringLiteral("\nYour URLs are unchanged.");
}

// A list whose "[velkin]" section says where a fresh list lives.
QByteArray urlsFile(const QString& velkinUrl) {
    return "velkin urls\n[a]\nmlist.txt http://127.0.0.1:9/mlist.txt\n\n[velkin]\nurls.txt " +
           velkinUrl.toLatin1() + "\n";
}

// What the editor shows for a file: its lines, without the last line end.
QString shown(const QByteArray& file) {
    return BytesToLines(file).join(u'\n');
}

const QByteArray NewList = "Velkin URLS\r\n[b]\r\nmlist.txt http://b.example/mlist.txt\r\n\r\n"
                           "[velkin]\r\n";

// A pinger index in the community's format: alpha and gamma publish all four
// pages, beta does not.
const QByteArray PingerIndex = "#  A L L   P I N G E R S'   I N D E X\n\n"
                               "[alpha]\nbase = https://a.example/echolot/\n"
                               "mlist = https://a.example/mlist.txt\n"
                               "mixring = https://a.example/pubring.mix\n"
                               "rlist = https://a.example/rlist.txt\n"
                               "pgpring = https://a.example/pgp-all.asc\n"
                               "type2list = https://a.example/type2.list\n\n"
                               "[beta]\nmlist = https://b.example/mlist.txt\n"
                               "rlist = https://b.example/rlist.txt\n\n"
                               "[gamma]\nrlist       = http://g.example/rlist.txt\n"
                               "mlist       = http://g.example/mlist.txt\n"
                               "pgpring     = http://g.example/pgp-all.asc\n"
                               "mixring     = http://g.example/pubring.mix\n";

const QString ImportedSections =
    "velkin urls\n[alpha]\nmlist.txt https://a.example/mlist.txt\n"
    "pubring.mix https://a.example/pubring.mix\nrlist.txt https://a.example/rlist.txt\n"
    "pubring.asc https://a.example/pgp-all.asc\n\n[gamma]\nmlist.txt http://g.example/mlist.txt\n"
    "pubring.mix http://g.example/pubring.mix\nrlist.txt http://g.example/rlist.txt\n"
    "pubring.asc http://g.example/pgp-all.asc\n\n";

// Types a new last line into the editor, as a user would.
void typeLine(TURLDlg* dialog, const QString& line) {
    dialog->Editor->moveCursor(QTextCursor::End);
    QTest::keyClick(dialog->Editor, Qt::Key_Return);
    QTest::keyClicks(dialog->Editor, line);
}

} // namespace

class TestURLDlg : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void controls();
    void cases_data() { AddTableRows(QStringLiteral("urldlg.txt")); }
    void cases();
    void failedSaveKeepsDialogOpen();
    void refreshQuestion_data();
    void refreshQuestion();
    void refreshReplaces();
    void reviewedPageCanBeSaved();
    void refreshFails_data();
    void refreshFails();
    void importPingerIndex_data();
    void importPingerIndex();
    void cancelDuringDownload_data();
    void cancelDuringDownload();
    void help_data();
    void help();
    void mainWindowMenu();

private:
    void firstLineCheck(const QByteArray& body, bool accepted);
    QString urlsPath() const { return m_env->programFolder() + "urls.txt"; }
    QString iniPath() const { return m_env->programFolder() + "vkstats.ini"; }
    QString listUrl() const { return m_pinger->url(QStringLiteral("/urls.txt")); }
    // Runs ShowURLManager and acts on the dialog from inside its modal loop.
    // A guard closes it should the action not.
    bool runModal(const std::function<void(TURLDlg*)>& act, const QString& proxyName = "<none>",
                  const QStringList& proxySettings = {});

    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TestPinger> m_pinger;
    TestFrontEnd m_ui;
    bool m_guardFired = false;
};

void TestURLDlg::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
    m_pinger = std::make_unique<TestPinger>();
    QVERIFY(m_pinger->listen());
    m_ui = TestFrontEnd();
    TempEnvironment::writeFile(urlsPath(), urlsFile(listUrl()));
}

// Every dialog is gone by the end of a test: the entry function frees it.
void TestURLDlg::cleanup() {
    QVERIFY(NoDialogLeft<TURLDlg>());
    m_pinger.reset();
}

bool TestURLDlg::runModal(const std::function<void(TURLDlg*)>& act, const QString& proxyName,
                          const QStringList& proxySettings) {
    QWidget owner;
    owner.setGeometry(OwnerGeometry);
    owner.show();
    return RunModal<TURLDlg>(
        [&] { return ShowURLManager(&owner, &m_ui, urlsPath(), proxyName, proxySettings); }, act,
        &m_guardFired, 20000,
        [this](TURLDlg* dialog) {
            // Out of a download, out of a review, then out without saving.
            for (int i = 0; i < 3 && dialog->isVisible(); ++i) {
                m_ui.answers = {IdNo};
                dialog->reject();
            }
        });
}

void TestURLDlg::controls() {
    TURLDlg dialog(nullptr, &m_ui, urlsPath(), "<none>", {});
    QCOMPARE(dialog.Editor->toPlainText(), shown(urlsFile(listUrl())));
    QVERIFY(!dialog.Editor->isReadOnly());
    QVERIFY(!dialog.isModified());
    QVERIFY(m_ui.messages.isEmpty());

    // A missing file is an empty list to start from.
    QVERIFY(QFile::remove(urlsPath()));
    TURLDlg empty(nullptr, &m_ui, urlsPath(), "<none>", {});
    QCOMPARE(empty.Editor->toPlainText(), QString());
    QVERIFY(!empty.isModified());
}

void TestURLDlg::cases() {
    QFETCH(QStringList, f);
    if (f[0] == "firstline")
        return firstLineCheck(f[1].toLatin1(), f[2] == u'1');
    const bool edit = f[1] == u'1';
    const QString& how = f[2];
    const int answer = f[3] == "yes" ? int(IdYes) : f[3] == "no" ? int(IdNo) : 0;
    const bool asked = f[4] == u'1';
    const bool saved = f[5] == u'1';
    const QByteArray before = TempEnvironment::readFile(urlsPath());
    const QDateTime stamp = QFileInfo(urlsPath()).lastModified();
    if (answer)
        m_ui.answers = {answer};
    bool closed = false;
    const bool result = runModal([&](TURLDlg* dialog) {
        if (edit)
            typeLine(dialog, QStringLiteral("[c]"));
        CloseDialogBy(dialog, how);
        closed = !dialog->isVisible();
    });
    QVERIFY(!m_guardFired);
    QVERIFY(closed);
    QCOMPARE(result, saved);
    CheckSaveQuestion(m_ui, asked, SaveQuestion);
    if (QTest::currentTestFailed())
        return;
    if (saved) {
        QCOMPARE(TempEnvironment::readFile(urlsPath()), before + "[c]\n");
    } else {
        QCOMPARE(TempEnvironment::readFile(urlsPath()), before);
        // Not even rewritten with the same bytes.
        QCOMPARE(QFileInfo(urlsPath()).lastModified(), stamp);
    }
}

void TestURLDlg::failedSaveKeepsDialogOpen() {
    const QByteArray before = TempEnvironment::readFile(urlsPath());
    bool limited = true;
    bool openAfterOk = false;
    m_ui.answers = {IdYes, IdOk, IdNo}; // save, the failure, then leave unsaved
    const bool result = runModal([&](TURLDlg* dialog) {
        typeLine(dialog, QStringLiteral("[c]"));
        limited = ClickUnderFileSizeLimit(dialog->OkBtn);
        openAfterOk = dialog->isVisible();
        QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton);
    });
    if (!limited)
        QSKIP("cannot lower the file-size limit here");
    QVERIFY(!m_guardFired);
    QVERIFY(openAfterOk);
    QVERIFY(!result);
    QCOMPARE(m_ui.messageTexts(),
             QStringList({SaveQuestion, SaveFailedMessage(urlsPath()), SaveQuestion}));
    QCOMPARE(m_ui.messages.at(1).type, Error);
    QCOMPARE(TempEnvironment::readFile(urlsPath()), before);
}

void TestURLDlg::refreshQuestion_data() {
    QTest::addColumn<QString>("proxyName");
    QTest::addColumn<QString>("shownName");
    QTest::newRow("no proxy") << "<none>"
                              << "none";
    QTest::newRow("no proxy box entry") << ""
                                        << "none";
    QTest::newRow("a stored proxy") << "tor"
                                    << "tor";
}

// Answered No, nothing goes online.
void TestURLDlg::refreshQuestion() {
    QFETCH(QString, proxyName);
    QFETCH(QString, shownName);
    m_pinger->serve("/urls.txt", NewList);
    QString textAfter;
    bool modified = true;
    const bool result = runModal(
        [&](TURLDlg* dialog) {
            QTest::mouseClick(dialog->RefreshBtn, Qt::LeftButton); // answered No
            textAfter = dialog->Editor->toPlainText();
            modified = dialog->isModified();
            QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton);
        },
        proxyName);
    QVERIFY(!m_guardFired);
    QVERIFY(!result);
    QCOMPARE(m_ui.messageTexts(), QStringList{fetchQuestion(shownName)});
    QCOMPARE(m_ui.messages.first().type, Confirm);
    QCOMPARE(m_ui.messages.first().buttons, int(MbYesNo));
    QVERIFY(m_pinger->requests().isEmpty());
    QCOMPARE(textAfter, shown(urlsFile(listUrl())));
    QVERIFY(!modified);
}

void TestURLDlg::refreshReplaces() {
    // Sent a few bytes at a time, so that the bar has steps to show.
    TestPinger::Route drip;
    drip.mode = TestPinger::Mode::Drip;
    drip.body = NewList;
    drip.dripBytes = 8;
    drip.dripIntervalMs = 20;
    m_pinger->setRoute("/urls.txt", drip);
    m_ui.answers = {IdYes};
    QString textAfter;
    bool modified = false;
    bool reviewing = true;
    bool openAfterCancel = false;
    QList<int> progress;
    const bool result = runModal([&](TURLDlg* dialog) {
        connect(dialog->ProgressBar, &QProgressBar::valueChanged, this,
                [&progress](int value) { progress.append(value); });
        QTest::mouseClick(dialog->RefreshBtn, Qt::LeftButton);
        textAfter = dialog->Editor->toPlainText();
        modified = dialog->isModified();
        reviewing = dialog->isReviewing();
        // A fetched list counts as a change: Cancel asks (answered Cancel,
        // so the dialog stays), OK asks again (answered Yes).
        m_ui.answers = {IdCancel, IdYes};
        QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton);
        openAfterCancel = dialog->isVisible();
        QTest::mouseClick(dialog->OkBtn, Qt::LeftButton);
    });
    QVERIFY(!m_guardFired);
    QVERIFY(result);
    QCOMPARE(textAfter, QStringLiteral("Velkin URLS\n[b]\nmlist.txt http://b.example/mlist.txt\n\n"
                                       "[velkin]"));
    QVERIFY(modified);
    QVERIFY(!reviewing);
    QVERIFY(openAfterCancel);
    // The bar only goes forward, through values between 0 and 100.
    QVERIFY(!progress.isEmpty());
    QCOMPARE(progress.last(), 100);
    QVERIFY(std::is_sorted(progress.cbegin(), progress.cend()));
    QCOMPARE(std::adjacent_find(progress.cbegin(), progress.cend()), progress.cend());
    QVERIFY(
        std::any_of(progress.cbegin(), progress.cend(), [](int p) { return p > 0 && p < 100; }));
    QCOMPARE(m_ui.messageTexts(), QStringList({fetchQuestion("none"), SaveQuestion, SaveQuestion}));
    QCOMPARE(m_pinger->requests().size(), 1);
    QCOMPARE(m_pinger->requests().first().path, QByteArray("/urls.txt"));
    // Saved in the program's line ends.
    QCOMPARE(TempEnvironment::readFile(urlsPath()),
             QByteArray("Velkin URLS\n[b]\nmlist.txt http://b.example/mlist.txt\n\n[velkin]\n"));
}

void TestURLDlg::firstLineCheck(const QByteArray& body, bool accepted) {
    m_pinger->serve("/urls.txt", body);
    const QByteArray before = TempEnvironment::readFile(urlsPath());
    m_ui.answers = {IdYes};
    QString textAfter;
    bool modified = false;
    bool reviewing = false;
    bool openAfterCancel = false;
    QString textAfterCancel;
    bool modifiedAfterCancel = true;
    const bool result = runModal([&](TURLDlg* dialog) {
        QTest::mouseClick(dialog->RefreshBtn, Qt::LeftButton);
        textAfter = dialog->Editor->toPlainText();
        modified = dialog->isModified();
        reviewing = dialog->isReviewing();
        m_ui.answers = {IdNo};
        QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton);
        openAfterCancel = dialog->isVisible();
        textAfterCancel = dialog->Editor->toPlainText();
        modifiedAfterCancel = dialog->isModified();
        if (openAfterCancel)
            QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton);
    });
    QVERIFY(!m_guardFired);
    QVERIFY(!result);
    // The fetched text is shown either way.
    QCOMPARE(textAfter, BytesToLines(body).join(u'\n'));
    QVERIFY(modified);
    QCOMPARE(reviewing, !accepted);
    if (accepted) {
        // Closing asks; No leaves the file.
        QCOMPARE(m_ui.messageTexts(), QStringList({fetchQuestion("none"), SaveQuestion}));
        QVERIFY(!openAfterCancel);
    } else {
        QCOMPARE(m_ui.messageTexts(), QStringList({fetchQuestion("none"), BadPage}));
        QCOMPARE(m_ui.messages.at(1).type, Warning);
        QCOMPARE(m_ui.messages.at(1).buttons, int(MbOk));
        // Cancel went back to the original page and kept the dialog; the
        // second Cancel closed it without a question.
        QVERIFY(openAfterCancel);
        QCOMPARE(textAfterCancel, shown(before));
        QVERIFY(!modifiedAfterCancel);
    }
    QCOMPARE(TempEnvironment::readFile(urlsPath()), before);
}

// OK on a page under review is the user's choice to keep it; Cancel also
// brings back unsaved edits made before the fetch.
void TestURLDlg::reviewedPageCanBeSaved() {
    m_pinger->serve("/urls.txt", "not a list\n");
    m_ui.answers = {IdYes, IdOk, IdYes, IdOk};
    QString restored;
    bool restoredModified = false;
    const bool result = runModal([&](TURLDlg* dialog) {
        typeLine(dialog, QStringLiteral("[mine]"));
        QTest::mouseClick(dialog->RefreshBtn, Qt::LeftButton); // bad page
        QTest::mouseClick(dialog->RefreshBtn, Qt::LeftButton); // bad again
        QTest::keyClick(dialog, Qt::Key_Escape);
        restored = dialog->Editor->toPlainText();
        restoredModified = dialog->isModified();
        m_ui.answers = {IdYes, IdOk, IdYes};
        QTest::mouseClick(dialog->RefreshBtn, Qt::LeftButton);
        QTest::mouseClick(dialog->OkBtn, Qt::LeftButton); // save answered Yes
    });
    QVERIFY(!m_guardFired);
    QVERIFY(result);
    QCOMPARE(restored, shown(urlsFile(listUrl())) + "\n[mine]");
    QVERIFY(restoredModified);
    QCOMPARE(m_ui.messageTexts(),
             QStringList({fetchQuestion("none"), BadPage, fetchQuestion("none"), BadPage,
                          fetchQuestion("none"), BadPage, SaveQuestion}));
    QCOMPARE(TempEnvironment::readFile(urlsPath()), QByteArray("not a list\n"));
}

void TestURLDlg::refreshFails_data() {
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("meaning"); // ends in ": " where Qt words the reason

    QTest::newRow("404") << "404"
                         << "http error (-5005): HTTP 404 Not Found";
    QTest::newRow("server gone") << "closed"
                                 << "encountered HTTP exception (-5001): ";
    // The proxy settings reach the download: these cannot be used, so
    // nothing is sent.
    QTest::newRow("unusable proxy settings") << "proxy"
                                             << "encountered HTTP library exception (-5000): ";
    // So does the time-out of the settings.
    QTest::newRow("time-out from the settings")
        << "timeout"
        << "timed out (-5003): No complete answer within 1 seconds";
}

// The user is told, and the editor and the file are left as they were.
void TestURLDlg::refreshFails() {
    QFETCH(QString, kind);
    QFETCH(QString, meaning);
    const QString url = listUrl(); // the pinger forgets its port when closed
    QStringList proxySettings;
    if (kind == "closed") {
        m_pinger->close();
    } else if (kind == "proxy") {
        proxySettings = {"kind=carrier-pigeon", "host=127.0.0.1", "port=1"};
    } else if (kind == "timeout") {
        TempEnvironment::writeFile(iniPath(), "[stats]\ntimeoutseconds=1\n");
        TestPinger::Route silent;
        silent.mode = TestPinger::Mode::Silent;
        m_pinger->setRoute("/urls.txt", silent);
    }
    const QByteArray before = TempEnvironment::readFile(urlsPath());
    m_ui.answers = {IdYes};
    QString textAfter;
    bool modified = true;
    qint64 elapsed = -1;
    const bool result = runModal(
        [&](TURLDlg* dialog) {
            QElapsedTimer clock;
            clock.start();
            QTest::mouseClick(dialog->RefreshBtn, Qt::LeftButton);
            elapsed = clock.elapsed();
            textAfter = dialog->Editor->toPlainText();
            modified = dialog->isModified();
            QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton); // no question
        },
        "proxy", proxySettings);
    QVERIFY(!m_guardFired);
    QVERIFY(!result);
    QCOMPARE(m_ui.messages.size(), 2);
    QCOMPARE(m_ui.messages.first().text, fetchQuestion("proxy"));
    const QString message = m_ui.messages.at(1).text;
    {
        QCOMPARE(m_ui.messages.at(1).type, Error);
        // The reason Qt gives for a refused connection or a bad setting is
        // its own wording; the rest is exact.
        const QString start = failureMessage(url, meaning);
        const QString end = QStringLiteral("\nYour URLs are unchanged.");
        if (meaning.endsWith(u' ')) {
            const QString head = start.left(start.size() - end.size());
            QVERIFY2(message.startsWith(head) && message.endsWith(end), qPrintable(message));
            QVERIFY2(message.size() > start.size(), qPrintable(message)); // a reason is given
        } else {
            QCOMPARE(message, start);
        }
    }
    if (kind == "timeout")
        QVERIFY2(elapsed >= 900 && elapsed < 10000, qPrintable(QString::number(elapsed)));
    if (kind == "proxy" || kind == "no url")
        QVERIFY(m_pinger->requests().isEmpty());
    QCOMPARE(textAfter, shown(before));
    QVERIFY(!modified);
    QCOMPARE(TempEnvironment::readFile(urlsPath()), before);
}

void TestURLDlg::cancelDuringDownload_data() {
    QTest::addColumn<QString>("how");
    QTest::newRow("Cancel") << "CancelBtn";
    QTest::newRow("close box") << "close";
}

// Leaving during a download stops the download and keeps the dialog open,
// without a failure message.
void TestURLDlg::cancelDuringDownload() {
    QFETCH(QString, how);
    TestPinger::Route silent;
    silent.mode = TestPinger::Mode::Silent;
    m_pinger->setRoute("/urls.txt", silent);
    const QByteArray before = TempEnvironment::readFile(urlsPath());
    m_ui.answers = {IdYes};
    bool busySeen = false;
    bool okDuring = true;
    bool refreshDuring = true;
    bool readOnlyDuring = false;
    bool openAfter = false;
    bool okAfter = false;
    bool readOnlyAfter = true;
    QString textAfter;
    qint64 elapsed = -1;
    const bool result = runModal([&](TURLDlg* dialog) {
        QTimer::singleShot(300, dialog, [&, dialog] {
            busySeen = dialog->isDownloading();
            okDuring = dialog->OkBtn->isEnabled();
            refreshDuring = dialog->RefreshBtn->isEnabled();
            readOnlyDuring = dialog->Editor->isReadOnly();
            CloseDialogBy(dialog, how);
        });
        QElapsedTimer clock;
        clock.start();
        QTest::mouseClick(dialog->RefreshBtn, Qt::LeftButton);
        elapsed = clock.elapsed();
        openAfter = dialog->isVisible();
        okAfter = dialog->OkBtn->isEnabled();
        readOnlyAfter = dialog->Editor->isReadOnly();
        textAfter = dialog->Editor->toPlainText();
        QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton);
    });
    QVERIFY(!m_guardFired);
    QVERIFY(!result);
    QVERIFY(busySeen);
    QVERIFY(!okDuring);
    QVERIFY(!refreshDuring);
    QVERIFY(readOnlyDuring);
    QVERIFY(openAfter);
    QVERIFY(okAfter);
    QVERIFY(!readOnlyAfter);
    // Stopped well before the 30 seconds of the default time-out.
    QVERIFY2(elapsed < 10000, qPrintable(QString::number(elapsed)));
    QCOMPARE(textAfter, shown(before));
    QCOMPARE(m_ui.messageTexts(), QStringList{fetchQuestion("none")});
    QCOMPARE(TempEnvironment::readFile(urlsPath()), before);
}

void TestURLDlg::help_data() {
    QTest::addColumn<bool>("present");
    QTest::newRow("help file present") << true;
    QTest::newRow("help file missing") << false;
}

void TestURLDlg::help() {
    QFETCH(bool, present);
    const QString help = HelpFileName();
    const bool existed = QFileInfo::exists(help);
    bool made = false;
    if (present && !existed) {
        TempEnvironment::writeFile(help, "<html><h2 id=\"sources\">Stats sources</h2></html>\n");
        made = true;
    }
    if (!present && existed)
        QSKIP("a help file is installed beside the test");
    m_ui.urlOpener = true;
    const bool result = runModal([&](TURLDlg* dialog) {
        QTest::mouseClick(dialog->HelpBtn, Qt::LeftButton);
        QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton);
    });
    if (made)
        QFile::remove(help);
    QVERIFY(!m_guardFired);
    QVERIFY(!result);
    if (present) {
        QVERIFY(m_ui.messages.isEmpty());
        QCOMPARE(m_ui.openedUrls.size(), 1);
        QCOMPARE(m_ui.openedUrls.first().toLocalFile(), help);
        QCOMPARE(m_ui.openedUrls.first().fragment(), QStringLiteral("sources"));
    } else {
        QVERIFY(m_ui.openedUrls.isEmpty());
        QCOMPARE(m_ui.messageTexts(),
                 QStringList{"Sorry, there is no program help available!\nThe help file "
                             "vkstats.html is missing."});
        QCOMPARE(m_ui.messages.first().type, Information);
    }
}

// The Tools menu item of the main window opens the manager with the proxy
// box's choice and reads the sources again after a save.
void TestURLDlg::mainWindowMenu() {
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
    auto window = std::make_unique<TVKStatsWin4>();
    QCOMPARE(window->start({}), StartResult::Ready);
    window->show();
    QCOMPARE(window->SourceBox->count(), 1);

    auto* item = window->findChild<QAction*>(QStringLiteral("ToolsURLManagerItem"));
    QVERIFY(item);
    QVERIFY(item->isEnabled());
    QString question;
    QString saveQuestion;
    bool opened = false;
    QTimer::singleShot(0, this, [&] {
        auto* dialog = qobject_cast<TURLDlg*>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        opened = true;
        AnswerNextMessage(QMessageBox::No, &question);
        QTest::mouseClick(dialog->RefreshBtn, Qt::LeftButton);
        dialog->Editor->selectAll();
        dialog->Editor->insertPlainText("velkin urls\n[x]\nmlist.txt http://x/m\n\n"
                                        "[y]\nmlist.txt http://y/m\n\n[velkin]\n");
        AnswerNextMessage(QMessageBox::Yes, &saveQuestion);
        QTest::mouseClick(dialog->OkBtn, Qt::LeftButton);
    });
    QTimer guard;
    guard.setSingleShot(true);
    connect(&guard, &QTimer::timeout, this, [] {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible())
                box->button(QMessageBox::No)->click();
            else if (auto* dialog = qobject_cast<TURLDlg*>(widget); dialog && dialog->isVisible())
                dialog->reject();
        }
    });
    guard.start(20000);
    item->trigger();
    guard.stop();
    QVERIFY(opened);
    QCOMPARE(question, fetchQuestion("none"));
    QCOMPARE(saveQuestion, SaveQuestion);
    QCOMPARE(TempEnvironment::readFile(urlsPath()),
             QByteArray("velkin urls\n[x]\nmlist.txt http://x/m\n\n[y]\nmlist.txt http://y/m\n\n"
                        "[velkin]\n"));
    QCOMPARE(window->SourceBox->count(), 2);
    QCOMPARE(window->SourceBox->itemText(0), QStringLiteral("x"));
    QCOMPARE(window->SourceBox->itemText(1), QStringLiteral("y"));
    window.reset();
    CloseSuiteDataFile();
}

// The community's pinger index becomes urls.txt sections, the suite's own
// section kept: from a file with Import, and by Refresh from an address
// when "[velkin]" names no list to fetch.
void TestURLDlg::importPingerIndex_data() {
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("usable");
    QTest::newRow("Import, a file") << "file" << true;
    QTest::newRow("Refresh without a list, an address") << "refresh" << true;
    QTest::newRow("Import, no pinger with four pages") << "useless" << false;
}

void TestURLDlg::importPingerIndex() {
    QFETCH(QString, how);
    QFETCH(bool, usable);
    m_pinger->serve("/allpingers.txt", PingerIndex);
    const QString indexFile = TempEnvironment::writeFile(
        m_env->programFolder() + "index.txt",
        how == "useless" ? QByteArray("[beta]\nmlist = https://b.example/mlist.txt\n")
                         : PingerIndex);
    QByteArray velkin = "[velkin]\nurls.txt " + listUrl().toLatin1();
    if (how == "refresh") {
        velkin = "[velkin]\nadvisory.txt http://x/a";
        TempEnvironment::writeFile(urlsPath(),
                                   "velkin urls\n[a]\nmlist.txt http://x/m\n\n" + velkin + "\n");
    }
    const QByteArray before = TempEnvironment::readFile(urlsPath());
    const QString location =
        how == "refresh" ? m_pinger->url(QStringLiteral("/allpingers.txt")) : indexFile;
    QString textAfter;
    bool modified = false;
    runModal([&](TURLDlg* dialog) {
        QTimer::singleShot(0, dialog, [&] {
            auto* ask = qobject_cast<QInputDialog*>(QApplication::activeModalWidget());
            QVERIFY(ask);
            ask->setTextValue(location);
            ask->accept();
        });
        QTest::mouseClick(how == "refresh" ? dialog->RefreshBtn : dialog->ImportBtn,
                          Qt::LeftButton);
        textAfter = dialog->Editor->toPlainText();
        modified = dialog->isModified();
        m_ui.answers = {IdNo};
        QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton);
    });
    QVERIFY(!m_guardFired);
    QCOMPARE(modified, usable);
    if (usable)
        QCOMPARE(textAfter, ImportedSections + QString::fromLatin1(velkin));
    else
        QCOMPARE(textAfter, shown(before));
    QCOMPARE(m_pinger->requests().size(), how == "refresh" ? 1 : 0);
    // Nothing is written until the user says so.
    QCOMPARE(TempEnvironment::readFile(urlsPath()), before);
}

QTEST_MAIN(TestURLDlg)
#include "tst_urldlg.moc"
