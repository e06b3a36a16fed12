// SPDX-License-Identifier: MIT
#include "window/WindowSession.h"

#include "words/Failure.h"

#include <KvAlgorthm.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QLocale>

WindowSession::WindowSession() : m_breakpoints(m_feed), m_uploader(m_feed)
{
    qRegisterMetaType<QVector<MissionsOfFile>>();
    connect(&m_feed, &LogFeed::line, &m_log, &LogModel::append);
    connect(&m_recorders, &RecorderPool::started, &m_flights, &FlightModel::noteStarted);
    connect(&m_recorders, &RecorderPool::progress, &m_flights, &FlightModel::setProgress);
    connect(&m_recorders, &RecorderPool::sampled, &m_flights, &FlightModel::addSamples);
    connect(&m_recorders, &RecorderPool::sampled, this, &WindowSession::sampled);
    connect(&m_recorders, &RecorderPool::found, this, &WindowSession::record);
    connect(&m_recorders, &RecorderPool::finished, &m_flights, &FlightModel::finish);
    connect(&m_recorders, &RecorderPool::finished, this, &WindowSession::sampled);
    connect(&m_recorders, &RecorderPool::finished, &m_breakpoints,
            [this](int, const RecordedFlight& flight) { m_breakpoints.noteRecorded(flight); });
    connect(&m_breakpoints, &BreakpointKeeper::storeAgain, this,
            [this](const RecordedFlight& flight) { m_recorders.storeBreakpoint(*m_project, flight); });
    connect(&m_uploader, &Uploader::failed, this, [this](const RequestFailure& failure) {
        if (failure.tokenRejected) {
            m_uploader.giveUpToken();
            Q_EMIT tokenRejected();
        }
    });
    followStation();
    m_downloadThread.start();
}

WindowSession::~WindowSession()
{
    stopWatch();
    m_downloadThread.quit();
    m_downloadThread.wait();
}

void WindowSession::followStation()
{
    connect(&m_station, &LiveStation::looked, &m_flights, &FlightModel::noteVehicles);
    connect(&m_station, &LiveStation::sampled, this, [this](const QVector<VehicleSamples>& vehicles) {
        for (const VehicleSamples& vehicle : vehicles) {
            m_flights.addVehicleSamples(vehicle);
            Q_EMIT sampled(FlightModel::numberOf(vehicle.link, vehicle.system));
        }
    });
    connect(&m_station, &LiveStation::ended, this, [this](const RecordedFlight& flight) {
        m_flights.noteEnded(flight);
        m_breakpoints.noteRecorded(flight);
    });
    connect(&m_station, &LiveStation::changed, this, [this] {
        if (m_station.state() == LiveStation::State::Off) {
            m_flights.removeVehicles();
        }
    });
}

void WindowSession::openProject(const QString& path, bool make)
{
    if (m_recorders.isBusy()) {
        throw Failure(tr("Flights are being recorded. Cancel them, or wait until they are done."));
    }
    if (m_station.state() != LiveStation::State::Off) {
        throw Failure(tr("Vehicles are being recorded. Disconnect first."));
    }
    const Project project = make ? Project::make(path) : Project::open(path);
    m_uploader.stop();
    m_looked = false;
    stopWatch();
    QCoreApplication::removePostedEvents(&m_missions); // the old project's missions, still on their way
    m_project = project;
    m_missions.clear();
    startWatch();
    Q_EMIT projectOpened();
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
        m_looked = true;
        m_uploader.look(m_missions.backlog(m_uploader.isEasyFly()), network);
        Q_EMIT looked();
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

void WindowSession::connectLinks(const QStringList& links, bool heartbeat)
{
    m_station.begin(*m_project, links, heartbeat);
}

void WindowSession::signIn(const QString& server, const QString& token)
{
    if (!m_project) {
        throw Failure(tr("Open a project first."));
    }
    if (token.isEmpty()) {
        throw Failure(tr("Enter the token that the server has given you."));
    }
    if (!SetServerIP(server.trimmed().toUtf8())) {
        throw Failure(tr("Enter the server's address, as in https://fly.example."));
    }
    SKvUserInfo user;
    user.m_strToken = token;
    if (!SetCurUserInfo(user)) {
        throw Failure(tr("The token holds characters that cannot be sent. Copy it again."));
    }
    m_uploader.start();
}

QString WindowSession::uploadText() const
{
    const Backlog backlog = m_missions.backlog(m_uploader.isEasyFly());
    const int hidden = backlog.unreadable.size();
    const QString unread =
        hidden > 0 ? tr(" %1 files cannot be read: what waits in them is not sent.").arg(hidden) : QString();
    const QString waiting = tr("%1 rows wait.").arg(QLocale().toString(backlog.waiting())) + unread;
    switch (m_uploader.state()) {
    case Uploader::State::Off:
        return tr("Not signed in. ") + waiting;
    case Uploader::State::TokenRejected:
        return tr("The server rejected the token. Enter a new one and sign in; the upload goes on then.");
    case Uploader::State::Paused:
        return tr("Paused. ") + waiting;
    case Uploader::State::Running:
        break;
    }
    if (!m_looked) {
        return tr("Looking through the project's files.");
    }
    if (backlog.rows.isEmpty()) {
        return hidden > 0 ? waiting : tr("Everything is uploaded.");
    }
    if (!m_network) {
        return tr("No network. ") + waiting;
    }
    if (backlog.sendable() == 0) {
        return tr("%1 The rest cannot be sent: a mission row is missing, or a file is read-only.")
            .arg(waiting);
    }
    const QString doing =
        m_uploader.text([this](const QString& mission) { return m_missions.nameOf(mission); });
    return doing.isEmpty() ? tr("Waiting for the next round. ") + waiting : doing + unread;
}

FileDownload* WindowSession::makeDownload(FileDownload::Way way)
{
    FileDownload* const download = FileDownload::make(way, m_feed).release();
    download->moveToThread(&m_downloadThread);
    connect(download, &FileDownload::ended, download, &QObject::deleteLater);
    connect(&m_downloadThread, &QThread::finished, download, &QObject::deleteLater);
    return download;
}
