// SPDX-License-Identifier: MIT
#include "record/RecorderPool.h"

#include "telemetry/FlightSimulator.h"
#include "telemetry/LogFlights.h"
#include "telemetry/PacedSource.h"
#include "words/Failure.h"

#include <KvLog.h>

#include <QtCore/QElapsedTimer>

#include <utility>

namespace
{
constexpr int AtOnce = 6; // a flight replayed at its own speed hardly takes a processor

constexpr int ReportInterval = 100; // milliseconds
} // namespace

RecorderPool::RecorderPool(QObject* parent) : QObject(parent)
{
    qRegisterMetaType<RecordedFlight>();
    qRegisterMetaType<FlightTask>();
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
            Q_EMIT finished(flight, result);
        });
    });
    return flight;
}

/// On a thread of the pool.
RecordedFlight RecorderPool::run(int flight, const Project& project, FlightTask task,
                                 const std::atomic_bool& cancelled)
{
    Q_EMIT started(flight);
    RecordedFlight result;
    try {
        if (!cancelled) {
            result = fly(flight, project, &task, cancelled);
        }
    } catch (const Failure& failure) {
        result.error = failure.words();
        result.isKnown = failure.is(Trouble::SameLog);
    }
    if (cancelled && result.messages == 0) {
        result.error = tr("cancelled before its first message");
    }
    result.name = task.name;
    return result;
}

/// Looks for the flights of the task's log, the first of which is the task's.
void RecorderPool::look(int flight, const Project& project, FlightTask* task,
                        const std::atomic_bool& cancelled)
{
    QElapsedTimer sinceReport;
    sinceReport.start();
    task->flights = std::make_shared<const LogFlights>(task->log, false, [&](const FrameSource& log) {
        if (sinceReport.hasExpired(ReportInterval)) {
            sinceReport.start();
            Q_EMIT progress(flight, log.position(), log.size());
        }
        return !cancelled;
    });
    m_known.check(project, task->easyFly ? MissionFormat::video() : MissionFormat::flight(), *task->flights,
                  task->anyway);
    const QVector<quint8>& vehicles = task->flights->vehicles();
    task->vehicle = vehicles.constFirst();
    for (int i = 1; i < vehicles.size() && !cancelled; ++i) {
        FlightTask other = *task;
        other.vehicle = vehicles[i];
        Q_EMIT found(other);
    }
}

/// The task's source; its name gets what tells it from others of the log.
std::unique_ptr<FrameSource> RecorderPool::open(int flight, const Project& project, FlightTask* task,
                                                const std::atomic_bool& cancelled)
{
    if (task->log.isEmpty()) {
        return std::make_unique<FlightSimulator>(task->seed, 0, task->minutes, task->interrupted);
    }
    if (!task->flights) {
        look(flight, project, task, cancelled);
    }
    task->name += task->flights->name(task->vehicle);
    return task->flights->open(task->vehicle);
}

RecordedFlight RecorderPool::fly(int flight, const Project& project, FlightTask* task,
                                 const std::atomic_bool& cancelled)
{
    const auto source = open(flight, project, task, cancelled);
    PacedSource paced(*source, task->speed, cancelled);
    FlightRecorder recorder(project, task->easyFly ? MissionFormat::video() : MissionFormat::flight());
    FlightSample sample;
    QVector<FlightSample> samples;
    QElapsedTimer sinceReport;
    const auto report = [&] {
        sinceReport.start();
        Q_EMIT sampled(flight, std::exchange(samples, {}));
        Q_EMIT progress(flight, source->position(), source->size());
    };
    sinceReport.start();
    connect(&recorder, &FlightRecorder::told, [&](const VehicleTracker::Records& records) {
        if (sample.note(records)) {
            sample.seconds = paced.flownSeconds();
            samples.append(sample);
        }
        if (sinceReport.elapsed() >= ReportInterval) {
            report();
        }
    });
    const bool isLog = task->flights != nullptr;
    RecordedFlight result =
        recorder.record(paced, task->name, isLog ? tr("unknown") : tr("simulated quadrotor"),
                        isLog ? task->flights->origin() : LogOrigin());
    report();
    result.remark = isLog && result.incomplete.isEmpty() ? task->flights->remark() : QString();
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
