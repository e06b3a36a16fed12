// SPDX-License-Identifier: MIT
#pragma once

#include "record/FlightRecorder.h"
#include "telemetry/LogFlights.h"

#include <QtCore/QFileInfo>

#include <map>

/// Records the flights of a telemetry log side by side, each with a recorder of its own for as long as it
/// lasts.
class LogRecorder : private FlightSplitter::Sink
{
public:
    /// \param path  of the log, of which the flights are
    LogRecorder(Project project, const MissionFormat& format, const QString& path, const LogFlights& flights);

    /// Records some more of the log; false at its end, and when nothing more can be recorded. Events are
    /// processed on the way.
    bool step();
    /// Ends the flights that go on where they are.
    void breakOff(const Failure& why);
    /// The flights in the order in which they began, named by the log's path. Whole at the end of the log.
    QVector<RecordedFlight> flights() const;

    const TelemetryLog& log() const { return m_cutter.log(); }

private:
    void began(int flight, const FlightStart& start) override;
    void frame(int flight, const TelemetryFrame& frame) override;
    void ended(int flight, const QString& reason) override;
    void keep(int flight, RecordedFlight recorded);

    const Project m_project;
    const MissionFormat& m_format;
    const QString m_path;
    const QFileInfo m_file;
    const LogFlights m_flights;
    LogCutter m_cutter;
    QMap<quint8, int> m_flown;                                  ///< flights of each vehicle
    std::map<int, std::unique_ptr<FlightRecorder>> m_recorders; ///< of the flights that go on
    QMap<int, RecordedFlight> m_recorded;
};
