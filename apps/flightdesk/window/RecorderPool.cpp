// SPDX-License-Identifier: MIT
#include "RecorderPool.h"

#include "FlightSimulator.h"
#include "PacedSource.h"
#include "TelemetryLog.h"

#include <KvLog.h>

#include <QtCore/QFileInfo>

namespace
{
constexpr int AtOnce = 6; // a flight replayed at its own speed hardly takes a processor

std::unique_ptr<FrameSource> open(const FlightTask& task, QString* error)
{
    if (task.log.isEmpty()) {
        return std::make_unique<FlightSimulator>(task.seed, 0, task.minutes, task.interrupted);
    }
    auto log = std::make_unique<TelemetryLog>(task.log);
    if (!log->open()) {
        *error = RecorderPool::tr("cannot be read: %1").arg(log->error());
        return nullptr;
    }
    return log;
}
} // namespace

RecorderPool::RecorderPool(QObject* parent) : QObject(parent)
{
    qRegisterMetaType<RecordedFlight>();
    qRegisterMetaType<QVector<FlightSample>>();
    m_threads.setMaxThreadCount(AtOnce);
}

RecorderPool::~RecorderPool()
{
    cancelAll();
    m_threads.waitForDone();
}

int RecorderPool::record(const Project& project, const FlightTask& task)
{
    const int flight = ++m_last;
    const auto cancelled = std::make_shared<std::atomic_bool>(false);
    m_cancelled.insert(flight, cancelled);
    m_threads.start([this, flight, project, task, cancelled] {
        const RecordedFlight result = run(flight, project, task, *cancelled);
        QMetaObject::invokeMethod(this, [this, flight, result] {
            m_cancelled.remove(flight);
            emit finished(flight, result);
        });
    });
    return flight;
}

/// On a thread of the pool.
RecordedFlight RecorderPool::run(int flight, const Project& project, const FlightTask& task,
                                 const std::atomic_bool& cancelled)
{
    emit started(flight);
    RecordedFlight result;
    const auto source = cancelled ? nullptr : open(task, &result.error);
    if (source) {
        PacedSource paced(*source, task.speed, cancelled, [&](const QVector<FlightSample>& samples) {
            emit sampled(flight, samples);
            emit progress(flight, source->position(), source->size());
        });
        FlightRecorder recorder(project, task.easyFly ? MissionFormat::video() : MissionFormat::flight());
        const QString log = QFileInfo(task.log).fileName();
        result =
            recorder.record(paced, task.name, log.isEmpty() ? tr("simulated quadrotor") : tr("unknown"), log);
        const auto* const file = dynamic_cast<const TelemetryLog*>(source.get());
        if (file && !file->error().isEmpty()) {
            result.error = tr("cannot be read to its end: %1").arg(file->error());
        }
    }
    if (cancelled && result.messages == 0) {
        result.error = tr("cancelled before its first message");
    }
    result.name = task.name;
    return result;
}

void RecorderPool::cancel(int flight)
{
    if (const Flag cancelled = m_cancelled.value(flight)) {
        *cancelled = true;
    }
}

void RecorderPool::cancelAll()
{
    for (const Flag& cancelled : m_cancelled) {
        *cancelled = true;
    }
}

void RecorderPool::storeBreakpoint(const Project& project, const RecordedFlight& flight)
{
    m_threads.start([project, flight] {
        FlightRecorder recorder(project);
        if (!recorder.storeBreakpoint(flight.file, flight.missionId, *flight.interruption->breakpoint)) {
            Logger::instance().write(Level::Warn,
                                     tr("the breakpoint was not stored again in %1").arg(flight.file));
        }
    });
}
