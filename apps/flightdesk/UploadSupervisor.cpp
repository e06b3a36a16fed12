// SPDX-License-Identifier: MIT
#include "UploadSupervisor.h"

#include "OperatorLink.h"

namespace
{
constexpr int RequestTime = 20000; // milliseconds that a silent request is waited for
constexpr int ErrorDelay = 3000;   // from a useless answer to its failure
constexpr int Margin = 2000;

// The second batch of a mission follows only when the first was accepted, so its marks must have shown.
constexpr int BatchesWithoutMark = 3;
} // namespace

UploadSupervisor::UploadSupervisor(int interval, QObject* parent)
    : QObject(parent), m_quietTime(qint64(RequestTime) + ErrorDelay + Margin + interval)
{
}

void UploadSupervisor::connectTo(const OperatorLink& link) const
{
    connect(this, &UploadSupervisor::setFile, &link, &OperatorLink::missionFile);
    connect(this, &UploadSupervisor::startUploadTimer, &link, &OperatorLink::startUploadTimer);
    connect(this, &UploadSupervisor::checkNewData, &link, &OperatorLink::checkNewData);
    connect(this, &UploadSupervisor::resetUploadFlow, &link, &OperatorLink::resetUploadFlow);
}

void UploadSupervisor::noteSignOfLife(qint64 now)
{
    m_lastSign = now;
    m_batches = 0;
}

void UploadSupervisor::noteBatch(const QString& mission)
{
    m_batches = mission == m_mission ? m_batches + 1 : 1;
    m_mission = mission;
}

void UploadSupervisor::look(qint64 now, const QString& waitingFile, bool network)
{
    if (m_batches >= BatchesWithoutMark) {
        m_batches = 0;
        m_lastSign = now;
        emit resetUploadFlow();
        emit unmarkable(m_mission);
        return;
    }
    if (waitingFile.isEmpty() || !network) {
        m_lastSign = now;
        return;
    }
    if (now - m_lastSign < m_quietTime) {
        return;
    }
    m_lastSign = now;
    emit setFile(waitingFile);
    emit startUploadTimer(true);
    emit checkNewData();
    emit rearmed(waitingFile);
}
