// SPDX-License-Identifier: MIT
#include "operator/OperatorThread.h"

#include "project/MissionFile.h"

#include <KvProjectDbOperator/CKvFlightDataDbOperator.h>

#include <utility>

OperatorThread::OperatorThread(int interval, bool easyFly, QObject* parent)
    : QObject(parent), m_interval(interval), m_easyFly(easyFly)
{
}

OperatorThread::~OperatorThread()
{
    pauseAndQuit();
    m_thread.wait();
}

void OperatorThread::start()
{
    m_worker = new QObject;
    m_worker->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    m_thread.start();
    QMetaObject::invokeMethod(m_worker, [this] { makeOperator(); });
}

/// On the worker's thread: the operator uses its connection and its timers where it was constructed.
void OperatorThread::makeOperator()
{
    m_operator = new CKvFlightDataDbOperator(m_worker, m_easyFly ? EUploadEnv::CurrentMissionLog
                                                                 : EUploadEnv::OncePerRequest);
    m_operator->SetFlightModeEasyFly(m_easyFly);
    m_operator->SetStartTimeInterval(static_cast<unsigned int>(m_interval));
    m_link.connectTo(m_operator);
    // On the operator's thread, before it goes on.
    connect(&m_link, &OperatorLink::missionFile, m_worker, [this](const QString& file) { m_file = file; });
    connect(m_operator, &CKvFlightDataDbOperator::UpLoading, m_worker,
            [this](const QString&, const QString& mission) { noteBatch(mission); });
    connect(m_operator, &CKvFlightDataDbOperator::UploadFinished, this, &OperatorThread::passEnded);
    Q_EMIT ready();
}

void OperatorThread::noteBatch(const QString& mission)
{
    Q_EMIT batch(mission, MissionFile(m_file).firstWaitingMessage(mission));
}

void OperatorThread::retire()
{
    disconnect(this, nullptr, nullptr, nullptr);
    connect(&m_thread, &QThread::finished, this, &QObject::deleteLater);
    if (m_thread.isRunning()) {
        pauseAndQuit();
    } else {
        deleteLater();
    }
}

void OperatorThread::setInterval(int interval)
{
    QMetaObject::invokeMethod(m_worker, [this, interval] {
        m_operator->SetStartTimeInterval(static_cast<unsigned int>(interval));
    });
}

void OperatorThread::pauseAndQuit()
{
    if (m_thread.isRunning() && !std::exchange(m_isEnding, true)) { // the worker may be gone the second time
        Q_EMIT m_link.startUploadTimer(false);
        // Queued behind the pause, which a quit() from here would overtake.
        QMetaObject::invokeMethod(m_worker, [this] { m_thread.quit(); });
    }
}
