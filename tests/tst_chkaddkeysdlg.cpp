#include "ChkAddKeysDlgs.h"
#include "DialogTestSupport.h"
#include "TestData.h"

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
    void clicksAndClosing_data() { AddTableRows(QStringLiteral("chkaddkeys.txt")); }
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

void TestChkAddKeysDlg::clicksAndClosing() {
    QFETCH(QStringList, f);
    const auto ticksOf = [](const QString& text) {
        QList<bool> ticks;
        for (const QChar c : text)
            ticks.append(c == u'1');
        return ticks;
    };
    QWidget owner;
    QVERIFY(ShowOwner(owner));
    Ticks ticks = toTicks(ticksOf(f[1]));
    QList<bool> shown;
    const bool result = runModal(&owner, QStringLiteral("c"), ticks, [&](TChkAddKeysDlg* dialog) {
        shown = boxStates(*dialog);
        for (const QString& name : f[2] == u'-' ? QStringList() : f[2].split(u'|'))
            clickBox(dialog->findChild<QCheckBox*>(name));
        CloseDialogBy(dialog, f[3]);
    });
    QVERIFY(!m_guardFired);
    QCOMPARE(shown, ticksOf(f[1]));
    QCOMPARE(result, f[4] == u'1');
    QCOMPARE(fromTicks(ticks), ticksOf(f[5]));
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
