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
    m_failure.reset();
}

void UploadPipeline::noteFailed(const RequestFailure& failure, qint64 now, int wait)
{
    m_failure = failure;
    m_nextTry = now + wait;
    m_mission.clear();
}

int UploadPipeline::secondsToTry(qint64 now) const
{
    return m_failure ? int(qMax(qint64(0), (m_nextTry - now + 999) / 1000)) : 0;
}

QString UploadPipeline::text(qint64 now, const std::function<QString(const QString&)>& name) const
{
    if (m_failure) {
        const int left = secondsToTry(now);
        return left > 0 ? tr("Failed: %1. Next try in %2 s.").arg(m_failure->headline).arg(left)
                        : tr("Failed: %1. Trying again.").arg(m_failure->headline);
    }
    return m_mission.isEmpty() ? QString() : tr("Sending %1 of %2.").arg(m_kind, name(m_mission));
}
