#include "ChkAddKeysDlgs.h"
#include "DialogTestSupport.h"

#include <QApplication>
#include <QCheckBox>
#include <QPushButton>
#include <QStyle>
#include <QTest>

#include <functional>

namespace {

using Ticks = std::array<bool, 4>;

Ticks toTicks(const QList<bool>& list) {
    Ticks ticks{};
    for (qsizetype i = 0; i < list.size() && i < qsizetype(ticks.size()); ++i)
        ticks[std::size_t(i)] = list.at(i);
    return ticks;
}

QList<bool> fromTicks(const Ticks& ticks) {
    return QList<bool>(ticks.begin(), ticks.end());
}

QList<bool> boxStates(const TChkAddKeysDlg& dialog) {
    return {dialog.MListBox->isChecked(), dialog.PubringMixBox->isChecked(),
            dialog.RListBox->isChecked(), dialog.PubringAscBox->isChecked()};
}

// Clicks on the box's indicator, where a user would.
void clickBox(QCheckBox* box) {
    const int indicator = box->style()->pixelMetric(QStyle::PM_IndicatorWidth, nullptr, box);
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(indicator / 2 + 1, box->height() / 2));
}

} // namespace

class TestChkAddKeysDlg : public QObject {
    Q_OBJECT
private slots:
    void okHasFocusAtOpen();
    void clicksAndClosing_data();
    void clicksAndClosing();
    void captionAndFontFromOwner();

private:
    // Runs the dialog as the main window would and acts on it from inside
    // its modal loop. A guard closes it should the action not.
    bool runModal(QWidget* owner, const QString& caption, Ticks& ticks,
                  const std::function<void(TChkAddKeysDlg*)>& act);
    bool m_guardFired = false;
};

bool TestChkAddKeysDlg::runModal(QWidget* owner, const QString& caption, Ticks& ticks,
                                 const std::function<void(TChkAddKeysDlg*)>& act) {
    return RunModal<TChkAddKeysDlg>([&] { return ShowChkAddKeysDlg(owner, caption, ticks); }, act,
                                    &m_guardFired);
}

void TestChkAddKeysDlg::okHasFocusAtOpen() {
    Ticks ticks{true, true, false, false};
    TChkAddKeysDlg dialog(nullptr, ticks);
    dialog.show();
    QVERIFY(QTest::qWaitForWindowActive(&dialog));
    QCOMPARE(QApplication::focusWidget(), static_cast<QWidget*>(dialog.OkBtn));
    // Enter presses the button with the focus: Ok.
    QTest::keyClick(&dialog, Qt::Key_Return);
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
}

void TestChkAddKeysDlg::clicksAndClosing_data() {
    QTest::addColumn<QList<bool>>("initial");
    QTest::addColumn<QStringList>("clicks");
    QTest::addColumn<QString>("closeBy");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QList<bool>>("ticksAfter");

    const QList<bool> mlistOnly{true, false, false, false};
    QTest::newRow("Ok as shown") << mlistOnly << QStringList() << "OkBtn" << true << mlistOnly;
    QTest::newRow("Cancel as shown")
        << mlistOnly << QStringList() << "CancelBtn" << false << mlistOnly;
    QTest::newRow("tick all three others, Ok")
        << mlistOnly << QStringList{"PubringMixBox", "RListBox", "PubringAscBox"} << "OkBtn" << true
        << QList<bool>{true, true, true, true};
    QTest::newRow("untick mlist.txt, Ok") << mlistOnly << QStringList{"MListBox"} << "OkBtn" << true
                                          << QList<bool>{false, false, false, false};
    // Cancel still hands back the boxes as they were left.
    QTest::newRow("ticks changed, Cancel")
        << mlistOnly << QStringList{"MListBox", "PubringAscBox"} << "CancelBtn" << false
        << QList<bool>{false, false, false, true};
    QTest::newRow("clicked twice, Ok")
        << mlistOnly << QStringList{"RListBox", "RListBox"} << "OkBtn" << true << mlistOnly;
    QTest::newRow("close box is Cancel") << mlistOnly << QStringList{"PubringMixBox"} << "close"
                                         << false << QList<bool>{true, true, false, false};
    QTest::newRow("Escape is Cancel")
        << QList<bool>{false, false, true, true} << QStringList{"RListBox"} << "escape" << false
        << QList<bool>{false, false, false, true};
}

void TestChkAddKeysDlg::clicksAndClosing() {
    QFETCH(QList<bool>, initial);
    QFETCH(QStringList, clicks);
    QFETCH(QString, closeBy);
    QFETCH(bool, ok);
    QFETCH(QList<bool>, ticksAfter);

    QWidget owner;
    QVERIFY(ShowOwner(owner));

    Ticks ticks = toTicks(initial);
    QList<bool> shown;
    const bool result = runModal(&owner, QStringLiteral("c"), ticks, [&](TChkAddKeysDlg* dialog) {
        shown = boxStates(*dialog);
        for (const QString& name : clicks)
            clickBox(dialog->findChild<QCheckBox*>(name));
        CloseDialogBy(dialog, closeBy);
    });
    QVERIFY(!m_guardFired);
    QCOMPARE(shown, initial);
    QCOMPARE(result, ok);
    QCOMPARE(fromTicks(ticks), ticksAfter);
}

void TestChkAddKeysDlg::captionAndFontFromOwner() {
    QWidget owner;
    QFont font(QStringLiteral("Courier New"), 17);
    font.setItalic(true);
    owner.setFont(font);
    QVERIFY(ShowOwner(owner));

    Ticks ticks{};
    QString title;
    QFont dialogFont;
    bool fixedModal = false;
    const bool result = runModal(&owner, QStringLiteral(" New stats source detected {Frog->Dizum}"),
                                 ticks, [&](TChkAddKeysDlg* dialog) {
                                     title = dialog->windowTitle();
                                     dialogFont = dialog->OkBtn->font();
                                     fixedModal =
                                         dialog->isModal() && dialog->parentWidget() == &owner;
                                     dialog->OkBtn->click();
                                 });
    QVERIFY(!m_guardFired);
    QVERIFY(result);
    QCOMPARE(title, QStringLiteral(" New stats source detected {Frog->Dizum}"));
    QCOMPARE(dialogFont.pointSize(), 17);
    QVERIFY(dialogFont.italic());
    QVERIFY(fixedModal);
}

QTEST_MAIN(TestChkAddKeysDlg)
#include "tst_chkaddkeysdlg.moc"
