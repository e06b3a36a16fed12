// SPDX-License-Identifier: MIT
#include "WindowSession.h"

#include <KvAlgorthm.h>

#include <QtCore/QCoreApplication>

WindowSession::WindowSession()
    : m_uploader(m_missions, m_feed)
    , m_directDownload(new DownloadWorker(FileDownload::Way::Direct, m_feed))
    , m_programDownload(new DownloadWorker(FileDownload::Way::Program, m_feed))
{
    qRegisterMetaType<QVector<MissionsOfFile>>();
    // What the library does and why a request failed is told at this level only.
    Logger::instance().setLoggingLevel(Level::Info);
    connect(&m_feed, &LogFeed::line, &m_log, &LogModel::append);
    connect(&m_feed, &LogFeed::line, &m_breakpoints, &BreakpointKeeper::readLine);
    connect(&m_recorders, &RecorderPool::started, &m_flights, &FlightModel::noteStarted);
    connect(&m_recorders, &RecorderPool::progress, &m_flights, &FlightModel::setProgress);
    connect(&m_recorders, &RecorderPool::sampled, &m_flights, &FlightModel::addSamples);
    connect(&m_recorders, &RecorderPool::sampled, this, &WindowSession::sampled);
    connect(&m_recorders, &RecorderPool::finished, &m_flights, &FlightModel::finish);
    connect(&m_recorders, &RecorderPool::finished, this, &WindowSession::sampled);
    connect(&m_recorders, &RecorderPool::finished, &m_breakpoints,
            [this](int, const RecordedFlight& flight) { m_breakpoints.noteRecorded(flight); });
    connect(&m_breakpoints, &BreakpointKeeper::storeAgain, this,
            [this](const RecordedFlight& flight) { m_recorders.storeBreakpoint(*m_project, flight); });
    for (DownloadWorker* worker : {m_directDownload, m_programDownload}) {
        worker->moveToThread(&m_downloadThread);
        connect(&m_downloadThread, &QThread::finished, worker, &QObject::deleteLater);
    }
    m_downloadThread.start();
}

WindowSession::~WindowSession()
{
    stopWatch();
    m_downloadThread.quit();
    m_downloadThread.wait();
}

QString WindowSession::openProject(const QString& path, bool make)
{
    if (m_recorders.isBusy()) {
        return tr("Flights are being recorded. Cancel them, or wait until they are done.");
    }
    QString error;
    const auto project = make ? Project::make(path, &error) : Project::open(path, &error);
    if (!project) {
        return error;
    }
    m_uploader.leaveProject();
    stopWatch();
    QCoreApplication::removePostedEvents(&m_missions); // the old project's missions, still on their way
    m_project = project;
    m_missions.clear();
    startWatch();
    emit projectOpened();
    return {};
}

void WindowSession::startWatch()
{
    auto* const watch = new MissionWatch(*m_project);
    watch->moveToThread(&m_watchThread);
    connect(&m_watchThread, &QThread::started, watch, &MissionWatch::look);
    connect(&m_watchThread, &QThread::finished, watch, &QObject::deleteLater);
    connect(watch, &MissionWatch::found, &m_missions, &MissionModel::update);
    connect(watch, &MissionWatch::gone, &m_missions, &MissionModel::remove);
    connect(watch, &MissionWatch::looked, this, [this](bool network) {
        m_network = network;
        m_uploader.look(network);
        emit looked();
    });
    m_watchThread.start();
}

void WindowSession::stopWatch()
{
    m_watchThread.requestInterruption();
    m_watchThread.quit();
    m_watchThread.wait();
}

void WindowSession::record(const FlightTask& task)
{
    m_flights.add(m_recorders.record(*m_project, task), task.name);
}

void WindowSession::cancelRecording(int row)
{
    m_recorders.cancel(m_flights.flightAt(row));
}

QString WindowSession::signIn(const QString& server, const QString& token)
{
    if (!m_project) {
        return tr("Open a project first.");
    }
    if (token.isEmpty()) {
        return tr("Enter the token that the server has given you.");
    }
    if (!SetServerIP(server.trimmed().toUtf8())) {
        return tr("Enter the server's address, as in https://fly.example.");
    }
    SKvUserInfo user;
    user.m_strToken = token;
    if (!SetCurUserInfo(user)) {
        return tr("The token holds characters that cannot be sent. Copy it again.");
    }
    m_uploader.start();
    return {};
}

DownloadWorker* WindowSession::downloader(FileDownload::Way way)
{
    return way == FileDownload::Way::Direct ? m_directDownload : m_programDownload;
}
