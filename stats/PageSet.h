#pragma once

#include "FrontEnd.h"
#include "RemailerDocs.h"

#include <QObject>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

// The pages held in the viewer, one per tab, in the order they were added.
// A document's Origin is its source ("local file" for a page read from
// disk), Active marks a downloaded page that must pass its content check
// before it is saved, and Extra holds the page's date as text.
class PageSet : public QObject {
    Q_OBJECT
public:
    static QString localFile() { return QStringLiteral("local file"); }

    explicit PageSet(FrontEnd* frontEnd, QObject* parent = nullptr);
    ~PageSet() override;

    // The document class for a page name; unknown names get the base class
    // with the name set on it.
    static std::unique_ptr<TRemailerDoc> createDocument(const QString& pageName,
                                                        const QString& origin, PageView* view);

    // Removes barred remailers from a downloaded page; set by whoever owns
    // the barred list. Without one nothing is removed.
    std::function<void(PageLines& lines, const QString& pageName)> barFilter;

    // A downloaded page: unfiltered copies kept, barred remailers removed,
    // content checked when check is set (a failed page gets its banner).
    // The page set keeps the document; add it with addPage.
    std::unique_ptr<TRemailerDoc> makeDocument(const QString& source, const QString& pageName,
                                               bool check, PageLines lines);
    int addPage(const QString& caption, std::unique_ptr<TRemailerDoc> doc);

    bool openLocalFile(const QString& path);
    void loadLocalFiles();

    int count() const { return int(m_pages.size()); }
    QString captionAt(int index) const;
    // The caption as the tab shows it: a stale page says so.
    QString tabTextAt(int index) const;
    TRemailerDoc* documentAt(int index) const;
    int tabIndexOfPage(const QString& name) const;
    void pageLines(const QString& name, PageLines& lines) const;
    // The last downloaded page of that name that passed its check, or null:
    // a refused page must not stand in for the one taken after it.
    TRemailerDoc* acceptedPage(const QString& name) const;
    int current() const { return m_current; }
    void setCurrent(int index);
    void closeAll();

    PageLines& mixUnfiltered() { return m_mixUnfiltered; }
    PageLines& cpkUnfiltered() { return m_cpkUnfiltered; }

signals:
    void pageAdded(int index);
    void pagesCleared();
    void currentChanged(int index);

private:
    struct Page {
        QString caption;
        std::unique_ptr<TRemailerDoc> doc;
    };
    std::unique_ptr<TRemailerDoc> makeLocalDocument(const QString& pageName, PageLines lines);
    FrontEnd* m_frontEnd;
    std::vector<Page> m_pages;
    int m_current = -1;
    PageLines m_mixUnfiltered;
    PageLines m_cpkUnfiltered;
};
