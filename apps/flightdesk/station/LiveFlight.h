// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/FrameSource.h"

#include <QtCore/QMutex>
#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtCore/QWaitCondition>

#include <atomic>

/// The memory for frames that no file has yet. All flights share it.
class FrameMemory
{
public:
    static constexpr qint64 MostBytes = 64LL * 1024 * 1024;

    /// About what a frame takes, its place in a list included.
    static qint64 bytesOf(const TelemetryFrame& frame);
    bool reserve(qint64 bytes);
    void release(qint64 bytes) { m_bytes -= bytes; }
    qint64 bytes() const { return m_bytes; }

private:
    std::atomic<qint64> m_bytes{0};
};

/// A flight in the air between the thread that receives its frames and the one that writes them. What the
/// disk does not take in time waits here; frames beyond the memory's bound are counted as lost.
class LiveFlight
{
public:
    /// \param clockOffset  from the stamps of the frames that are appended to microseconds since 1970 UTC; it
    /// stays
    ///                     as it is for the flight, so that no leap of the clock gets into it
    LiveFlight(int system, QString name, qint64 clockOffset, FrameMemory& memory);
    ~LiveFlight();
    LiveFlight(const LiveFlight&) = delete;
    LiveFlight& operator=(const LiveFlight&) = delete;

    int system() const { return m_system; }
    QString name() const { return m_name; }

    void append(TelemetryFrame frame);
    /// No frame follows.
    void close(const QString& reason);

    /// Waits until frames are there to be written together, or none follows.
    /// \return false when none follows and none waits
    bool take(QVector<TelemetryFrame>* frames, int milliseconds);
    /// The first frames of those that were taken are in a file, and are removed from the list.
    void noteStored(QVector<TelemetryFrame>* frames, int stored);
    /// The rest of the frames that were taken never will be.
    void giveUp(QVector<TelemetryFrame>* frames);
    void setMission(const QString& mission);

    QString mission() const;
    QString endReason() const;
    qint64 records() const { return m_records; }
    qint64 lost() const { return m_lost; }

private:
    void release(QVector<TelemetryFrame>* frames, int count);

    const int m_system;
    const QString m_name;
    const qint64 m_clockOffset;
    FrameMemory& m_memory;
    mutable QMutex m_mutex;
    QWaitCondition m_changed;
    QVector<TelemetryFrame> m_frames;
    bool m_isClosed = false;
    QString m_endReason;
    QString m_mission;
    std::atomic<qint64> m_records{0}; ///< stored as monitor messages
    std::atomic<qint64> m_lost{0};
};
