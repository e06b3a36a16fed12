// SPDX-License-Identifier: MIT
#include "upload/Uploader.h"

#include "operator/OperatorThread.h"

#include <QtCore/QFileInfo>
#include <QtCore/QTimer>

#include <utility>

namespace
{
constexpr int ResumeGrace = 2000; // milliseconds
constexpr int Round = 3000;       // from one round through the files to the next, as the library has it
constexpr int AtOnce = 10;
constexpr qint64 UnmarkablePause = 600000;

QString whyNotMarkable(const QString& file)
{
    const QString known = obstacleWords(MissionFile::markObstacle(file));
    return known.isEmpty() ? QStringLiteral("is it locked by another program, or the disk's quota used up?")
                           : known;
}
} // namespace

Uploader::Uploader(const LogFeed& log, QObject* parent) : QObject(parent), m_log(log)
{
    m_clock.start();
    const QString file = m_folder.filePath(QStringLiteral("nothing") + MissionFormat::flight().suffix);
    if (CreateMissionFile(file)) {
        m_emptyFile = file;
    }
    connect(&m_log, &OperatorLog::requestBegan, this, &Uploader::noteBegan);
    connect(&m_log, &OperatorLog::requestFailed, this, &Uploader::noteFailed);
    connect(&m_log, &OperatorLog::missionAccepted, this, [this] { m_trouble.reset(); });
}

void Uploader::start()
{
    stop();
    m_supervisor = std::make_unique<UploadSupervisor>(m_interval);
    m_operator = new OperatorThread(m_interval, m_easyFly, this);
    m_supervisor->connectTo(m_operator->link());
    connect(m_supervisor.get(), &UploadSupervisor::rearmed, this, &Uploader::noteRearmed);
    connect(m_supervisor.get(), &UploadSupervisor::unmarkable, this, &Uploader::noteUnmarkable);
    connect(m_operator, &OperatorThread::ready, this, &Uploader::begin);
    connect(m_operator, &OperatorThread::batch, this, &Uploader::noteBatch);
    connect(m_operator, &OperatorThread::passEnded, this, &Uploader::notePassEnded);
    m_operator->start();
    setState(State::Running);
}

/// What an operator that was given up said last may still come, and is not this one's.
bool Uploader::isFromOther() const
{
    return sender() != m_operator;
}

void Uploader::begin()
{
    if (isFromOther()) {
        return;
    }
    m_supervisor->noteSignOfLife(m_clock.elapsed());
    m_place = Place::Nowhere;
    if (m_state == State::Running) {
        goOn();
    }
    Q_EMIT ready();
}

void Uploader::stop()
{
    if (m_operator) {
        m_operator->disconnect(this);
        m_operator->retire();
        m_operator.clear();
    }
    m_supervisor.reset();
    m_pipeline = {};
    m_backlog = {};
    m_failures = 0;
    m_unmarkable.clear();
    m_trouble.reset();
    m_place = Place::NotReady;
    m_current = {};
    setState(State::Off);
}

void Uploader::giveUpToken()
{
    stop();
    setState(State::TokenRejected);
}

/// On to the next file with rows that can be sent.
void Uploader::goOn()
{
    const WaitingRows next = m_backlog.after(m_current, m_easyFly);
    const bool newRound = next.file <= m_current.file;
    const int delay = m_failures > 0 ? m_interval : newRound ? Round : AtOnce;
    m_failures = 0;
    m_place = next.file.isEmpty() ? Place::Nowhere : Place::WaitingFile;
    if (m_place == Place::WaitingFile) {
        m_current = next;
        if (m_easyFly) {
            Q_EMIT m_operator->link().missionId(next.mission);
        }
        point(next.file, delay);
    }
}

/// On to the next file when the operator may not be done with this one. In easy-fly mode it knows one mission
/// at a time, and has no queue of them.
void Uploader::leave()
{
    if (m_easyFly || m_emptyFile.isEmpty()) {
        goOn();
        return;
    }
    m_place = Place::EmptyFile;
    point(m_emptyFile, AtOnce);
}

void Uploader::point(const QString& file, int delay)
{
    m_firstRow.clear();
    m_operator->setInterval(delay);
    m_supervisor->arm(file);
    m_operator->setInterval(m_interval);
}

void Uploader::notePassEnded()
{
    if (isFromOther()) {
        return;
    }
    m_place = Place::Nowhere;
    if (m_state == State::Running) {
        goOn();
    }
}

