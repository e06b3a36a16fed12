// SPDX-License-Identifier: MIT
#include "UploadSession.h"

#include <KvData.h>

namespace
{
constexpr int LookInterval = 500; // milliseconds
constexpr int RejectionsToEnd = 2;

bool isNetworkThere()
{
    return CKvControl::GetInstance(false, EPlaneType::Multirotor)->IsNetWorkConnected();
}
} // namespace

UploadSession::UploadSession(const Project& project, const Options& options, const LogFeed& log,
                             QObject* parent)
    : QObject(parent)
    , m_options(options)
    , m_backlog(project, options.easyFly ? MissionFormat::video() : MissionFormat::flight())
    , m_supervisor(options.interval)
{
    connect(&log, &LogFeed::line, this, &UploadSession::readLogLine);
    connect(&m_supervisor, &UploadSupervisor::rearmed, this, &UploadSession::noteRearmed);
    connect(&m_supervisor, &UploadSupervisor::unmarkable, this, &UploadSession::noteUnmarkable);
    connect(&m_lookTimer, &QTimer::timeout, this, &UploadSession::look);
}

void UploadSession::start()
{
    m_clock.start();
    m_backlog.countAll();
    emit progress(0, m_backlog.waiting());
    if (m_backlog.sendable() == 0) {
        QTimer::singleShot(0, this, &UploadSession::finish);
        return;
    }
    m_operator = std::make_unique<OperatorThread>(m_options.interval, m_options.easyFly);
    m_supervisor.connectTo(m_operator->link());
    connect(m_operator.get(), &OperatorThread::ready, this, &UploadSession::begin);
    connect(m_operator.get(), &OperatorThread::batch, this, &UploadSession::noteBatch);
    m_operator->start();
}

/// The operator has looked through the project's files, which may have taken a while.
void UploadSession::begin()
{
    m_lastAccepted = m_clock.elapsed();
    m_supervisor.noteSignOfLife(m_lastAccepted);
    pointAtMission();
    emit m_operator->link().checkNewData();
    m_lookTimer.start(LookInterval);
}

/// A flight mission's operator goes through the project itself; a video mission's knows the mission that it
/// is told, and is told the next one when nothing of that waits any more.
void UploadSession::pointAtMission()
{
    const WaitingRows next = m_backlog.firstSendable();
    if (!m_options.easyFly || (next.file == m_current.file && next.mission == m_current.mission)) {
        return;
    }
    m_current = next;
    emit m_operator->link().missionFile(next.file);
    emit m_operator->link().missionId(next.mission);
}

void UploadSession::readLogLine(const QString& line)
{
    const auto trouble = UploadTrouble::in(line);
    if (!trouble) {
        return;
    }
    if (!m_trouble || m_trouble->words != trouble->words) {
        emit note(trouble->words);
    }
    m_trouble = trouble;
    m_rejections += trouble->tokenRejected ? 1 : 0;
    m_supervisor.noteSignOfLife(m_clock.elapsed());
}

void UploadSession::noteBatch(const QString&, const QString& mission)
{
    m_supervisor.noteBatch(mission);
}

void UploadSession::look()
{
    m_backlog.recount();
    noteSettled();
    if (m_backlog.sendable() == 0 || isLost()) {
        // Only a full count knows what has been recorded meanwhile.
        m_backlog.countAll();
        noteSettled();
        if (m_backlog.sendable() == 0 || isLost()) {
            finish();
            return;
        }
    }
    pointAtMission();
    m_supervisor.look(m_clock.elapsed(), m_backlog.firstSendable().file, isNetworkThere());
}

void UploadSession::noteSettled()
{
    if (m_backlog.settled() == m_settled) {
        return;
    }
    m_settled = m_backlog.settled();
    m_lastAccepted = m_clock.elapsed();
    m_rejections = 0;
    m_trouble.reset();
    m_supervisor.noteSignOfLife(m_lastAccepted);
    emit progress(m_settled, m_settled + m_backlog.waiting());
}

bool UploadSession::isLost()
{
    return m_rejections >= RejectionsToEnd || m_clock.elapsed() - m_lastAccepted >= m_options.patience;
}

void UploadSession::finish()
{
    m_lookTimer.stop();
    m_operator.reset();
    m_backlog.countAll();
    m_result.accepted = m_backlog.settled();
    m_result.waiting = m_backlog.rows();
    m_result.unreadable = m_backlog.unreadable();
    m_result.done = m_result.waiting.isEmpty() && m_result.unreadable.isEmpty();
    m_result.reason = m_result.done ? QString() : reason();
    emit finished();
}

void UploadSession::noteRearmed(const QString& file)
{
    const QString text = QStringLiteral("nothing was accepted for %1 s: upload started again with %2")
                             .arg(m_supervisor.quietTime() / 1000)
                             .arg(file);
    Logger::instance().write(Level::Info, text);
    emit note(text);
}

void UploadSession::noteUnmarkable(const QString& mission)
{
    const QString file = m_backlog.fileOf(mission);
    const QString text = QStringLiteral("accepted rows cannot be marked in %1").arg(file);
    Logger::instance().write(Level::Info, text);
    if (!file.isEmpty() && !m_unmarkable.contains(text)) {
        m_unmarkable.append(text);
        emit note(text);
    }
}

QString UploadSession::reason() const
{
    QStringList reasons = m_unmarkable;
    if (m_trouble) {
        reasons.append(m_trouble->words);
    }
    if (!isNetworkThere()) {
        reasons.append(QStringLiteral("there is no network connection"));
    }
    if (reasons.isEmpty() && m_backlog.sendable() > 0) {
        reasons.append(QStringLiteral("nothing was accepted for %1 s").arg(m_options.patience / 1000));
    }
    if (m_backlog.waiting() > m_backlog.sendable()) {
        reasons.append(QStringLiteral("some rows cannot be sent"));
    }
    if (!m_result.unreadable.isEmpty()) {
        reasons.append(QStringLiteral("%1 files cannot be read").arg(m_result.unreadable.size()));
    }
    return reasons.join(QStringLiteral("; "));
}
