// SPDX-License-Identifier: MIT
#include "FlightSimulator.h"

#include <QtCore/QDataStream>
#include <QtCore/QDateTime>
#include <QtCore/QtMath>

#include <algorithm>
#include <cmath>

namespace
{
constexpr int TicksPerSecond = 20;
constexpr int AttitudeTicks = 2;  // 10 Hz
constexpr int PositionTicks = 5;  // 4 Hz
constexpr qint64 FrameGap = 1000; // microseconds between frames of one tick
constexpr double GroundSeconds = 3;
constexpr double SurveyHeight = 40;
constexpr double ClimbRate = 4;
constexpr double ClimbSeconds = SurveyHeight / ClimbRate;
constexpr double SurveySpeed = 8;
constexpr double LapLength = 500; // about
constexpr int WaypointsPerLap = 4;
constexpr double HomeAltitude = 120;
constexpr double MetresPerDegree = 111319.5;

/// Little-endian payload, built field by field.
class Payload
{
public:
    Payload() : m_stream(&m_bytes, QIODevice::WriteOnly)
    {
        m_stream.setByteOrder(QDataStream::LittleEndian);
        m_stream.setFloatingPointPrecision(QDataStream::SinglePrecision);
    }
    template<typename T>
    Payload& operator<<(T value)
    {
        m_stream << value;
        return *this;
    }
    [[nodiscard]] const QByteArray& bytes() const { return m_bytes; }

private:
    QByteArray m_bytes;
    QDataStream m_stream;
};

qint64 startOf(quint32 seed, int number, int minutes)
{
    const QDateTime day = QDateTime(QDate(2024, 1, 1), QTime(8, 0), Qt::UTC).addDays(seed % 365);
    return (day.toMSecsSinceEpoch() + qint64(number) * (minutes + 10) * 60000) * 1000;
}
} // namespace

FlightSimulator::FlightSimulator(quint32 seed, int number, int minutes, bool interrupted)
    : m_random(seed + 7919U * quint32(number))
    , m_startUsec(startOf(seed, number, minutes))
    , m_ticks(qint64(minutes) * 60 * TicksPerSecond)
    , m_duration(minutes * 60.0)
    , m_homeLat(-35.3 + noise(0.2))
    , m_homeLng(149.1 + noise(0.2))
{
    // Whole laps, so that the survey ends above the place where it began.
    const double distance = SurveySpeed * surveySeconds();
    m_laps = std::max(1, qRound(distance / LapLength));
    m_radius = distance / m_laps / (2 * M_PI);
    if (interrupted) {
        const double end = GroundSeconds + ClimbSeconds + (0.5 + noise(0.4)) * surveySeconds();
        m_ticks = qint64(end * TicksPerSecond);
    }
}

bool FlightSimulator::next(TelemetryFrame* frame)
{
    while (m_pending.isEmpty() && m_tick < m_ticks) {
        makeTick();
        ++m_tick;
    }
    if (m_pending.isEmpty()) {
        return false;
    }
    *frame = m_pending.dequeue();
    return true;
}

/// Evenly spread. The standard library's distributions differ between platforms, the generator does not.
double FlightSimulator::noise(double amplitude)
{
    return (m_random() / double(std::mt19937::max()) * 2 - 1) * amplitude;
}

double FlightSimulator::seconds() const
{
    return double(m_tick) / TicksPerSecond;
}

bool FlightSimulator::armed() const
{
    return seconds() >= GroundSeconds / 2 && seconds() < m_duration - GroundSeconds / 2;
}

quint32 FlightSimulator::mode() const
{
    constexpr quint32 Stabilize = 0;
    constexpr quint32 Auto = 3;
    constexpr quint32 Guided = 4;
    constexpr quint32 Land = 9;
    const double left = m_duration - seconds();
    if (!armed()) {
        return Stabilize;
    }
    if (left < GroundSeconds + ClimbSeconds) {
        return Land;
    }
    return seconds() < GroundSeconds + ClimbSeconds ? Guided : Auto;
}

double FlightSimulator::heightAt(double t) const
{
    const double flown = std::min(t, m_duration - t) - GroundSeconds;
    return std::clamp(flown * ClimbRate, 0.0, SurveyHeight);
}

double FlightSimulator::surveySeconds() const
{
    return m_duration - 2 * (GroundSeconds + ClimbSeconds);
}

/// Below 0 before the survey, above 1 after it.
double FlightSimulator::surveyDone() const
{
    return (seconds() - GroundSeconds - ClimbSeconds) / surveySeconds();
}

/// The home position is the first.
int FlightSimulator::waypoints() const
{
    return 1 + m_laps * WaypointsPerLap;
}

FlightSimulator::State FlightSimulator::stateNow() const
{
    const double done = surveyDone();
    const double angle = std::clamp(done, 0.0, 1.0) * m_laps * 2 * M_PI;
    State state;
    state.east = m_radius * std::sin(angle);
    state.north = m_radius * (1 - std::cos(angle));
    state.height = heightAt(seconds());
    state.speed = done > 0 && done < 1 ? SurveySpeed : 0;
    state.course = std::atan2(std::cos(angle), std::sin(angle));
    return state;
}

