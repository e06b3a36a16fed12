// SPDX-License-Identifier: MIT
#pragma once

#include "record/FlightRecorder.h"
#include "record/KnownLogs.h"
#include "telemetry/FlightTrack.h"

#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QThreadPool>

#include <atomic>
#include <memory>

class LogFlights;

/// A flight to record: a telemetry log, or a simulated flight when no log is named.
struct FlightTask {
    QString name;
    QString log;
    std::shared_ptr<const LogFlights> flights; ///< of the log, where they are known
    quint8 vehicle = 0;                        ///< which of them
    int minutes = 3;
    quint32 seed = 0;
    bool interrupted = false; ///< the simulated telemetry breaks off in mid-air
    bool easyFly = false;
    bool anyway = false; ///< record a log that was recorded before, or is not sound
    double speed = 0;    ///< times the flight's own; 0 is as fast as possible
};

Q_DECLARE_METATYPE(FlightTask)

/// Records flights side by side, each on a thread with an operator of its own; some wait for their turn.
class RecorderPool : public QObject
{
    Q_OBJECT

public:
    explicit RecorderPool(QObject* parent = nullptr);
    /// Stops all, and waits until what was received is in the files.
    ~RecorderPool() override;

    /// \return a number for the flight
    int record(const Project& project, const FlightTask& task);
    /// Ends a recording early. What was received stays, as an incomplete flight without a breakpoint: it was
    /// not interrupted in the air. Who does not want it removes its file (Project::removeMissionFile()).
    void cancel(int flight);
    void cancelAll();
    bool isBusy() const { return !m_cancelled.isEmpty(); }
    /// Stores a breakpoint once more.
    void storeBreakpoint(const Project& project, const RecordedFlight& flight);

Q_SIGNALS:
    void started(int flight);
    /// A log holds one more flight than was known, of another vehicle.
    void found(const FlightTask& task);
    void progress(int flight, qint64 done, qint64 size);
    void sampled(int flight, const QVector<FlightSample>& samples);
    void finished(int flight, const RecordedFlight& result);

private:
    using Flag = std::shared_ptr<std::atomic_bool>;
    RecordedFlight run(int flight, const Project& project, FlightTask task,
                       const std::atomic_bool& cancelled);
    void look(int flight, const Project& project, FlightTask* task, const std::atomic_bool& cancelled);
    std::unique_ptr<FrameSource> open(int flight, const Project& project, FlightTask* task,
                                      const std::atomic_bool& cancelled);
    RecordedFlight fly(int flight, const Project& project, FlightTask* task,
                       const std::atomic_bool& cancelled);

    QThreadPool m_threads;
    KnownLogs m_known;           ///< to all threads
    QMap<int, Flag> m_cancelled; ///< of the flights that have not finished
    int m_last = 0;
};
