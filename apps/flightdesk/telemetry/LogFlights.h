// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/FlightSplitter.h"
#include "telemetry/SteadyStamps.h"
#include "telemetry/TelemetryLog.h"

#include <QtCore/QQueue>
#include <QtCore/QVector>

#include <memory>

/// The flights of a telemetry log: one for each vehicle or, split, for each of its armings. Every frame of a
/// vehicle is in one of its flights; frames of others are in each flight that goes on when they came.
class LogFlights
{
public:
    /// Reads the log through, to see which flights there are. Throws Failure when it cannot be opened.
    /// \param split  one flight for each arming
    /// \param preRoll  microseconds, of all but a vehicle's first flight
    LogFlights(const QString& path, bool split, qint64 preRoll = SplitRule().preRoll);

    /// At least one, which holds nothing in an empty log.
    int count() const { return m_names.size(); }
    /// What tells the flight from the log's others, as " (system 2, flight 3)"; empty when it is the only
    /// one.
    QString name(int flight) const { return m_names.at(flight); }
    /// The flight's frames.
    std::unique_ptr<FrameSource> open(int flight) const;

    /// The log, read to its end.
    const TelemetryLog& log() const { return m_log; }

private:
    void findVehicles();
    void findFlights();

    const QString m_path;
    TelemetryLog m_log;
    SplitRule m_rule;
    QStringList m_names;
};
