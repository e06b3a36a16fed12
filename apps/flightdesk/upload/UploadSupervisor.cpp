// SPDX-License-Identifier: MIT
#include "upload/UploadSupervisor.h"

#include "operator/OperatorLink.h"

#include <KvData.h>
#include <KvProjectDbOperator/CKvUpLoadObject.h>

#include <utility>

namespace
{
constexpr int Margin = 2000; // milliseconds

// The second batch of a mission follows only when the first was accepted, so its marks must have shown.
constexpr int BatchesWithoutMark = 3;

CKvControl* control()
{
    return CKvControl::GetInstance(false, EPlaneType::Multirotor);
}
} // namespace

UploadSupervisor::UploadSupervisor(int interval, QObject* parent) : QObject(parent)
{
    setInterval(interval);
}

UploadSupervisor::~UploadSupervisor()
{
    showOwnProject();
}

void UploadSupervisor::setInterval(int interval)
{
    m_quietTime = qint64(CKvUpLoadObject::RequestTimeout) + CKvUpLoadObject::ErrorDelay + Margin + interval;
}

void UploadSupervisor::connectTo(const OperatorLink& link) const
{
    connect(this, &UploadSupervisor::setFile, &link, &OperatorLink::missionFile);
    connect(this, &UploadSupervisor::startUploadTimer, &link, &OperatorLink::startUploadTimer);
    connect(this, &UploadSupervisor::checkNewData, &link, &OperatorLink::checkNewData);
    connect(this, &UploadSupervisor::resetUploadFlow, &link, &OperatorLink::resetUploadFlow);
}

void UploadSupervisor::arm(const QString& file)
{
    Q_EMIT setFile(file);
    Q_EMIT startUploadTimer(true);
    Q_EMIT checkNewData();
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
    if (m_emptySince >= 0 && now - m_emptySince >= m_quietTime) {
        showOwnProject();
    }
    if (m_batches >= BatchesWithoutMark) {
        m_batches = 0;
        m_lastSign = now;
        Q_EMIT resetUploadFlow();
        Q_EMIT unmarkable(m_mission);
        return;
    }
    if (waitingFile.isEmpty() || !network || !m_lastSign) {
        m_lastSign = now;
        return;
    }
    if (now - *m_lastSign < m_quietTime) {
        return;
    }
    m_lastSign = now;
    if (!m_emptyProject.isEmpty() && !std::exchange(m_wasEmptied, !m_wasEmptied)) {
        showEmptyProject(now);
    }
    arm(waitingFile);
    Q_EMIT rearmed(waitingFile);
}

void UploadSupervisor::showEmptyProject(qint64 now)
{
    m_project = control()->GetProjectDirPath();
    control()->SetProjectDirPath(m_emptyProject);
    m_emptySince = now;
}

void UploadSupervisor::showOwnProject()
{
    if (m_emptySince >= 0) {
        control()->SetProjectDirPath(m_project);
        m_emptySince = -1;
    }
}
