#include "NewMixKeyWins.h"

#include "DialogLook.h"
#include "Global2.h"
#include "NewMixKeys.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <iterator>

namespace {

constexpr char NewMixKeyWinsUnit[] = "stats\\NewMixKeyWins";

struct Column {
    const char* caption;
    int width; // 0: the view's default
};

constexpr Column Columns[] = {{"||||  Name", 75}, {"Address", 210}, {"Key ID", 210},
                              {"Version", 80},    {"Caps", 0},      {"Key Created", 70},
                              {"Key Expires", 70}};

} // namespace

TNewMixKeysWin::TNewMixKeysWin(QWidget* owner, const QStringList& keys)
    : QDialog(owner, Qt::Dialog | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                         Qt::WindowCloseButtonHint) {
    setObjectName(QStringLiteral("TNewMixKeysWin"));
    setWindowTitle(QStringLiteral("New Mixmaster Keys"));
    resize(789, 400);

    KeyList = new QTreeWidget(this);
    KeyList->setObjectName(QStringLiteral("KeyList"));
    KeyList->setRootIsDecorated(false);
    KeyList->setSelectionBehavior(QAbstractItemView::SelectRows);
    KeyList->setEditTriggers(QAbstractItemView::NoEditTriggers);
    QStringList captions;
    for (const Column& column : Columns)
        captions.append(QString::fromLatin1(column.caption));
    KeyList->setHeaderLabels(captions);
    for (int i = 0; i < int(std::size(Columns)); ++i) {
        if (Columns[i].width > 0)
            KeyList->header()->resizeSection(i, Columns[i].width);
    }

    Button1 = NamedButton(this, QStringLiteral("Button1"), QStringLiteral("&Bar All"));
    Button2 = NamedButton(this, QStringLiteral("Button2"), QStringLiteral("&Clear All"));
    HelpBtn = NamedButton(this, QStringLiteral("HelpBtn"), QStringLiteral("Help"));
    OkBtn = NamedButton(this, QStringLiteral("OkBtn"), QStringLiteral("Ok"));
    Cancel = NamedButton(this, QStringLiteral("Cancel"), QStringLiteral("Cancel"));
    OkBtn->setDefault(true);
    connect(Button1, &QPushButton::clicked, this, [this] { tickAll(true); });
    connect(Button2, &QPushButton::clicked, this, [this] { tickAll(false); });
    connect(OkBtn, &QPushButton::clicked, this, &QDialog::accept);
    connect(Cancel, &QPushButton::clicked, this, &QDialog::reject);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(Button1);
    buttons->addWidget(Button2);
    buttons->addStretch();
    buttons->addWidget(OkBtn);
    buttons->addWidget(Cancel);
    buttons->addWidget(HelpBtn);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(KeyList);
    layout->addLayout(buttons);

    fill(keys);
}

// The row's text is the key's name, its cells the fields after it; the
// field past the last column is kept on the row but not shown.
void TNewMixKeysWin::fill(const QStringList& keys) {
    const int shown = int(std::size(Columns));
    for (const QStringList& cells : NewMixKeyRows(keys)) {
        auto* item = new QTreeWidgetItem(KeyList, cells.mid(0, shown));
        item->setData(0, Qt::UserRole, cells.value(shown));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(0, Qt::Unchecked);
    }
}

void TNewMixKeysWin::tickAll(bool ticked) {
    for (int i = 0; i < KeyList->topLevelItemCount(); ++i)
        KeyList->topLevelItem(i)->setCheckState(0, ticked ? Qt::Checked : Qt::Unchecked);
}

bool ShowNewMixKeys(QWidget* owner, const QStringList* keys) {
    VK_ASSERT_TEXT(keys != nullptr, "keys != NULL", NewMixKeyWinsUnit);
    TNewMixKeysWin window(owner, *keys);
    window.exec();
    return true;
}
