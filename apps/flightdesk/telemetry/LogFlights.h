// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/FlightSplitter.h"
#include "telemetry/SteadyStamps.h"
#include "telemetry/TelemetryLog.h"

#include <QtCore/QMap>
#include <QtCore/QVector>

#include <functional>
#include <memory>

/// A splitter that is fed from a log. Throws Failure when that cannot be opened.
class LogCutter
{
public:
    LogCutter(const QString& path, FlightSplitter::Sink& sink, const SplitRule& rule)
        : m_log(path), m_splitter(sink, rule)
    {
    }

    /// Feeds the next frame; at the end of the log all flights end, and it says false.
    bool step();
    /// Whether the system of the latest frame is known to be a vehicle.
    bool isVehicles() const { return m_splitter.isVehicle(system(), 0); }
    quint8 system() const; ///< of the latest frame
    const TelemetryFrame& frame() const { return m_frame; }
    const TelemetryLog& log() const { return m_log; }

private:
    TelemetryLog m_log;
    FlightSplitter m_splitter;
    SteadyStamps m_stamps; ///< a log has the times of a clock that someone may have set
    TelemetryFrame m_frame;
};

/// Where a flight comes from, kept with its mission.
struct LogOrigin {
    QString log;        ///< file name; empty when it is none
    QString id;         ///< tells its content from any other
    qint64 endUsec = 0; ///< when the flight ends in it; 0 when that is not known
    qint64 skippedBytes = 0;
    qint64 truncatedBytes = 0;
};

/// The flights of a telemetry log: one for each vehicle or, split, for each of its armings. Every frame of a
/// vehicle is in one of its flights; frames of others are in each flight that goes on when they came.
///
/// A log is read twice, here and then to be recorded. A mission's name tells whether there are others, a
/// first vehicle has the frames from before it was heard, and a bad log is to leave nothing behind: none of
/// that is known before its end, and to keep its frames until then would take as much memory as it is long.
class LogFlights
{
public:
    /// Told now and then how far the reading has come; false ends it.
    using Reading = std::function<bool(const FrameSource& log)>;

    /// Reads the log through, to see which flights there are. Throws Failure when it cannot be read, and
    /// Trouble::Stopped when the reading was ended.
    /// \param split  one flight for each arming
    LogFlights(const QString& path, bool split, const Reading& reading = {});

    /// Throws Failure for what is no sound telemetry log.
    /// \param anyway  record what there is, as long as it is a frame
    void check(bool anyway) const;
    /// What is wrong with a log that can be recorded, as ", last record cut off"; empty when nothing is.
    QString remark() const;
    qint64 skippedBytes() const { return m_skipped; }
    int truncatedBytes() const { return m_truncated; }
    LogOrigin origin() const;

    /// In the order in which they were first heard; one numbered 0 where there is none.
    const QVector<quint8>& vehicles() const { return m_rule.vehicles; }
    /// What tells a flight from the log's others, as " (system 2, flight 3)"; empty when it is the only one.
    /// \param number  of the vehicle's flights, from 1
    QString name(quint8 vehicle, int number = 1) const;
    /// All flights side by side. The sink is given the frames while the cutter is stepped.
    LogCutter cut(FlightSplitter::Sink& sink) const { return LogCutter(m_path, sink, m_rule); }
    /// A vehicle's flight of all its armings.
    std::unique_ptr<FrameSource> open(quint8 vehicle) const;

private:
    void note(const TelemetryFrame& frame);

    const QString m_path;
    QString m_id;
    SplitRule m_rule;
    QMap<quint8, int> m_flights; ///< of each vehicle that has flown
    qint64 m_size = 0;
    qint64 m_skipped = 0;
    int m_truncated = 0;
    qint64 m_frames = 0;
    qint64 m_sound = 0;   ///< frames whose checksum is right
    qint64 m_damaged = 0; ///< and wrong; of others it cannot be told
    qint64 m_firstUsec = 0;
    qint64 m_lastUsec = 0;
};
