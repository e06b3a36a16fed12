// SPDX-License-Identifier: MIT
#include "window/WindowSession.h"

#include "operator/ServerAddress.h"
#include "words/Failure.h"

#include <KvAlgorthm.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QLocale>
#include <QtCore/QScopeGuard>

#include <algorithm>

WindowSession::WindowSession() : m_breakpoints(m_feed), m_uploader(m_feed)
{
    qRegisterMetaType<QVector<MissionsOfFile>>();
    m_clock.start();
    connect(&m_feed, &LogFeed::line, &m_log, &LogModel::append);
    connect(&m_reader, &FlightReader::figured, &m_missions, &MissionModel::setFigures);
    follow();
    followUpload();
    followStation();
    m_downloadThread.start();
}

void WindowSession::follow()
{
    connect(&m_recorders, &RecorderPool::started, &m_flights, &FlightModel::noteStarted);
    connect(&m_recorders, &RecorderPool::progress, &m_flights, &FlightModel::setProgress);
    connect(&m_recorders, &RecorderPool::sampled, &m_flights, &FlightModel::addSamples);
    connect(&m_recorders, &RecorderPool::sampled, this, &WindowSession::sampled);
    connect(&m_recorders, &RecorderPool::found, this, &WindowSession::record);
    connect(&m_recorders, &RecorderPool::finished, this, &WindowSession::noteFinished);
    connect(&m_breakpoints, &BreakpointKeeper::storeAgain, this,
            [this](const RecordedFlight& flight) { m_recorders.storeBreakpoint(*m_project, flight); });
}

void WindowSession::followUpload()
{
    connect(&m_uploader, &Uploader::failed, this, [this](const RequestFailure& failure) {
        if (failure.tokenRejected) {
            m_uploader.giveUpToken();
            m_log.note(tr("The server rejected the token."), int(Level::Error));
            Q_EMIT tokenRejected();
        }
        noteTrouble();
    });
    connect(
        &m_uploader, &Uploader::changed, this,
        [this] {
            if (m_lock && !isUploading()) {
                m_lock->release(); // only who uploads keeps others from it
            }
        },
        Qt::QueuedConnection); // it is off for a moment whenever it begins anew
}

void WindowSession::noteFinished(int flight, const RecordedFlight& result)
{
    RecordedFlight told = result;
    if (m_unwanted.remove(flight)) {
        told.error = discard(result.file);
        told.interruption.reset();
    } else {
        m_breakpoints.noteRecorded(result);
    }
    if (result.isKnown) {
        told.error = tr("in this project already, not recorded again");
    }
    const FlightTask task = m_tasks.take(flight);
    m_flights.finish(flight, told);
    if (result.isKnown) {
        Q_EMIT knownLogFound(task);
    }
    m_log.note(tr("%1: %2").arg(told.name, told.error.isEmpty() ? tr("recorded") : told.error),
               int(told.error.isEmpty() ? Level::Info : Level::Warn));
    Q_EMIT sampled(flight);
}

/// \return what became of the flight
QString WindowSession::discard(const QString& file)
{
    const qint64 sent = m_missions.acceptedOf(file);
    if (!file.isEmpty()) {
        m_project->removeMissionFile(file);
    }
    return sent == 0 ? tr("discarded")
                     : tr("discarded here; the server has %1 records of it").arg(QLocale().toString(sent));
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
        throw Failure(tr("Flights are being recorded. Stop them, or wait until they are done."));
    }
    if (m_station.state() != LiveStation::State::Off) {
        throw Failure(tr("Vehicles are being recorded. Disconnect first."));
    }
    const Project project = make ? Project::make(path) : Project::open(path);
    m_uploader.stop();
    m_server.clear();
    m_settled.clear();
    m_looked = false;
    stopWatch();
    QCoreApplication::removePostedEvents(&m_missions); // the old project's missions, still on their way
    m_reader.forget();
    m_project = project;
    m_lock = std::make_unique<ProjectLock>(project, ProjectLock::Use::Uploading);
    m_otherUploads = m_lock->holder();
    m_missions.clear();
    m_flights.clear();
    startWatch();
    m_log.note(tr("Opened %1").arg(m_project->path()), int(Level::Info));
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
    connect(watch, &MissionWatch::looked, this, &WindowSession::noteLooked);
    m_watchThread.start();
}

void WindowSession::noteLooked(bool network)
{
    m_network = network;
    m_looked = true;
    m_otherUploads = m_lock->holder();
    const Backlog backlog = m_missions.backlog(m_uploader.isEasyFly());
    m_uploader.look(backlog, network);
    notePace(backlog);
    m_missions.setUploading(m_uploader.mission());
    const QVector<MissionRecord> unfigured = m_missions.takeUnfigured();
    for (const MissionRecord& mission : unfigured) {
        m_reader.figure(mission.file, mission.id);
    }
    Q_EMIT looked();
}

/// How fast rows are accepted, and what the log says of it.
void WindowSession::notePace(const Backlog& backlog)
{
    constexpr int Looks = 15;
    m_settled.enqueue({m_clock.elapsed(), backlog.settled});
    if (m_settled.size() > Looks) {
        m_settled.dequeue();
    }
    if (m_settled.size() < 2) {
        m_told = backlog.settled;
        return;
    }
    constexpr int TellInterval = 60000; // milliseconds
    const bool done = backlog.sendable() == 0 || m_uploader.trouble().has_value();
    if (backlog.settled > m_told && (done || m_clock.elapsed() - m_toldAt > TellInterval)) {
        m_toldAt = m_clock.elapsed();
        m_log.note(tr("%1 records were sent and accepted.").arg(QLocale().toString(backlog.settled - m_told)),
                   int(Level::Info));
        m_told = backlog.settled;
    }
    noteTrouble();
}

