// SPDX-License-Identifier: MIT
#pragma once

#include "export/FlightTime.h"
#include "project/RowWalk.h"

#include <cmath>
#include <limits>

/// A number that may be unknown.
constexpr double UnknownNumber = std::numeric_limits<double>::quiet_NaN();

/// Where the aircraft was.
struct FlightPoint {
    qint64 msec = flightTime::Unknown; ///< by the aircraft's clock
    double lng = UnknownNumber;        ///< degrees; unknown without a fix
    double lat = UnknownNumber;
    double alt = UnknownNumber;         ///< metres above sea level
    double relativeAlt = UnknownNumber; ///< metres above the start
    double speed = UnknownNumber;       ///< metres a second over ground
    double heading = UnknownNumber;     ///< degrees

    bool hasPlace() const { return !std::isnan(lng); }
};

/// How the aircraft did.
struct FlightStatus {
    /// In the order of the values.
    static const QStringList& columns();
    enum Column { Mode, Armed, Volts, Percent, Satellites, FixType, Roll, Pitch, Yaw, Columns };

    qint64 msec = flightTime::Unknown;
    QVector<QVariant> values = QVector<QVariant>(Columns); ///< NULL where unknown

    bool isArmed() const { return values.at(Armed).toInt() == 1; }
};

/// What is missing of a flight after its records were read.
struct FlightGaps {
    qint64 unreadable = 0; ///< rows that could not be read from the file
    qint64 damaged =
        0; ///< rows without a sound time or place, which are left out, and messages that are none
    qint64 damagedBytes = 0;
    qint64 noPlace = 0;   ///< positions of which no place was ever stored
    qint64 unstamped = 0; ///< messages whose own time was not stored

    /// All that was stored came out.
    bool isWhole() const { return unreadable == 0 && damaged == 0; }
};

/// The records of one mission, read again for every walk, as they were when the object was made: what is
/// recorded meanwhile is of no account.
class Flight
{
public:
    Flight(MissionFile& file, MissionCount mission);

    const MissionCount& mission() const { return m_mission; }
    MissionFile& file() { return m_file; }
    /// Of a table, as of when the object was made.
    qint64 lastRow(const QString& table) const { return m_lastRows.value(table); }
    QString name() const;
    /// When it began; Unknown when neither the mission nor a position tells.
    qint64 start();
    /// When its recording ended; Unknown while it goes on, or when that broke off.
    qint64 end() const;
    /// By the aircraft's clock, for times of the recorder.
    qint64 corrected(qint64 msec) const;
    qint64 waiting() { return m_file.waiting(m_mission.id); }

    using TakePoint = std::function<void(const FlightPoint&)>;
    /// Every position, those without a place as well.
    void positions(const TakePoint& take);
    /// With the latest status at its time.
    void positionsWithStatus(const std::function<void(const FlightPoint&, const FlightStatus&)>& take);
    void statuses(const std::function<void(const FlightStatus&)>& take);

    RowWalk walk(const QString& table, const QStringList& columns);

    /// Of the last walk; a new one begins with none.
    FlightGaps gaps;

private:
    bool read(const QVector<QVariant>& row, FlightPoint* point) const;
    bool nextStatus(RowWalk& rows, FlightStatus* status, qint64* damaged) const;

    MissionFile& m_file;
    const MissionCount m_mission;
    const QHash<QString, qint64> m_lastRows;
    const qint64 m_clockOffset; ///< milliseconds
};
