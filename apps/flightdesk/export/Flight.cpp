// SPDX-License-Identifier: MIT
#include "export/Flight.h"

#include <KvAlgorthm.h>

#include <utility>

namespace
{
const QString Time = QStringLiteral("time");
const QStringList PositionColumns{Time,
                                  QStringLiteral("lng"),
                                  QStringLiteral("lat"),
                                  QStringLiteral("alt"),
                                  QStringLiteral("relative_alt"),
                                  QStringLiteral("speed"),
                                  QStringLiteral("heading")};

QStringList statusColumns()
{
    return QStringList{Time} + FlightStatus::columns();
}

qint64 timeOf(const QVector<QVariant>& row)
{
    return flightTime::read(row.constFirst().toString());
}

/// Unknown for what is not stored. \return false for what is no number.
bool number(const QVariant& value, double* number)
{
    bool isNumber = true;
    *number = value.isNull() ? UnknownNumber : value.toDouble(&isNumber);
    isNumber = isNumber && !std::isinf(*number);
    if (!isNumber) {
        *number = UnknownNumber;
    }
    return isNumber;
}
} // namespace

const QStringList& FlightStatus::columns()
{
    static const QStringList names{QStringLiteral("flight_mode"),
                                   QStringLiteral("armed"),
                                   QStringLiteral("battery_voltage"),
                                   QStringLiteral("battery_remaining"),
                                   QStringLiteral("satellites"),
                                   QStringLiteral("fix_type"),
                                   QStringLiteral("roll"),
                                   QStringLiteral("pitch"),
                                   QStringLiteral("yaw")};
    return names;
}

Flight::Flight(MissionFile& file, MissionCount mission)
    : m_file(file)
    , m_mission(std::move(mission))
    , m_lastRows(file.lastRows())
    , m_clockOffset(std::llround(m_mission.clockOffset * 1000))
{
}

QString Flight::name() const
{
    return m_mission.name.isEmpty() ? m_mission.id : m_mission.name;
}

qint64 Flight::corrected(qint64 msec) const
{
    return msec == flightTime::Unknown ? msec : msec + m_clockOffset;
}

qint64 Flight::start()
{
    const QDateTime told = m_mission.begun();
    if (told.isValid()) {
        return told.toMSecsSinceEpoch();
    }
    RowWalk rows = walk(PosDataTableName, PositionColumns);
    const QVector<QVariant>* const first = rows.next();
    return first ? corrected(timeOf(*first)) : flightTime::Unknown;
}

qint64 Flight::end() const
{
    return corrected(flightTime::read(m_mission.completedAt));
}

RowWalk Flight::walk(const QString& table, const QStringList& columns)
{
    return {m_file, table, columns, m_mission.id, m_lastRows.value(table)};
}

void Flight::positions(const TakePoint& take)
{
    gaps = {};
    RowWalk rows = walk(PosDataTableName, PositionColumns);
    while (const QVector<QVariant>* row = rows.next()) {
        FlightPoint point;
        if (!read(*row, &point)) {
            ++gaps.damaged;
            continue;
        }
        gaps.noPlace += point.hasPlace() ? 0 : 1;
        take(point);
    }
    gaps.unreadable = rows.unreadable();
}

void Flight::positionsWithStatus(const std::function<void(const FlightPoint&, const FlightStatus&)>& take)
{
    RowWalk rows = walk(UasStatusTableName, statusColumns());
    FlightStatus latest;
    FlightStatus next;
    qint64 damaged = 0;
    bool more = nextStatus(rows, &next, &damaged);
    positions([&](const FlightPoint& point) {
        while (more && next.msec <= point.msec) {
            latest = next;
            more = nextStatus(rows, &next, &damaged);
        }
        take(point, latest);
    });
    gaps.damaged += damaged;
    gaps.unreadable += rows.unreadable();
}

void Flight::statuses(const std::function<void(const FlightStatus&)>& take)
{
    RowWalk rows = walk(UasStatusTableName, statusColumns());
    qint64 damaged = 0;
    for (FlightStatus status; nextStatus(rows, &status, &damaged);) {
        take(status);
    }
    gaps = {};
    gaps.damaged = damaged;
    gaps.unreadable = rows.unreadable();
}

/// \return false for a row whose time or place is damaged
bool Flight::read(const QVector<QVariant>& row, FlightPoint* point) const
{
    point->msec = corrected(timeOf(row));
    bool sound = point->msec != flightTime::Unknown;
    int column = 1;
    for (double* const value :
         {&point->lng, &point->lat, &point->alt, &point->relativeAlt, &point->speed, &point->heading}) {
        sound = number(row.at(column++), value) && sound;
    }
    if (std::isnan(point->lng) || std::isnan(point->lat)) {
        point->lng = point->lat = UnknownNumber;
    }
    // Not written as "greater than": unknown is sound.
    return sound && !(std::abs(point->lng) > 180) && !(std::abs(point->lat) > 90);
}

/// The next status with a sound time. \return false at the end
bool Flight::nextStatus(RowWalk& rows, FlightStatus* status, qint64* damaged) const
{
    while (const QVector<QVariant>* const row = rows.next()) {
        status->msec = corrected(timeOf(*row));
        status->values = row->mid(1);
        if (status->msec != flightTime::Unknown) {
            return true;
        }
        ++*damaged;
    }
    return false;
}
