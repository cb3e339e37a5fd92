#include "PageSet.h"

#include "Global2.h"
#include "PagePaths.h"
#include "TextFile.h"

#include <QFileInfo>

namespace {

const QString FailedBanner = QStringLiteral("# *****Failed Error Checks*****");
const QString Version2Note =
    QStringLiteral("# This is a version 2 stats page. VK requires version 1.");

template <typename Doc> std::unique_ptr<TRemailerDoc> make(const QString& origin, PageView* view) {
    return std::make_unique<Doc>(origin, view);
}

} // namespace

PageSet::PageSet(FrontEnd* frontEnd, QObject* parent) : QObject(parent), m_frontEnd(frontEnd) {}

PageSet::~PageSet() = default;

std::unique_ptr<TRemailerDoc> PageSet::createDocument(const QString& pageName,
                                                      const QString& origin, PageView* view) {
    using Factory = std::unique_ptr<TRemailerDoc> (*)(const QString&, PageView*);
    static const QList<QPair<QString, Factory>> classes = {
        {QStringLiteral("mlist.txt"), &make<TMixMListTxt>},
        {QStringLiteral("pubring.mix"), &make<TMixPubringMix>},
        {QStringLiteral("type2.list"), &make<TMixType2List>},
        {QStringLiteral("rlist.txt"), &make<TCpkRListTxt>},
        {QStringLiteral("pubring.asc"), &make<TCpkPubringAsc>},
        {QStringLiteral("advisory.txt"), &make<TVKAdvisoryTxt>},
        {QStringLiteral("urls.txt"), &make<TVKUrlsTxt>},
        {QStringLiteral("nymserver.asc"), &make<TVKNymServerAsc>},
        {QStringLiteral("mail2news.txt"), &make<TVKMail2newsTxt>},
    };
    for (const auto& [name, factory] : classes) {
        if (name == pageName)
            return factory(origin, view);
    }
    auto doc = std::make_unique<TRemailerDoc>(origin, view);
    doc->DocName = pageName;
    return doc;
}

std::unique_ptr<TRemailerDoc> PageSet::makeDocument(const QString& source, const QString& pageName,
                                                    bool check, PageLines lines) {
    VK_ASSERT_TEXT(!source.isEmpty() && !pageName.isEmpty(), "Name != \"\" && Lines != NULL",
                   StatsWins4Unit);
    const QString name = pageName.toLower();
    PageLines* unfiltered = nullptr;
    if (name == QStringLiteral("mlist.txt"))
        unfiltered = &m_mixUnfiltered;
    else if (name == QStringLiteral("rlist.txt") || name == QStringLiteral("pubring.mix"))
        unfiltered = &m_cpkUnfiltered; // pubring.mix shares the Cypherpunk copy on purpose
    if (unfiltered) {
        *unfiltered = lines;
        if (barFilter)
            barFilter(lines, name);
    }

    auto* view = new PageView(std::move(lines));
    view->setWordWrap(name == QStringLiteral("advisory.txt"));
    auto doc = createDocument(name, source, view);
    doc->Active = check;
    if (check && !doc->IsValidPage()) {
        view->insertLine(0, FailedBanner);
        view->insertLine(1, QStringLiteral("#"));
        const bool stats =
            name == QStringLiteral("mlist.txt") || name == QStringLiteral("rlist.txt");
        if (stats && doc->IsStatsVersion2())
            view->insertLine(1, Version2Note);
    }
    view->setModified(true);
    view->setReadOnly(true);
    WaitTicks(m_frontEnd, 20);
    return doc;
}

std::unique_ptr<TRemailerDoc> PageSet::makeLocalDocument(const QString& pageName, PageLines lines) {
    auto* view = new PageView(std::move(lines));
    view->setWordWrap(pageName == QStringLiteral("advisory.txt") ||
                      pageName == QStringLiteral("advisory.html"));
    auto doc = createDocument(pageName, localFile(), view);
    doc->Active = false;
    view->setModified(false);
    view->setReadOnly(true);
    WaitTicks(m_frontEnd, 20);
    return doc;
}

int PageSet::addPage(const QString& caption, std::unique_ptr<TRemailerDoc> doc) {
    m_pages.push_back({caption, std::move(doc)});
    const int index = count() - 1;
    emit pageAdded(index);
    return index;
}

bool PageSet::openLocalFile(const QString& path) {
    VK_ASSERT_TEXT(!path.isEmpty(), "FileName != \"\" && Lines != NULL", StatsWins4Unit);
    const QString fileName = QFileInfo(path).fileName();
    const QString pageName = fileName.toLower();
    for (int i = 0; i < count(); ++i) {
        const TRemailerDoc* doc = m_pages[size_t(i)].doc.get();
        if (doc && doc->Origin == localFile() && doc->DocName == pageName) {
            setCurrent(i);
            if (m_frontEnd)
                m_frontEnd->setStatusText(localFile() + QStringLiteral(": ") + fileName);
            return true;
        }
    }
    PageLines lines = ReadPage(path);
    TrimLeadingBlankLines(lines);
    TrimTrailingBlankLines(lines);
    const QString caption =
        pageName == QStringLiteral("status.txt") ? QStringLiteral("status") : pageName;
    addPage(caption, makeLocalDocument(pageName, std::move(lines)));
    if (m_frontEnd)
        m_frontEnd->setStatusText(localFile() + QStringLiteral(": ") + fileName);
    return true;
}

void PageSet::loadLocalFiles() {
    static const char* const order[] = {"status.txt",    "mlist.txt",   "pubring.mix",
                                        "rlist.txt",     "pubring.asc", "nymserver.asc",
                                        "mail2news.txt", "advisory.txt"};
    for (const char* name : order) {
        const QString path = PagePath(QString::fromLatin1(name));
        if (QFileInfo::exists(path))
            openLocalFile(path);
    }
}

QString PageSet::captionAt(int index) const {
    return documentAt(index) ? m_pages[size_t(index)].caption : QString();
}

QString PageSet::tabTextAt(int index) const {
    const QString caption = captionAt(index);
    return documentAt(index)->Viewer->isStale() ? caption + QStringLiteral(" (stale)") : caption;
}

TRemailerDoc* PageSet::acceptedPage(const QString& name) const {
    for (auto it = m_pages.rbegin(); it != m_pages.rend(); ++it) {
        TRemailerDoc* doc = it->doc.get();
        if (doc && doc->DocName == name && doc->Origin != localFile() && doc->Active &&
            doc->IsValidPage())
            return doc;
    }
    return nullptr;
}

TRemailerDoc* PageSet::documentAt(int index) const {
    VK_ASSERT_TEXT(index >= 0 && index < count(), "index >= 0 && index < TabSet->Tabs->Count",
                   StatsWins4Unit);
    TRemailerDoc* doc = m_pages[size_t(index)].doc.get();
    VK_ASSERT_TEXT(doc != nullptr, "Doc != NULL", StatsWins4Unit);
    return doc;
}

int PageSet::tabIndexOfPage(const QString& name) const {
    for (int i = 0; i < count(); ++i) {
        if (m_pages[size_t(i)].caption == name)
            return i;
    }
    return -1;
}

void PageSet::pageLines(const QString& name, PageLines& lines) const {
    lines.clear();
    const int index = tabIndexOfPage(name);
    if (index >= 0)
        lines = documentAt(index)->Lines();
}

void PageSet::setCurrent(int index) {
    if (index < 0 || index >= count())
        return;
    m_current = index;
    emit currentChanged(index);
}

void PageSet::closeAll() {
    m_pages.clear();
    m_current = -1;
    emit pagesCleared();
}
