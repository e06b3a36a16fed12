// SPDX-License-Identifier: MIT
#include "window/MainWindow.h"

#include "window/DownloadPage.h"
#include "window/LogPage.h"
#include "window/ProjectPage.h"
#include "window/RecordPage.h"
#include "window/Rows.h"
#include "window/UploadPage.h"

#include <QAction> // of widgets in Qt 5, of gui in Qt 6
#include <QtWidgets/QPushButton>
#include <QtWidgets/QStatusBar>
#include <QtWidgets/QTabWidget>

MainWindow::MainWindow(const QString& logFile, bool forDevelopers)
    : m_tabs(new QTabWidget)
    , m_banner(new QFrame)
    , m_project(new ProjectPage(m_session))
    , m_record(new RecordPage(m_session))
    , m_upload(new UploadPage(m_session))
    , m_download(new DownloadPage(m_session))
    , m_uploadText(new QLabel)
    , m_network(new QLabel)
    , m_gap(new QLabel)
{
    setWindowTitle(tr("flightdesk"));
    m_tabs->setDocumentMode(true);
    addPage(m_project, tr("Project"));
    addPage(m_record, tr("Record"));
    addPage(m_upload, tr("Upload"));
    addPage(m_download, tr("Download"));
    addPage(new LogPage(m_session, logFile), tr("Log"));
    makeBanner();
    auto* const centre = new QWidget;
    auto* const layout = new QVBoxLayout(centre);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_banner);
    layout->addWidget(m_tabs);
    setCentralWidget(centre);
    makeStatusBar();
    m_gap->setVisible(forDevelopers);
    connect(&m_session, &WindowSession::tokenRejected, this, &MainWindow::askForToken);
    connect(m_session.uploader(), &Uploader::changed, this, &MainWindow::showStatus);
    connect(&m_session, &WindowSession::looked, this, &MainWindow::showStatus);
    connect(&m_session, &WindowSession::projectOpened, this, [this] {
        setWindowTitle(tr("%1 - flightdesk").arg(m_session.projectPath()));
        m_gaps.restart(); // what it took to build the window does not count
    });
    showStatus();
}

MainWindow::~MainWindow()
{
    // The pages go with the base class, after the session that they listen to.
    m_session.disconnect();
    m_session.uploader()->disconnect();
    delete takeCentralWidget();
}

void MainWindow::addPage(QWidget* page, const QString& title)
{
    const int number = m_tabs->addTab(page, title) + 1;
    m_tabs->setTabToolTip(number - 1, tr("Ctrl+%1").arg(number));
    auto* const action = new QAction(title, this);
    action->setShortcut(QKeySequence(tr("Ctrl+%1").arg(number)));
    connect(action, &QAction::triggered, m_tabs, [this, page] { m_tabs->setCurrentWidget(page); });
    addAction(action);
}

void MainWindow::makeStatusBar()
{
    constexpr int Space = 12;
    for (QLabel* const label : {m_uploadText, m_network, m_gap}) {
        label->setContentsMargins(Space, 0, Space, 0);
    }
    statusBar()->addWidget(m_uploadText, 1);
    statusBar()->addPermanentWidget(m_network);
    statusBar()->addPermanentWidget(m_gap);
    m_gap->setToolTip(tr("The longest time between two turns of the window's event loop"));
}

/// On every page, as the upload stands still until somebody acts.
void MainWindow::makeBanner()
{
    m_banner->setAutoFillBackground(true);
    m_banner->setBackgroundRole(QPalette::Highlight);
    auto* const text =
        new QLabel(tr("The server rejected the token. Nothing is uploaded until you sign in again."));
    text->setForegroundRole(QPalette::HighlightedText);
    auto* const button = new QPushButton(tr("Enter &token"));
    connect(button, &QPushButton::clicked, this, &MainWindow::askForToken);
    m_banner->setLayout(sideBySide({{text, nullptr, button}}));
    m_banner->hide();
}

void MainWindow::askForToken()
{
    m_tabs->setCurrentWidget(m_upload);
    m_upload->askForToken();
}

void MainWindow::showStatus()
{
    const Uploader& uploader = *m_session.uploader();
    m_banner->setVisible(uploader.state() == Uploader::State::TokenRejected);
    m_uploadText->setText(m_session.hasProject() ? m_session.uploadText() : tr("Open a project to begin."));
    const bool off = uploader.state() == Uploader::State::Off; // then nobody knows which network it takes
    m_network->setText(off ? QString() : m_session.hasNetwork() ? tr("Network") : tr("No network"));
    m_gap->setText(tr("Longest pause: %1 ms").arg(m_gaps.longestMilliseconds(), 0, 'f', 0));
}
