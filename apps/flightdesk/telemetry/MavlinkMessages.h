// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/MavlinkTable.h"

#include <QtCore/QDataStream>
#include <QtCore/QIODevice>

#include <array>
#include <tuple>

/// The messages that the host reads and writes: their fields in the order of the wire.
namespace mavlink
{
struct Heartbeat {
    static constexpr quint32 Id = 0;
    enum : quint8 { GroundStation = 6, NoAutopilot = 8, ArmedFlag = 0x80 };
    quint32 customMode = 0;
    quint8 type = 0, autopilot = 0, baseMode = 0, systemStatus = 0, version = 3;
    auto fields() { return std::tie(customMode, type, autopilot, baseMode, systemStatus, version); }
    bool isAutopilots() const { return autopilot != NoAutopilot && type != GroundStation; }
    bool isArmed() const { return (baseMode & ArmedFlag) != 0; }
};

struct SysStatus {
    static constexpr quint32 Id = 1;
    quint32 present = 0, enabled = 0, health = 0;
    quint16 load = 0;
    quint16 millivolt = 0xFFFF; ///< 0xFFFF is unknown
    qint16 centiampere = -1;
    quint16 dropRate = 0, dropErrors = 0, errors1 = 0, errors2 = 0, errors3 = 0, errors4 = 0;
    qint8 remaining = -1; ///< per cent of the battery; -1 is unknown
    auto fields()
    {
        return std::tie(present, enabled, health, load, millivolt, centiampere, dropRate, dropErrors, errors1,
                        errors2, errors3, errors4, remaining);
    }
};

struct SystemTime {
    static constexpr quint32 Id = 2;
    quint64 unixUsec = 0; ///< 0 until the vehicle knows the time
    quint32 msec = 0;
    auto fields() { return std::tie(unixUsec, msec); }
};

struct GpsRawInt {
    static constexpr quint32 Id = 24;
    quint64 usec = 0;
    qint32 lat = 0, lng = 0, alt = 0; ///< degrees times 1e7, millimetres
    quint16 eph = 0, epv = 0, speed = 0, course = 0;
    quint8 fixType = 0;
    quint8 satellites = 0xFF; ///< 0xFF is unknown
    auto fields() { return std::tie(usec, lat, lng, alt, eph, epv, speed, course, fixType, satellites); }
};

struct Attitude {
    static constexpr quint32 Id = 30;
    quint32 msec = 0;
    float roll = 0, pitch = 0, yaw = 0; ///< radians
    float rollSpeed = 0, pitchSpeed = 0, yawSpeed = 0;
    auto fields() { return std::tie(msec, roll, pitch, yaw, rollSpeed, pitchSpeed, yawSpeed); }
};

struct GlobalPositionInt {
    static constexpr quint32 Id = 33;
    quint32 msec = 0;
    qint32 lat = 0, lng = 0;         ///< degrees times 1e7
    qint32 alt = 0, relativeAlt = 0; ///< millimetres
    qint16 vx = 0, vy = 0, vz = 0;   ///< centimetres a second
    quint16 heading = 0xFFFF;        ///< degrees times 100; 0xFFFF is unknown
    auto fields() { return std::tie(msec, lat, lng, alt, relativeAlt, vx, vy, vz, heading); }
};

struct MissionCurrent {
    static constexpr quint32 Id = 42;
    quint16 waypoint = 0;
    auto fields() { return std::tie(waypoint); }
};

struct MissionCount {
    static constexpr quint32 Id = 44;
    quint16 waypoints = 0;
    quint8 targetSystem = 0, targetComponent = 0;
    quint8 missionType = 0; ///< an extension; 0 is the flight plan, fences and rally points are others
    auto fields() { return std::tie(waypoints, targetSystem, targetComponent, missionType); }
};

struct StatusText {
    static constexpr quint32 Id = 253;
    quint8 severity = 0; ///< 0 is the worst, 7 the least
    std::array<char, 50> text{};
    auto fields() { return std::tie(severity, text); }
    QString words() const
    {
        return QString::fromUtf8(text.data(), int(qstrnlen(text.data(), uint(text.size())))).trimmed();
    }
};

template<std::size_t Size>
QDataStream& operator>>(QDataStream& stream, std::array<char, Size>& bytes)
{
    stream.readRawData(bytes.data(), int(Size));
    return stream;
}

inline void setUp(QDataStream& stream)
{
    stream.setByteOrder(QDataStream::LittleEndian);
    stream.setFloatingPointPrecision(QDataStream::SinglePrecision);
}

/// A message from its payload; what the payload lacks is zero.
template<typename Message>
Message read(const QByteArray& payload)
{
    Message message;
    QDataStream stream(payload);
    setUp(stream);
    std::apply([&stream](auto&... field) { (stream >> ... >> field); }, message.fields());
    return message;
}

/// A message's payload without extension fields.
template<typename Message>
QByteArray payload(Message message)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    setUp(stream);
    std::apply([&stream](const auto&... field) { (stream << ... << field); }, message.fields());
    return bytes.left(factsOf(Message::Id)->least);
}
} // namespace mavlink