void WindowSession::noteTrouble()
{
    const auto& trouble = m_uploader.trouble();
    const QString words = trouble ? trouble->failure.headline : QString();
    if (words != m_trouble) {
        m_log.note(words.isEmpty() ? tr("The server accepts records again.") : tr("Not sent: %1").arg(words),
                   int(words.isEmpty() ? Level::Info : Level::Warn));
        m_trouble = words;
    }
}

/// "1,200 a second, about 32 s left."
QString WindowSession::paceText(const Backlog& backlog) const
{
    if (m_settled.size() < 2) {
        return {};
    }
    const double seconds = double(m_settled.last().first - m_settled.head().first) / 1000;
    const double pace = double(m_settled.last().second - m_settled.head().second) / std::max(seconds, 0.1);
    if (pace < 1) {
        return {};
    }
    return tr(" %1 a second, about %2 left.")
        .arg(QLocale().toString(qint64(pace)),
             MissionModel::ageText(qint64(double(backlog.sendable()) / pace) + 1));
}

QString WindowSession::troubleText(const UploadTrouble& trouble, const QString& records) const
{
    const qint64 seconds = trouble.since.secsTo(QDateTime::currentDateTime());
    const int left = m_uploader.secondsToTry();
    const QString again = left > 0 ? tr("Trying again in %1 s.").arg(left) : tr("Trying again now.");
    return tr("%1 since %2 (%3). %4 records are safe here. %5 %6")
        .arg(trouble.failure.headline, trouble.since.toString(QStringLiteral("hh:mm")),
             MissionModel::ageText(seconds), records, trouble.failure.todo, again);
}

QString WindowSession::noticeText() const
{
    QStringList notices;
    if (m_project) {
        notices = QStringList{m_project->readOnlyWords(), m_otherUploads};
        notices.removeAll({});
    }
    return notices.join(QLatin1Char('\n'));
}

void WindowSession::stopWatch()
{
    m_watchThread.requestInterruption();
    m_watchThread.quit();
    m_watchThread.wait();
}

void WindowSession::record(const FlightTask& task)
{
    const int flight = m_recorders.record(*m_project, task);
    m_tasks.insert(flight, task);
    m_flights.add(flight, task.name);
}

void WindowSession::stopRecording(int row, bool keep)
{
    const int flight = m_flights.flightAt(row);
    if (!keep) {
        m_unwanted.insert(flight);
    }
    m_recorders.cancel(flight);
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
    if (!m_project->readOnlyWords().isEmpty()) {
        throw Failure(m_project->readOnlyWords());
    }
    if (token.isEmpty()) {
        throw Failure(tr("Enter the token that the server has given you."));
    }
    if (server.trimmed().isEmpty()) {
        throw Failure(tr("Enter the server's address, as in https://fly.example."));
    }
    m_otherUploads = m_lock->take();
    if (!m_otherUploads.isEmpty()) {
        throw Failure(m_otherUploads);
    }
    const auto release = qScopeGuard([this] { isUploading() ? (void)0 : m_lock->release(); });
    setServerAddress(server);
    SKvUserInfo user;
    user.m_strToken = token;
    if (!SetCurUserInfo(user)) {
        throw Failure(tr("The token holds characters that cannot be sent. Copy it again."));
    }
    m_server = server.trimmed();
    m_log.note(tr("Signed in to %1").arg(m_server), int(Level::Info));
    m_trouble.clear();
    m_uploader.start();
}

QString WindowSession::uploadText() const
{
    const Backlog backlog = m_missions.backlog(m_uploader.isEasyFly());
    const int hidden = backlog.unreadable.size();
    const QString unread = hidden == 0 ? QString()
                           : hidden == 1
                               ? tr(" One file cannot be read: what waits in it is not sent.")
                               : tr(" %1 files cannot be read: what waits in them is not sent.").arg(hidden);
    const QString records = QLocale().toString(backlog.waiting());
    const QString waiting = tr("%1 records wait.").arg(records) + unread;
    const QString looking = tr("Looking through the project's files.");
    switch (m_uploader.state()) {
    case Uploader::State::Off:
        return tr("Not signed in. ") + (m_looked ? waiting : looking);
    case Uploader::State::TokenRejected:
        return tr("The server rejected the token. Enter a new one and sign in; the upload goes on then.");
    case Uploader::State::Paused:
        return tr("Paused. ") + waiting;
    case Uploader::State::Running:
        break;
    }
    if (!m_looked) {
        return looking;
    }
    if (backlog.rows.isEmpty()) {
        return hidden > 0 ? waiting : tr("Everything is uploaded.");
    }
    if (!m_network) {
        return tr("No network. ") + waiting;
    }
    if (backlog.sendable() == 0) {
        return tr("%1 They cannot be sent: %2.").arg(waiting, backlog.obstacles().join(tr("; ")));
    }
    if (const auto& trouble = m_uploader.trouble()) {
        return troubleText(*trouble, records) + unread;
    }
    const QString doing =
        m_uploader.text([this](const QString& mission) { return m_missions.nameOf(mission); });
    return (doing.isEmpty() ? tr("Waiting for the next round.") : doing) + QLatin1Char(' ') + waiting +
           paceText(backlog);
}

FileDownload* WindowSession::makeDownload(FileDownload::Way way)
{
    FileDownload* const download = FileDownload::make(way, m_feed).release();
    download->moveToThread(&m_downloadThread);
    connect(download, &FileDownload::ended, download, &QObject::deleteLater);
    connect(&m_downloadThread, &QThread::finished, download, &QObject::deleteLater);
    return download;
}