void FlightSimulator::makeTick()
{
    const State state = stateNow();
    if (m_tick % TicksPerSecond == 0) {
        emitFrame(mavlink::SysStatus, sysStatus());
        emitFrame(mavlink::GpsRawInt, gps(state));
        emitFrame(mavlink::Heartbeat, heartbeat());
        emitFrame(mavlink::MissionCurrent, missionCurrent());
    }
    if (m_tick == 0) {
        emitFrame(mavlink::MissionCount, missionCount());
    }
    if (m_tick % AttitudeTicks == 0) {
        emitFrame(mavlink::Attitude, attitude(state));
    }
    if (m_tick % PositionTicks == 0) {
        emitFrame(mavlink::GlobalPositionInt, globalPosition(state));
    }
}

void FlightSimulator::emitFrame(mavlink::MessageId id, const QByteArray& payload)
{
    const qint64 usec = m_startUsec + m_tick * 1000000 / TicksPerSecond + m_pending.size() * FrameGap;
    m_pending.enqueue({usec, mavlink::encode({id, 1, 1, payload}, m_sequence++)});
}

QByteArray FlightSimulator::heartbeat() const
{
    constexpr quint8 Quadrotor = 2;
    constexpr quint8 ArduPilot = 3;
    const auto baseMode = quint8(armed() ? 0xD1 : 0x51);
    const auto systemStatus = quint8(armed() ? 4 : 3); // active, standby
    Payload payload;
    payload << mode() << Quadrotor << ArduPilot << baseMode << systemStatus << quint8(3);
    return payload.bytes();
}

QByteArray FlightSimulator::sysStatus()
{
    const double used = 0.7 * std::min(1.0, seconds() / std::max(m_duration, 1200.0));
    Payload payload;
    payload << quint32(0x3F) << quint32(0x3F) << quint32(0x3F) << quint16(350 + noise(50));
    payload << quint16(12600 - 1500 * used + noise(40)) << qint16(armed() ? 1800 + noise(300) : 60);
    for (int counter = 0; counter < 6; ++counter) {
        payload << quint16(0);
    }
    payload << qint8(100 - 100 * used);
    return payload.bytes();
}

QByteArray FlightSimulator::gps(const State& state)
{
    Payload payload;
    payload << quint64(m_startUsec + m_tick * 1000000 / TicksPerSecond) << qint32(latitude(state) * 1e7)
            << qint32(longitude(state) * 1e7) << qint32((HomeAltitude + state.height + noise(0.8)) * 1000)
            << quint16(90 + noise(10)) << quint16(140 + noise(10)) << quint16(state.speed * 100)
            << quint16(0xFFFF) << quint8(3) << quint8(12 + noise(2.9));
    return payload.bytes();
}

QByteArray FlightSimulator::attitude(const State& state)
{
    const double tilt = state.speed > 0 ? -0.12 : 0;
    Payload payload;
    payload << quint32(m_tick * 1000 / TicksPerSecond) << float(noise(0.03)) << float(tilt + noise(0.03))
            << float(state.course + noise(0.01));
    payload << float(noise(0.05)) << float(noise(0.05)) << float(noise(0.05));
    return payload.bytes();
}

QByteArray FlightSimulator::globalPosition(const State& state)
{
    const double course = qRadiansToDegrees(state.course);
    const double heading = course < 0 ? course + 360 : course;
    Payload payload;
    payload << quint32(m_tick * 1000 / TicksPerSecond) << qint32(latitude(state) * 1e7 + noise(5))
            << qint32(longitude(state) * 1e7 + noise(5))
            << qint32((HomeAltitude + state.height + noise(0.3)) * 1000)
            << qint32((state.height + noise(0.1)) * 1000)
            << qint16(state.speed * std::cos(state.course) * 100 + noise(10))
            << qint16(state.speed * std::sin(state.course) * 100 + noise(10)) << qint16(noise(5))
            << quint16(heading * 100);
    return payload.bytes();
}

QByteArray FlightSimulator::missionCount() const
{
    constexpr quint8 GroundStation = 255;
    constexpr quint8 MissionPlanner = 190;
    Payload payload;
    payload << quint16(waypoints()) << GroundStation << MissionPlanner;
    return payload.bytes();
}

/// The waypoint that the aircraft flies to.
QByteArray FlightSimulator::missionCurrent() const
{
    const int last = waypoints() - 1;
    Payload payload;
    payload << quint16(std::clamp(1 + int(surveyDone() * last), 1, last));
    return payload.bytes();
}

double FlightSimulator::latitude(const State& state) const
{
    return m_homeLat + state.north / MetresPerDegree;
}

double FlightSimulator::longitude(const State& state) const
{
    return m_homeLng + state.east / (MetresPerDegree * std::cos(qDegreesToRadians(m_homeLat)));
}
