#include "FrontEnd.h"
#include "Global2.h"
#include "KeyringUpdate.h"
#include "PagePaths.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"

#include <QDir>
#include <QTest>

#include <memory>

namespace {

// Ticks written as "1010".
KeyPageTicks toTicks(const QString& text) {
    KeyPageTicks ticks{};
    for (std::size_t i = 0; i < ticks.size() && qsizetype(i) < text.size(); ++i)
        ticks[i] = text.at(qsizetype(i)) == u'1';
    return ticks;
}

QString fromTicks(const KeyPageTicks& ticks) {
    QString text;
    for (const bool tick : ticks)
        text += tick ? u'1' : u'0';
    return text;
}

// A front end that answers messages and nothing else, so the new-source
// question gets FrontEnd's own answer.
class MessagesOnlyFrontEnd : public FrontEnd {
public:
    int showMessage(const QString&, MsgDlgType, int, MsgStyle) override { return IdOk; }
};

} // namespace

class TestKeyringUpdate : public QObject {
    Q_OBJECT
private slots:
    void init();

    void cases_data() { AddTableRows(QStringLiteral("keyring.txt")); }
    void cases();

    void commandLines();

    void chkAddKeysDefaultFrontEndCancels();

private:
    std::unique_ptr<TempEnvironment> m_env;
};

void TestKeyringUpdate::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
}

QStringList list(const QString& field) {
    return field == u'-' ? QStringList() : field.split(u'|');
}

void TestKeyringUpdate::cases() {
    QFETCH(QStringList, f);
    TestFrontEnd ui;
    if (f[0] == "type2") {
        QCOMPARE(Type2ListLines(list(f[1])), list(f[2]));
    } else if (f[0] == "merge") {
        QCOMPARE(MergedNymserverKeys(list(f[1]), list(f[2])), list(f[3]));
    } else if (f[0] == "menu") {
        for (const QString& folder : {m_env->mixFolder(), m_env->programFolder()}) {
            for (const QString& name : list(f[folder == m_env->mixFolder() ? 1 : 2])) {
                if (name.endsWith(u'/'))
                    QDir().mkpath(folder + name);
                else
                    TempEnvironment::writeFile(folder + name, "x\n");
            }
        }
        const KeyringMenuState state = KeyringsMenuState();
        QCOMPARE(QString::number(state.mixmaster) + QString::number(state.cypherpunk) +
                     QString::number(state.nymservers),
                 f[3]);
    } else if (f[0] == "addkeys") {
        TestFrontEnd::AddKeysAnswer answer;
        answer.ok = f[4].startsWith(u'1');
        if (f[4].section(u' ', 1) != u'-')
            answer.ticks = toTicks(f[4].section(u' ', 1));
        ui.addKeysAnswers = {answer};
        QStringList pages = list(f[1]);
        QCOMPARE(ChkAddKeys(&ui, pages, f[2], f[3]), f[6] == u'1');
        QCOMPARE(pages, list(f[7]));
        QCOMPARE(ui.addKeysQuestions.size(), f[5] == u'-' ? 0 : 1);
        if (f[5] != u'-') {
            QCOMPARE(ui.addKeysQuestions.first().caption,
                     QStringLiteral(" New stats source detected {%1->%2}").arg(f[2], f[3]));
            QCOMPARE(fromTicks(ui.addKeysQuestions.first().ticks), f[5]);
        }
    } else {
        QFAIL("unknown case kind");
    }
    QVERIFY(ui.messages.isEmpty());
}

void TestKeyringUpdate::commandLines() {
    QCOMPARE(MixmasterKeyringCommand("/opt/vk/", "/home/u/.Mix/"),
             R"(/opt/vk/vkmixkeys "/home/u/.Mix/pubring.mix")");
    QCOMPARE(
        CypherpunkKeyringCommand("/home/a b/vk/", "/home/a b/Mix dir/"),
        R"(/home/a b/vk/vkpgpkeys "/home/a b/Mix dir/pubring.asc" "/home/a b/Mix dir/rlist.txt")");
    // The nymserver line runs its second part into the first, as the tool
    // has always been given it.
    QCOMPARE(NymserverKeysCommand("/opt/vk/", "/home/u/.Mix/", "/opt/vk/nymserver.asc"),
             R"(/opt/vk/vkpgpkeys "/opt/vk/nymserver.asc"/home/u/.Mix//opt/vk/nymserver.asc")");
    // The handlers pass PagePath("nymserver.asc"): the program folder's copy.
    const QString p = m_env->programFolder();
    QCOMPARE(NymserverKeysCommand(ProgramFolder(), GetMixmasterDir(),
                                  PagePath(QStringLiteral("nymserver.asc"))),
             p + "vkpgpkeys \"" + p + "nymserver.asc\"" + m_env->mixFolder() + p +
                 "nymserver.asc\"");
}

// With nobody to ask, the question counts as cancelled: the update stops and
// the list keeps only the key pages it had.
void TestKeyringUpdate::chkAddKeysDefaultFrontEndCancels() {
    MessagesOnlyFrontEnd ui;
    QStringList pages{"nymserver.asc", "rlist.txt", "advisory.txt"};
    QVERIFY(!ChkAddKeys(&ui, pages, QStringLiteral("A"), QStringLiteral("B")));
    QCOMPARE(pages, QStringList{"rlist.txt"});
}

QTEST_GUILESS_MAIN(TestKeyringUpdate)
#include "tst_keyringupdate.moc"
