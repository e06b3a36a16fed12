// SPDX-License-Identifier: MIT
#include "window/MainWindow.h"

#include "window/DownloadPage.h"
#include "window/FlightsPage.h"
#include "window/FlightView.h"
#include "window/LogPage.h"
#include "window/RecordPage.h"
#include "window/Rows.h"
#include "window/UploadPage.h"

#include <QAction> // of widgets in Qt 5, of gui in Qt 6
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>
#include <QtGui/QCloseEvent>
#include <QtGui/QDesktopServices>
#include <QtWidgets/QMenuBar>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QStatusBar>
#include <QtWidgets/QTabWidget>

namespace
{
/// The pages that are installed with the program, or lie where it was built; empty when there are none.
QString documentation()
{
    const QDir programs(QCoreApplication::applicationDirPath());
    for (const char* const place : {"../share/doc/flightdesk/html/index.html", "../../docs/html/index.html",
                                    "../../../docs/getting-started.md"}) {
        const QString path = programs.filePath(QLatin1String(place));
        if (QFileInfo::exists(path)) {
            return QDir::cleanPath(path);
        }
    }
    return {};
}
} // namespace

MainWindow::MainWindow(const QString& logFile, bool forDevelopers)
    : m_recentMenu(new QMenu(tr("&Recent projects"), this))
    , m_tabs(new QTabWidget)
    , m_banner(new QFrame)
    , m_flights(new FlightsPage(m_session))
    , m_record(new RecordPage(m_session))
    , m_upload(new UploadPage(m_session))
    , m_download(new DownloadPage(m_session))
    , m_uploadText(new QLabel)
    , m_network(new QLabel)
    , m_gap(new QLabel)
{
    setWindowTitle(tr("flightdesk"));
    m_tabs->setDocumentMode(true);
    addPage(m_flights, tr("Flights"));
    addPage(m_record, tr("Record"));
    addPage(m_upload, tr("Upload"));
    addPage(m_download, tr("Download"));
    addPage(new LogPage(m_session, logFile), tr("Log"));
    makeBanner();
    makeMenus();
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
    connect(&m_session, &WindowSession::projectOpened, this, &MainWindow::noteProject);
    connect(m_flights, &FlightsPage::logsWanted, this, [this] {
        m_tabs->setCurrentWidget(m_record);
        m_record->chooseLogs();
    });
    connect(m_flights, &FlightsPage::simulationWanted, this, [this] {
        m_tabs->setCurrentWidget(m_record);
        m_record->simulate();
    });
    connect(m_flights->flightView(), &FlightView::uploadWanted, this, &MainWindow::uploadNow);
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
    m_pages.append(action);
}

void MainWindow::makeMenus()
{
    makeFileMenu();
    QMenu* const view = menuBar()->addMenu(tr("&View"));
    view->addActions(m_pages);
    view->addSeparator();
    QAction* const find = view->addAction(tr("&Find a flight"), this, [this] {
        m_tabs->setCurrentWidget(m_flights);
        m_flights->find();
    });
    find->setShortcut(QKeySequence::Find);
    addWay(view, tr("&List of flights"), tr("Ctrl+Shift+L"), m_flights->table());
    addWay(view, tr("&Charts of the flight"), tr("Ctrl+Shift+C"), m_flights->flightView()->charts());
    QAction* const details = view->addAction(tr("&Details for developers"));
    details->setCheckable(true);
    connect(details, &QAction::toggled, m_flights, &FlightsPage::showDetails);
    connect(details, &QAction::toggled, m_upload, &UploadPage::showDetails);
    makeHelpMenu();
}

/// A key that leads to a part of the first page.
void MainWindow::addWay(QMenu* menu, const QString& title, const QString& keys, QWidget* part)
{
    QAction* const way = menu->addAction(title, this, [this, part] {
        m_tabs->setCurrentWidget(m_flights);
        part->setFocus();
    });
    way->setShortcut(QKeySequence(keys));
}

