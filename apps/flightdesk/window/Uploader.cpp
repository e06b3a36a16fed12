// SPDX-License-Identifier: MIT
#include "Uploader.h"

#include <KvLog.h>

#include <QtCore/QLocale>
#include <QtCore/QTimer>

namespace
{
constexpr int ResumeGrace = 2000; // milliseconds
}

Uploader::Uploader(const MissionModel& missions, const LogFeed& log, QObject* parent)
    : QObject(parent), m_missions(missions)
{
    m_clock.start();
    connect(&log, &LogFeed::line, this, &Uploader::readLine);
}

void Uploader::start()
{
    stop();
    m_supervisor = std::make_unique<UploadSupervisor>(m_interval);
    connect(m_supervisor.get(), &UploadSupervisor::rearmed, this, &Uploader::noteRearmed);
    connect(m_supervisor.get(), &UploadSupervisor::unmarkable, this, &Uploader::noteUnmarkable);
    m_operator = new OperatorThread(m_interval, m_easyFly, this);
    m_supervisor->connectTo(m_operator->link());
    connect(m_operator, &OperatorThread::ready, this, &Uploader::arm);
    connect(m_operator, &OperatorThread::batch, this, &Uploader::noteBatch);
    m_operator->start();
    setState(State::Running);
}

/// The operator has looked through the project's files, which may have taken a while.
void Uploader::arm()
{
    m_current = {};
    m_supervisor->noteSignOfLife(m_clock.elapsed());
    pointAtMission(m_missions.totals(m_easyFly));
    emit m_operator->link().checkNewData();
    if (m_state == State::Paused) {
        emit m_operator->link().startUploadTimer(false);
    }
}

void Uploader::stop()
{
    if (m_operator) {
        m_operator->disconnect(this);
        m_operator->retire();
        m_operator.clear();
    }
    m_supervisor.reset();
    m_pipeline.clear();
    setState(State::Off);
}

void Uploader::leaveProject()
{
    stop();
    m_looked = false;
}

void Uploader::pause()
{
    if (m_state == State::Running) {
        emit m_operator->link().startUploadTimer(false);
        setState(State::Paused);
    }
}

/// The pause has closed the file, and the file's name alone does not open it again. A request that was in
/// flight may still come back and go on by itself; only when nothing moves is the timer started as well.
void Uploader::resume()
{
    if (m_state != State::Paused) {
        return;
    }
    const QString inFlight = m_missions.fileOf(m_pipeline.mission());
    emit m_operator->link().missionFile(inFlight.isEmpty() ? m_missions.totals(m_easyFly).file : inFlight);
    emit m_operator->link().startUploadTimer(true);
    m_moved = false;
    m_supervisor->noteSignOfLife(m_clock.elapsed());
    QTimer::singleShot(ResumeGrace, this, &Uploader::goOnUnlessMoved);
    setState(State::Running);
}

void Uploader::goOnUnlessMoved()
{
    if (m_state == State::Running && !m_moved) {
        emit m_operator->link().checkNewData();
    }
}

void Uploader::reset()
{
    if (m_operator) {
        emit m_operator->link().resetUploadFlow();
    }
}

void Uploader::setInterval(int milliseconds)
{
    m_interval = milliseconds;
    if (m_operator) {
        m_operator->setInterval(milliseconds);
    }
}

void Uploader::setEasyFly(bool easyFly)
{
    m_easyFly = easyFly;
    if (m_state == State::Running) {
        start();
    } else if (m_state == State::Paused) {
        start();
        pause();
    }
}

/// An operator goes through flight missions by itself; of the video missions it is told one, and the next
/// when nothing of that waits any more.
void Uploader::pointAtMission(const ProjectTotals& totals)
{
    if (m_easyFly && (totals.file != m_current.file || totals.mission != m_current.mission)) {
        emit m_operator->link().missionFile(totals.file);
        emit m_operator->link().missionId(totals.mission);
        m_current = totals;
    }
}

void Uploader::look(bool network)
{
    m_network = network;
    m_looked = true;
    const ProjectTotals totals = m_missions.totals(m_easyFly);
    if (totals.marked > m_marked) {
        m_pipeline.noteMarked();
    }
    if (m_supervisor && totals.marked != m_marked) {
        m_supervisor->noteSignOfLife(m_clock.elapsed());
    }
    m_marked = totals.marked;
    if (m_state == State::Running) {
        pointAtMission(totals);
        m_supervisor->look(m_clock.elapsed(), totals.file, network);
    }
    emit changed();
}

void Uploader::readLine(const QString& line)
{
    if (!m_operator || !m_pipeline.readLine(line, m_clock.elapsed())) {
        return;
    }
    m_moved = true;
    if (const auto trouble = m_pipeline.trouble()) {
        m_supervisor->noteSignOfLife(m_clock.elapsed());
        if (trouble->tokenRejected) {
            stop();
            setState(State::TokenRejected);
            emit tokenRejected();
        } else if (m_state == State::Paused) {
            // A failure starts the operator's timer again, and its ticks get through.
            emit m_operator->link().startUploadTimer(false);
        }
    }
    emit changed();
}

void Uploader::noteBatch(const QString&, const QString& mission)
{
    m_moved = true;
    m_supervisor->noteBatch(mission);
    m_pipeline.noteBatch(mission);
    emit changed();
}

void Uploader::noteRearmed(const QString& file)
{
    const QString text = tr("nothing was accepted for %1 s: upload started again with %2")
                             .arg(m_supervisor->quietTime() / 1000)
                             .arg(file);
    Logger::instance().write(Level::Warn, text);
    emit note(text);
}

void Uploader::noteUnmarkable(const QString& mission)
{
    const QString text = tr("accepted rows cannot be marked in %1: make the file and its folder writable")
                             .arg(m_missions.fileOf(mission));
    Logger::instance().write(Level::Warn, text);
    emit note(text);
}

void Uploader::setState(State state)
{
    m_state = state;
    emit changed();
}

QString Uploader::text() const
{
    const ProjectTotals totals = m_missions.totals(m_easyFly);
    const QString waiting = tr("%1 rows wait.").arg(QLocale().toString(totals.waiting));
    switch (m_state) {
    case State::Off:
        return tr("Not signed in. ") + waiting;
    case State::TokenRejected:
        return tr("The server rejected the token. Enter a new one and sign in; the upload goes on then.");
    case State::Paused:
        return tr("Paused. ") + waiting;
    case State::Running:
        break;
    }
    if (!m_looked) {
        return tr("Looking through the project's files.");
    }
    if (totals.waiting == 0) {
        return tr("Everything is uploaded.");
    }
    if (!m_network) {
        return tr("No network. ") + waiting;
    }
    if (totals.file.isEmpty()) {
        return tr("%1 The rest cannot be sent: a mission row is missing, or a file is read-only.")
            .arg(waiting);
    }
    const QString doing = m_pipeline.text(
        m_clock.elapsed(), m_interval, [this](const QString& mission) { return m_missions.nameOf(mission); });
    return doing.isEmpty() ? tr("Waiting for the next round. ") + waiting : doing;
}
