// SPDX-License-Identifier: MIT
#include "VehicleTracker.h"

#include <QtCore/QDateTime>
#include <QtCore/QtEndian>
#include <QtCore/QtMath>

#include <cmath>

namespace
{
constexpr quint8 AutopilotArduPilot = 3;
constexpr quint8 AutopilotInvalid = 8; // ground stations, gimbals, cameras
constexpr uchar ArmedFlag = 0x80;
constexpr uchar FlightPlan = 0;         // the type of mission; fences and rally points are others
constexpr qint64 LinkTimeout = 5000000; // microseconds

template<typename T>
T field(const QByteArray& payload, int offset)
{
    return qFromLittleEndian<T>(payload.constData() + offset);
}

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
    switch (type) {
    case 2:  // quadrotor
    case 3:  // coaxial
    case 4:  // helicopter
    case 13: // hexarotor
    case 14: // octorotor
    case 15: // tricopter
    case 29: // dodecarotor
    case 35: // decarotor
        return true;
    default:
        return false;
    }
}

QString modeName(const QByteArray& heartbeat)
{
    static const char* const copterModes[] = {
        "STABILIZE", "ACRO",     "ALT_HOLD", "AUTO",   "GUIDED",   "LOITER",     "RTL",
        "CIRCLE",    nullptr,    "LAND",     nullptr,  "DRIFT",    nullptr,      "SPORT",
        "FLIP",      "AUTOTUNE", "POSHOLD",  "BRAKE",  "THROW",    "AVOID_ADSB", "GUIDED_NOGPS",
        "SMART_RTL", "FLOWHOLD", "FOLLOW",   "ZIGZAG", "SYSTEMID", "AUTOROTATE", "AUTO_RTL"};
    const auto mode = field<quint32>(heartbeat, 0);
    const bool named = uchar(heartbeat[5]) == AutopilotArduPilot && isCopter(uchar(heartbeat[4])) &&
                       mode < std::size(copterModes) && copterModes[mode];
    return named ? QString::fromLatin1(copterModes[mode]) : QStringLiteral("MODE %1").arg(mode);
}

double degrees(float radians)
{
    return qRadiansToDegrees(double(radians));
}

bool isArmed(const QByteArray& heartbeat)
{
    return (uchar(heartbeat[6]) & ArmedFlag) != 0;
}

bool isFlightPlan(const QByteArray& missionCount)
{
    constexpr int TypeOffset = 4; // an extension field, which may be missing
    return missionCount.size() <= TypeOffset || uchar(missionCount[TypeOffset]) == FlightPlan;
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
    case mavlink::Heartbeat:
        m_heardUsec = frame.usec;
        m_armed = isArmed(message->payload);
        records.status = status(frame.usec, message->payload);
        break;
    case mavlink::SysStatus:
        m_sysStatus = message->payload;
        break;
    case mavlink::GpsRawInt:
        m_gps = message->payload;
        break;
    case mavlink::Attitude:
        m_attitude = message->payload;
        break;
    case mavlink::GlobalPositionInt:
        records.position = position(frame.usec, message->payload);
        break;
    case mavlink::MissionCurrent:
        m_place.waypoint = field<quint16>(message->payload, 0);
        break;
    case mavlink::MissionCount:
        if (isFlightPlan(message->payload)) {
            m_waypoints = field<quint16>(message->payload, 0);
        }
        break;
    default:
        break;
    }
    return records;
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

/// The first autopilot heard is the vehicle. Ground stations and payloads send heartbeats too.
bool VehicleTracker::isOurs(const mavlink::Message& message)
{
    if (message.id == mavlink::Heartbeat) {
        if (uchar(message.payload[5]) == AutopilotInvalid) {
            return false;
        }
        if (!m_vehicle) {
            m_vehicle = message.system;
        }
    }
    // The count of waypoints also comes from the ground station, while it sends the vehicle a new mission.
    const bool forVehicle =
        m_vehicle && message.id == mavlink::MissionCount && uchar(message.payload[2]) == *m_vehicle;
    return !m_vehicle || *m_vehicle == message.system || forVehicle;
}

QJsonObject VehicleTracker::position(qint64 usec, const QByteArray& payload)
{
    const double vx = field<qint16>(payload, 20);
    const double vy = field<qint16>(payload, 22);
    const auto heading = field<quint16>(payload, 26);
    const auto lat = field<qint32>(payload, 4);
    const auto lng = field<qint32>(payload, 8);
    const bool known = lat != 0 || lng != 0; // both are 0 until the first fix
    if (known) {
        m_located = true;
        m_place.lng = lng / 1e7;
        m_place.lat = lat / 1e7;
    }
    return {
        {"time", timeText(usec)},
        {"lat", known ? QJsonValue(lat / 1e7) : QJsonValue()},
        {"lng", known ? QJsonValue(lng / 1e7) : QJsonValue()},
        {"alt", field<qint32>(payload, 12) / 1e3},
        {"relative_alt", field<qint32>(payload, 16) / 1e3},
        {"speed", rounded(std::hypot(vx, vy) / 100)},
        {"heading", heading == 0xFFFF ? QJsonValue() : QJsonValue(heading / 100.0)},
    };
}

QJsonObject VehicleTracker::status(qint64 usec, const QByteArray& heartbeat) const
{
    // Every key is there: a record that lacks one would be stored with the value of the record before.
    QJsonObject record{
        {"time", timeText(usec)},
        {"flight_mode", modeName(heartbeat)},
        {"armed", isArmed(heartbeat) ? "1" : "0"},
    };
    for (const char* key :
         {"battery_voltage", "battery_remaining", "satellites", "fix_type", "roll", "pitch", "yaw"}) {
        record.insert(QLatin1String(key), QJsonValue());
    }
    if (!m_sysStatus.isEmpty()) {
        const auto millivolt = field<quint16>(m_sysStatus, 14);
        if (millivolt != 0xFFFF) {
            record["battery_voltage"] = text(millivolt / 1e3);
        }
        record["battery_remaining"] = text(field<qint8>(m_sysStatus, 30), -1);
    }
    if (!m_gps.isEmpty()) {
        record["fix_type"] = QString::number(uchar(m_gps[28]));
        record["satellites"] = text(uchar(m_gps[29]), 0xFF);
    }
    if (!m_attitude.isEmpty()) {
        record["roll"] = text(degrees(field<float>(m_attitude, 4)));
        record["pitch"] = text(degrees(field<float>(m_attitude, 8)));
        record["yaw"] = text(fullCircle(degrees(field<float>(m_attitude, 12))));
    }
    return record;
}
