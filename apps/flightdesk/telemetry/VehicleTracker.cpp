// SPDX-License-Identifier: MIT
#include "telemetry/VehicleTracker.h"

#include "words/Latin1.h"

#include <QtCore/QDateTime>
#include <QtCore/QtMath>

#include <cmath>

namespace
{
constexpr quint8 AutopilotArduPilot = 3;
constexpr quint8 FlightPlan = 0;
constexpr qint64 LinkTimeout = 5000000;                   // microseconds
constexpr double LeastClockOffset = 2;                    // seconds; less may be the way of the message
constexpr quint64 Year2010 = 1262304000ULL * 1000 * 1000; // a clock that was never set says less
constexpr quint64 Year2100 = 4102444800ULL * 1000 * 1000;

double rounded(double value)
{
    return std::round(value * 1000) / 1000;
}

QJsonValue text(double value)
{
    return std::isfinite(value) ? QJsonValue(QString::number(rounded(value), 'g', 10)) : QJsonValue();
}

/// Text of an integer, null for the value that means unknown.
QJsonValue text(int value, int unknown)
{
    return value == unknown ? QJsonValue() : QJsonValue(QString::number(value));
}

bool isCopter(quint8 type)
{
    // quadrotor, coaxial, helicopter, hexarotor, octorotor, tricopter, dodecarotor, decarotor
    return QByteArray::fromRawData("\x02\x03\x04\x0d\x0e\x0f\x1d\x23", 8).contains(char(type));
}

QString modeName(const mavlink::Heartbeat& heartbeat)
{
    static const char* const copterModes[] = {
        "STABILIZE", "ACRO",     "ALT_HOLD", "AUTO",   "GUIDED",   "LOITER",     "RTL",
        "CIRCLE",    nullptr,    "LAND",     nullptr,  "DRIFT",    nullptr,      "SPORT",
        "FLIP",      "AUTOTUNE", "POSHOLD",  "BRAKE",  "THROW",    "AVOID_ADSB", "GUIDED_NOGPS",
        "SMART_RTL", "FLOWHOLD", "FOLLOW",   "ZIGZAG", "SYSTEMID", "AUTOROTATE", "AUTO_RTL"};
    const quint32 mode = heartbeat.customMode;
    const bool named = heartbeat.autopilot == AutopilotArduPilot && isCopter(heartbeat.type) &&
                       mode < std::size(copterModes) && copterModes[mode];
    return named ? QString::fromLatin1(copterModes[mode]) : QStringLiteral("MODE %1").arg(mode);
}

double degrees(float radians)
{
    return qRadiansToDegrees(double(radians));
}

double fullCircle(double angle)
{
    return angle < 0 ? angle + 360 : angle;
}
} // namespace

QString VehicleTracker::timeText(qint64 usec)
{
    return QDateTime::fromMSecsSinceEpoch(usec / 1000, Qt::UTC).toString(Qt::ISODateWithMs);
}

VehicleTracker::Records VehicleTracker::take(const TelemetryFrame& frame)
{
    Records records;
    const auto message = mavlink::decode(frame.bytes);
    if (!message || !isOurs(*message)) {
        return records;
    }
    switch (message->id) {
    case mavlink::Heartbeat::Id: {
        const auto heartbeat = mavlink::read<mavlink::Heartbeat>(message->payload);
        m_heardUsec = frame.usec;
        m_armed = heartbeat.isArmed();
        records.status = status(frame.usec, heartbeat);
        break;
    }
    case mavlink::SysStatus::Id:
        m_sysStatus = mavlink::read<mavlink::SysStatus>(message->payload);
        break;
    case mavlink::SystemTime::Id:
        note(frame.usec, mavlink::read<mavlink::SystemTime>(message->payload));
        break;
    case mavlink::GpsRawInt::Id:
        m_gps = mavlink::read<mavlink::GpsRawInt>(message->payload);
        break;
    case mavlink::Attitude::Id:
        m_attitude = mavlink::read<mavlink::Attitude>(message->payload);
        break;
    case mavlink::GlobalPositionInt::Id:
        records.position = position(frame.usec, mavlink::read<mavlink::GlobalPositionInt>(message->payload));
        break;
    case mavlink::MissionCurrent::Id:
        m_place.waypoint = mavlink::read<mavlink::MissionCurrent>(message->payload).waypoint;
        break;
    case mavlink::MissionCount::Id: {
        const auto count = mavlink::read<mavlink::MissionCount>(message->payload);
        m_waypoints = count.missionType == FlightPlan ? count.waypoints : m_waypoints;
        break;
    }
    default:
        break;
    }
    return records;
}

