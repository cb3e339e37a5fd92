#pragma once

#include <QDialog>
#include <QStringList>

#include <memory>

class FrontEnd;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

inline constexpr char URLDlgsUnit[] = "stats\\URLDlgs";

// "URL Manager": urls.txt in a plain text editor. Refresh fetches the list
// the suite publishes (the "urls.txt" entry of "[velkin]") into the editor;
// Import (and Refresh when "[velkin]" names no list) makes one from the
// community's pinger index instead. Nothing reaches the file until the
// user agrees to save at closing.
class TURLDlg : public QDialog {
    Q_OBJECT
public:
    // proxySettings are the name=value lines of the chosen proxy, as the
    // downloads take them; proxyName is only shown.
    TURLDlg(QWidget* owner, FrontEnd* frontEnd, QString urlsPath, QString proxyName,
            QStringList proxySettings);
    ~TURLDlg() override;

    // Whether urls.txt was written.
    bool saved() const { return m_saved; }
    bool isModified() const;
    bool isDownloading() const { return m_downloading; }
    // A fetched page that failed the first-line check is in the editor;
    // Cancel brings back what was there before.
    bool isReviewing() const { return m_reviewing; }

    // Every way out passes here: OK, Cancel, Escape and the close box.
    void done(int result) override;

    QPlainTextEdit* Editor = nullptr;
    QProgressBar* ProgressBar = nullptr;
    QPushButton* OkBtn = nullptr;
    QPushButton* CancelBtn = nullptr;
    QPushButton* RefreshBtn = nullptr;
    QPushButton* HelpBtn = nullptr;
    QPushButton* ImportBtn = nullptr;

    // Puts the urls.txt made from an "all pingers" index into the editor;
    // location is a file or an http(s) address. False, with a message, when
    // it cannot be read or names no pinger with all four pages.
    bool importIndex(const QString& location);

private slots:
    void RefreshBtnClick();
    void ImportBtnClick();
    void HelpBtnClick();

private:
    class DownloadFrontEnd;

    // Whether the dialog may close; asks about unsaved changes and writes
    // urls.txt when they are to be kept.
    bool FormCloseQuery();
    // Fetches url into lines; returns the HttpCode and, on failure, why.
    int download(const QString& url, QStringList& lines, QString& reason);
    void setBusy(bool busy);
    void setEditorText(const QString& text, bool modified);

    FrontEnd* m_frontEnd;
    std::unique_ptr<DownloadFrontEnd> m_downloadFrontEnd;
    QString m_urlsPath;
    QString m_proxyName;
    QStringList m_proxySettings;
    bool m_saved = false;
    bool m_downloading = false;
    bool m_cancel = false;
    bool m_reviewing = false;
    // What the editor held before a page under review replaced it.
    QString m_originalText;
    bool m_originalModified = false;
};

// Runs the URL manager modally over owner. True when urls.txt was saved, so
// that the caller reads its sources again.
bool ShowURLManager(QWidget* owner, FrontEnd* frontEnd, const QString& urlsPath,
                    const QString& proxyName, const QStringList& proxySettings);
