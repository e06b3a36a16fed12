// SPDX-License-Identifier: MIT
#include "upload/UploadPipeline.h"

void UploadPipeline::noteBegan(OperatorLog::Rows rows, const QString& mission)
{
    using Rows = OperatorLog::Rows;
    noteSending(rows == Rows::Mission     ? tr("the mission row")
                : rows == Rows::Positions ? tr("positions")
                                          : tr("status rows"),
                mission);
}

void UploadPipeline::noteBatch(const QString& mission)
{
    noteSending(tr("log rows"), mission);
}

void UploadPipeline::noteSending(const QString& kind, const QString& mission)
{
    m_kind = kind;
    m_mission = mission;
    m_isTrying = true;
}

void UploadPipeline::noteFailed(const RequestFailure& failure, qint64 now)
{
    if (!m_failure) {
        m_failingSince = QDateTime::currentDateTime();
    }
    m_failure = failure;
    m_failedAt = now;
    m_isTrying = false;
    m_mission.clear();
}

QString UploadPipeline::text(qint64 now, int interval,
                             const std::function<QString(const QString&)>& name) const
{
    if (const auto trouble = this->trouble(now, interval)) {
        return trouble->secondsLeft > 0
                   ? tr("Failed: %1. Next try in %2 s.").arg(trouble->headline).arg(trouble->secondsLeft)
                   : tr("Failed: %1. Trying again.").arg(trouble->headline);
    }
    return m_mission.isEmpty() ? QString() : tr("Sending %1 of %2.").arg(m_kind, name(m_mission));
}

std::optional<UploadTrouble> UploadPipeline::trouble(qint64 now, int interval) const
{
    if (!m_failure) {
        return std::nullopt;
    }
    const qint64 left = m_isTrying ? 0 : (m_failedAt + interval - now + 999) / 1000;
    return UploadTrouble{m_failure->headline, m_failure->todo, m_failingSince, left};
}
