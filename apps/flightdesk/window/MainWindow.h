// SPDX-License-Identifier: MIT
#pragma once

#include "window/LoopGapMeter.h"
#include "window/WindowSession.h"

#include <QtWidgets/QMainWindow>

class DownloadPage;
class FlightsPage;
class QAction;
class QLabel;
class QMenu;
class QTabWidget;
class RecordPage;
class UploadPage;

/// The window: a page for each thing to do, and a line of what goes on.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// \param logFile  where the log goes, empty when it has no file
    /// \param forDevelopers  show how long the event loop was held up at most
    explicit MainWindow(const QString& logFile, bool forDevelopers = false);
    ~MainWindow() override;

    WindowSession& session() { return m_session; }
    LoopGapMeter& gaps() { return m_gaps; }
    QTabWidget* tabs() const { return m_tabs; }
    FlightsPage* flightsPage() const { return m_flights; }
    RecordPage* recordPage() const { return m_record; }
    UploadPage* uploadPage() const { return m_upload; }
    DownloadPage* downloadPage() const { return m_download; }

    /// Projects that were open lately, the latest first.
    QStringList recentProjects() const { return m_recent; }
    void setRecentProjects(const QStringList& projects);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void addPage(QWidget* page, const QString& title);
    void makeMenus();
    void addWay(QMenu* menu, const QString& title, const QString& keys, QWidget* part);
    void makeFileMenu();
    void makeHelpMenu();
    void showRecent();
    void noteProject();
    void uploadNow();
    void showAbout();
    void makeStatusBar();
    void makeBanner();
    void askForToken();
    void showStatus();
    bool m_mayClose = false; ///< whoever works it was asked

    WindowSession m_session;
    LoopGapMeter m_gaps;
    QStringList m_recent;
    QList<QAction*> m_pages;
    QMenu* m_recentMenu;
    QTabWidget* m_tabs;
    QWidget* m_banner;
    FlightsPage* m_flights;
    RecordPage* m_record;
    UploadPage* m_upload;
    DownloadPage* m_download;
    QLabel* m_uploadText;
    QLabel* m_network;
    QLabel* m_gap;
};
