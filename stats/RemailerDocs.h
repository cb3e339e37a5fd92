#pragma once

#include <QDate>
#include <QString>
#include <QStringList>

#include <optional>

#include "PageView.h"

inline constexpr char RemailerDocsUnit[] = "stats\\RemailerDocs";

// A downloaded, stored or shown page wrapped with its page name. The document
// answers the questions asked before a page is accepted: is it a version-2
// statistics page, is it stale, does its content fit its name. It owns its
// view, and its lines are the view's lines, so every check and edit works on
// what the user sees.
class TRemailerDoc {
public:
    // Takes ownership of viewer, which must not be null and should have no
    // QObject parent that could delete it first.
    TRemailerDoc(const QString& origin, PageView* viewer);
    virtual ~TRemailerDoc();
    TRemailerDoc(const TRemailerDoc&) = delete;
    TRemailerDoc& operator=(const TRemailerDoc&) = delete;

    PageLines& Lines() { return Viewer->lines(); }
    const PageLines& Lines() const { return Viewer->lines(); }
    // What goes into the page's file: the lines as served where the viewer
    // shows them turned round, otherwise the lines shown.
    const PageLines& FileLines() const { return Served ? *Served : Lines(); }

    virtual bool IsStatsVersion2() const;
    // Stale against the local clock's date; the dated form lets a caller
    // (or a test) fix "today".
    bool IsOutOfDate() const { return IsOutOfDate(QDate::currentDate()); }
    virtual bool IsOutOfDate(const QDate& today) const;
    // Not const: the type-2 list check trims the page first.
    virtual bool IsValidPage();

    bool Active = true;
    PageView* Viewer = nullptr;
    QString Origin;
    QString DocName;
    QString Extra;
    // A statistics page in the order it was served (barred remailers
    // removed all the same). Mixmaster reads the type-I remailers from the
    // top of rlist.txt down to the table, so its file must keep that order.
    std::optional<PageLines> Served;
};

// Mixmaster statistics. Version-1 pages are turned so that the
// "Last update: " line comes first.
class TMixMListTxt : public TRemailerDoc {
public:
    TMixMListTxt(const QString& origin, PageView* viewer);
    using TRemailerDoc::IsOutOfDate;
    bool IsStatsVersion2() const override;
    bool IsOutOfDate(const QDate& today) const override;
    bool IsValidPage() override;
};

// Cypherpunk statistics, treated like the Mixmaster ones.
class TCpkRListTxt : public TRemailerDoc {
public:
    TCpkRListTxt(const QString& origin, PageView* viewer);
    using TRemailerDoc::IsOutOfDate;
    bool IsStatsVersion2() const override;
    bool IsOutOfDate(const QDate& today) const override;
    bool IsValidPage() override;
};

class TMixPubringMix : public TRemailerDoc {
public:
    TMixPubringMix(const QString& origin, PageView* viewer);
    bool IsValidPage() override;
};

class TMixType2List : public TRemailerDoc {
public:
    TMixType2List(const QString& origin, PageView* viewer);
    bool IsValidPage() override;
};

class TCpkPubringAsc : public TRemailerDoc {
public:
    TCpkPubringAsc(const QString& origin, PageView* viewer);
    bool IsValidPage() override;
};

class TVKAdvisoryTxt : public TRemailerDoc {
public:
    TVKAdvisoryTxt(const QString& origin, PageView* viewer);
    bool IsValidPage() override;
};

class TVKUrlsTxt : public TRemailerDoc {
public:
    TVKUrlsTxt(const QString& origin, PageView* viewer);
    bool IsValidPage() override;
};

class TVKNymServerAsc : public TRemailerDoc {
public:
    TVKNymServerAsc(const QString& origin, PageView* viewer);
    bool IsValidPage() override;
};

class TVKMail2newsTxt : public TRemailerDoc {
public:
    TVKMail2newsTxt(const QString& origin, PageView* viewer);
    bool IsValidPage() override;
};
