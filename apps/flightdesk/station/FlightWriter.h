// SPDX-License-Identifier: MIT
#pragma once

#include "record/FlightRecorder.h"
#include "station/FlightWriters.h"

#include <QtCore/QElapsedTimer>

/// Writes one flight, at least once a second, until its end. Frames are forgotten once they have been seen in
/// the file; while it takes none they wait, and when it is of no use any more they begin another mission.
class FlightWriter
{
public:
    FlightWriter(FlightWriters& station, FlightRecorder& recorder, LiveFlight& flight);

    void run();

private:
    void write();
    void begin();
    void handOver();
    void confirm();
    void abandon();
    void end();
    void noteTrouble(const QString& words);
    void noteWell();
    QString diskTrouble() const;
    void say(const QString& words) const;

    FlightWriters& m_station;
    FlightRecorder& m_recorder;
    LiveFlight& m_flight;
    QVector<TelemetryFrame> m_frames; ///< not seen in a file yet
    int m_handedOver = 0;             ///< of these
    QString m_file;                   ///< of the mission; empty while none is open
    qint64 m_stored = 0;              ///< messages that have been seen in it
    QStringList m_abandoned;          ///< files of missions that were left without an end
    int m_part = 0;
    bool m_inTrouble = false;
    QElapsedTimer m_sinceSaid;
};