void MainWindow::makeFileMenu()
{
    QMenu* const file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&New project..."), m_flights, &FlightsPage::chooseNew)
        ->setShortcut(QKeySequence::New);
    file->addAction(tr("&Open project..."), m_flights, &FlightsPage::choose)->setShortcut(QKeySequence::Open);
    file->addMenu(m_recentMenu);
    file->addSeparator();
    QAction* const add = file->addAction(tr("&Add logs..."), m_flights, &FlightsPage::logsWanted);
    add->setShortcut(QKeySequence(tr("Ctrl+L")));
    QAction* const save = file->addAction(tr("&Export flight..."), this, [this] {
        m_tabs->setCurrentWidget(m_flights);
        m_flights->flightView()->chooseExport();
    });
    save->setShortcut(QKeySequence(tr("Ctrl+E")));
    for (QAction* const action : {add, save}) {
        action->setEnabled(false);
        connect(&m_session, &WindowSession::projectOpened, action, [action] { action->setEnabled(true); });
    }
    file->addSeparator();
    file->addAction(tr("&Quit"), this, &MainWindow::close)->setShortcut(QKeySequence(tr("Ctrl+Q")));
    showRecent();
}

void MainWindow::makeHelpMenu()
{
    QMenu* const help = menuBar()->addMenu(tr("&Help"));
    QAction* const pages = help->addAction(
        tr("&Documentation"), this, [] { QDesktopServices::openUrl(QUrl::fromLocalFile(documentation())); });
    pages->setShortcut(QKeySequence::HelpContents);
    pages->setEnabled(!documentation().isEmpty());
    help->addAction(tr("&About flightdesk"), this, &MainWindow::showAbout);
}

void MainWindow::showAbout()
{
    auto* const about = new QMessageBox(
        QMessageBox::Information, tr("About flightdesk"),
        tr("flightdesk %1\n\nRecords flights of unmanned aircraft, keeps them, and uploads them.\n"
           "Licence: MIT")
            .arg(QCoreApplication::applicationVersion()),
        QMessageBox::Ok, this);
    about->setAttribute(Qt::WA_DeleteOnClose);
    about->open();
}

void MainWindow::setRecentProjects(const QStringList& projects)
{
    m_recent = projects;
    showRecent();
}

void MainWindow::showRecent()
{
    m_recentMenu->clear();
    for (const QString& path : qAsConst(m_recent)) {
        m_recentMenu->addAction(path, m_flights, [this, path] { m_flights->open(path, false); });
    }
    m_recentMenu->setEnabled(!m_recent.isEmpty());
}

void MainWindow::noteProject()
{
    constexpr int Most = 8;
    const QString path = m_session.projectPath();
    setWindowTitle(tr("%1 - flightdesk").arg(path));
    m_recent.removeAll(path);
    m_recent.prepend(path);
    setRecentProjects(m_recent.mid(0, Most));
    m_gaps.restart(); // what it took to build the window does not count
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_mayClose || !m_session.isRecording()) {
        QMainWindow::closeEvent(event);
        return;
    }
    event->ignore();
    auto* const question = new QMessageBox(
        QMessageBox::Question, tr("Recording"),
        tr("A flight is being recorded. When the window closes, its recording ends there; the part that is "
           "recorded is kept."),
        QMessageBox::NoButton, this);
    question->setAttribute(Qt::WA_DeleteOnClose);
    connect(question->addButton(tr("&Stop and close"), QMessageBox::DestructiveRole), &QPushButton::clicked,
            this, [this] {
                m_mayClose = true;
                close();
            });
    question->addButton(tr("&Go on recording"), QMessageBox::RejectRole);
    question->open();
}

void MainWindow::uploadNow()
{
    const Uploader::State state = m_session.uploader()->state();
    if (state == Uploader::State::Paused) {
        m_session.uploader()->resume();
    } else if (state != Uploader::State::Running) {
        askForToken();
    }
}

void MainWindow::makeStatusBar()
{
    constexpr int Space = 12;
    for (QLabel* const label : {m_uploadText, m_network, m_gap}) {
        label->setContentsMargins(Space, 0, Space, 0);
    }
    m_uploadText->setSizePolicy(QSizePolicy::Ignored,
                                QSizePolicy::Preferred); // it is no wider than the window
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
    auto* const button = new QPushButton(tr("Enter to&ken"));
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
    const QString text = m_session.hasProject() ? m_session.uploadText() : tr("Open a project to begin.");
    const int room = m_uploadText->contentsRect().width();
    m_uploadText->setText(m_uploadText->fontMetrics().elidedText(text, Qt::ElideRight, room));
    m_uploadText->setToolTip(text);
    const bool off = uploader.state() == Uploader::State::Off; // then nobody knows which network it takes
    m_network->setText(off ? QString() : m_session.hasNetwork() ? tr("Network") : tr("No network"));
    m_gap->setText(tr("Longest pause: %1 ms").arg(m_gaps.longestMilliseconds(), 0, 'f', 0));
}