void VehicleTracker::note(qint64 usec, const mavlink::SystemTime& time)
{
    if (time.unixUsec >= Year2010 && time.unixUsec < Year2100) {
        m_clockOffset = rounded(double(qint64(time.unixUsec) - usec) / 1e6);
    }
}

std::optional<double> VehicleTracker::clockOffset() const
{
    return m_clockOffset && std::abs(*m_clockOffset) > LeastClockOffset ? m_clockOffset : std::nullopt;
}

std::optional<Interruption> VehicleTracker::interruption(qint64 endUsec) const
{
    if (!m_armed) {
        return std::nullopt;
    }
    const bool linkLost = endUsec - m_heardUsec > LinkTimeout;
    Interruption interruption{linkLost ? QStringLiteral("link lost") : QStringLiteral("still armed"), {}};
    if (m_located) {
        interruption.breakpoint = m_place;
        if (m_waypoints > 0) {
            interruption.breakpoint->completion =
                rounded(100.0 * qMin(m_place.waypoint, m_waypoints) / m_waypoints);
        }
    }
    return interruption;
}

bool VehicleTracker::isOurs(const mavlink::Message& message)
{
    if (message.id == mavlink::Heartbeat::Id) {
        return Autopilot::heartbeat(message) && m_autopilot.speaks(message);
    }
    const std::optional<quint8>& vehicle = m_autopilot.system();
    // The count of waypoints also comes from the ground station, while it sends the vehicle a new mission.
    const bool forVehicle = vehicle && message.id == mavlink::MissionCount::Id &&
                            mavlink::read<mavlink::MissionCount>(message.payload).targetSystem == *vehicle;
    return !vehicle || *vehicle == message.system || forVehicle;
}

QJsonObject VehicleTracker::position(qint64 usec, const mavlink::GlobalPositionInt& here)
{
    const bool known = here.lat != 0 || here.lng != 0; // both are 0 until the first fix
    if (known) {
        m_located = true;
        m_place.lng = here.lng / 1e7;
        m_place.lat = here.lat / 1e7;
    }
    return {
        {"time"_l1, timeText(usec)},
        {"lat"_l1, known ? QJsonValue(here.lat / 1e7) : QJsonValue()},
        {"lng"_l1, known ? QJsonValue(here.lng / 1e7) : QJsonValue()},
        {"alt"_l1, here.alt / 1e3},
        {"relative_alt"_l1, here.relativeAlt / 1e3},
        {"speed"_l1, rounded(std::hypot(here.vx, here.vy) / 100)},
        {"heading"_l1, here.heading == 0xFFFF ? QJsonValue() : QJsonValue(here.heading / 100.0)},
    };
}

QJsonObject VehicleTracker::status(qint64 usec, const mavlink::Heartbeat& heartbeat) const
{
    // Every key is there: a record that lacks one would be stored with the value of the record before.
    QJsonObject record{
        {"time"_l1, timeText(usec)},
        {"flight_mode"_l1, modeName(heartbeat)},
        {"armed"_l1, heartbeat.isArmed() ? "1"_l1 : "0"_l1},
    };
    for (const char* key :
         {"battery_voltage", "battery_remaining", "satellites", "fix_type", "roll", "pitch", "yaw"}) {
        record.insert(QLatin1String(key), QJsonValue());
    }
    if (m_sysStatus) {
        if (m_sysStatus->millivolt != 0xFFFF) {
            record["battery_voltage"_l1] = text(m_sysStatus->millivolt / 1e3);
        }
        record["battery_remaining"_l1] = text(m_sysStatus->remaining, -1);
    }
    if (m_gps) {
        record["fix_type"_l1] = QString::number(m_gps->fixType);
        record["satellites"_l1] = text(m_gps->satellites, 0xFF);
    }
    if (m_attitude) {
        record["roll"_l1] = text(degrees(m_attitude->roll));
        record["pitch"_l1] = text(degrees(m_attitude->pitch));
        record["yaw"_l1] = text(fullCircle(degrees(m_attitude->yaw)));
    }
    return record;
}