void Uploader::pause()
{
    if (m_state == State::Running) {
        Q_EMIT m_operator->link().startUploadTimer(false);
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
    setState(State::Running);
    m_firstRow.clear();
    m_supervisor->noteSignOfLife(m_clock.elapsed());
    if (m_place == Place::NotReady) {
        return;
    }
    if (m_place != Place::WaitingFile) {
        leave();
        return;
    }
    Q_EMIT m_operator->link().missionFile(m_current.file);
    Q_EMIT m_operator->link().startUploadTimer(true);
    m_moved = false;
    QTimer::singleShot(ResumeGrace, this, [this] {
        if (m_state == State::Running && !m_moved) {
            Q_EMIT m_operator->link().checkNewData();
        }
    });
}

void Uploader::reset()
{
    m_firstRow.clear();
    m_unmarkable.clear();
    if (m_operator) {
        Q_EMIT m_operator->link().resetUploadFlow();
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

void Uploader::look(const Backlog& backlog, bool network)
{
    const qint64 accepted = backlog.settled - m_backlog.settled;
    forgetExplained(backlog);
    m_backlog = withoutUnmarkable(backlog);
    if (accepted > 0) {
        m_pipeline.noteMarked();
        m_trouble.reset();
    }
    if (m_supervisor && accepted != 0) {
        m_supervisor->noteSignOfLife(m_clock.elapsed());
    }
    if (m_state == State::Running && m_place == Place::WaitingFile && !QFileInfo::exists(m_current.file)) {
        startOver();
        m_backlog = withoutUnmarkable(backlog);
    }
    if (m_state == State::Running && m_place != Place::NotReady) {
        const bool done = m_easyFly && !m_backlog.holds(m_current);
        if (m_place == Place::Nowhere || done) {
            goOn();
        }
        m_supervisor->look(m_clock.elapsed(), m_backlog.after(m_current, m_easyFly).file, network);
    }
    Q_EMIT changed();
}

/// Without the file that was pointed at, which was discarded: the operator would rest there until the
/// supervisor finds it. What was in flight is not for the next file, so that takes another operator.
void Uploader::startOver()
{
    const auto trouble = m_trouble;
    const auto unmarkable = m_unmarkable;
    start();
    m_trouble = trouble;
    m_unmarkable = unmarkable;
}

void Uploader::noteBegan(OperatorLog::Rows rows, const QString& mission)
{
    if (m_operator) {
        m_moved = true;
        m_pipeline.noteBegan(rows, mission);
        Q_EMIT changed();
    }
}

void Uploader::noteBatch(const QString& mission, const QString& firstRow)
{
    if (isFromOther()) {
        return;
    }
    m_moved = true;
    if (!firstRow.isEmpty() && std::exchange(m_firstRow, firstRow) == firstRow) {
        leaveUnmarkable();
        return;
    }
    m_supervisor->noteBatch(mission);
    m_pipeline.noteBatch(mission);
    Q_EMIT changed();
}

void Uploader::noteFailed(const RequestFailure& failure)
{
    if (!m_operator) {
        return;
    }
    m_moved = true;
    m_pipeline.noteFailed(failure, m_clock.elapsed());
    m_trouble = UploadTrouble{failure, m_trouble ? m_trouble->since : QDateTime::currentDateTime()};
    m_supervisor->noteSignOfLife(m_clock.elapsed());
    ++m_failures;
    m_firstRow.clear();
    if (m_state == State::Paused) {
        // A failure starts the operator's timer again, and its ticks get through.
        Q_EMIT m_operator->link().startUploadTimer(false);
    }
    if (isTimeToLeave()) {
        leave();
    }
    Q_EMIT changed();
    Q_EMIT failed(failure);
}

/// A failure takes one mission off the operator's queue, which began with all of the file.
bool Uploader::isTimeToLeave() const
{
    const WaitingRows next = m_backlog.after(m_current, m_easyFly);
    return m_state == State::Running && m_place == Place::WaitingFile &&
           (m_easyFly ? next.file != m_current.file || next.mission != m_current.mission
                      : next.file != m_current.file && m_failures >= m_backlog.missionsIn(m_current.file));
}

void Uploader::noteRearmed()
{
    const QString text = QStringLiteral("nothing was accepted for %1 s: upload started again with %2")
                             .arg(m_supervisor->quietTime() / 1000)
                             .arg(m_backlog.after(m_current, m_easyFly).file);
    Logger::instance().write(Level::Info, text);
    leave();
    Q_EMIT rearmed(text);
}

void Uploader::noteUnmarkable(const QString& mission)
{
    const QString file = m_current.file;
    WaitingRows batches;
    batches.file = file;
    batches.mission = mission;
    if (MissionFile(file).waiting(mission) < m_backlog.waiting(batches)) {
        return; // marks that nobody had counted yet
    }
    leaveUnmarkable();
}

/// The file is closed: the batch in flight comes back to that, and the operator to rest, from which the
/// supervisor leads it to the next file. To point it there at once would have the reply mark rows there.
void Uploader::leaveUnmarkable()
{
    const QString file = m_current.file;
    m_firstRow.clear();
    Q_EMIT m_operator->link().startUploadTimer(false);
    const QString words = troubleWords(Trouble::NotMarkable, {file, whyNotMarkable(file)});
    Logger::instance().write(Level::Info, words);
    m_unmarkable.insert(file, m_clock.elapsed() + UnmarkablePause);
    m_backlog = withoutUnmarkable(m_backlog);
    Q_EMIT unmarkable(file, words);
}

/// A file whose obstacle is seen is to be sent as soon as that is gone.
void Uploader::forgetExplained(const Backlog& backlog)
{
    for (const WaitingRows& rows : backlog.rows) {
        if (rows.obstacle == Obstacle::DiskFull || rows.obstacle == Obstacle::NotMarkable) {
            m_unmarkable.remove(rows.file);
        }
    }
}

/// What was accepted would be sent again and again.
Backlog Uploader::withoutUnmarkable(Backlog backlog)
{
    for (WaitingRows& rows : backlog.rows) {
        const auto until = m_unmarkable.constFind(rows.file);
        if (until != m_unmarkable.constEnd() && m_clock.elapsed() < *until &&
            rows.obstacle == Obstacle::None) {
            rows.obstacle = Obstacle::NotMarkable;
        }
    }
    return backlog;
}

void Uploader::setState(State state)
{
    m_state = state;
    Q_EMIT changed();
}

QString Uploader::text(const std::function<QString(const QString& mission)>& name) const
{
    return m_pipeline.text(m_clock.elapsed(), m_interval, name);
}
