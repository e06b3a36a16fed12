// SPDX-License-Identifier: MIT
#include "telemetry/FlightSimulator.h"

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
constexpr quint8 GroundStation = 255;
constexpr quint8 MissionPlanner = 190;
constexpr double MetresPerDegree = 111319.5;

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
        add(sysStatus());
        add(gps(state));
        add(heartbeat());
        add(missionCurrent());
    }
    if (m_tick == 0) {
        add(mavlink::MissionCount{quint16(waypoints()), GroundStation, MissionPlanner});
    }
    if (m_tick % AttitudeTicks == 0) {
        add(attitude(state));
    }
    if (m_tick % PositionTicks == 0) {
        add(globalPosition(state));
    }
}

template<typename Message>
void FlightSimulator::add(const Message& message)
{
    const qint64 usec = m_startUsec + m_tick * 1000000 / TicksPerSecond + m_pending.size() * FrameGap;
    m_pending.enqueue({usec, mavlink::encode({Message::Id, 1, 1, mavlink::payload(message)}, m_sequence++)});
}

mavlink::Heartbeat FlightSimulator::heartbeat() const
{
    constexpr quint8 Quadrotor = 2;
    constexpr quint8 ArduPilot = 3;
    constexpr quint8 Active = 4;
    constexpr quint8 Standby = 3;
    return {mode(), Quadrotor, ArduPilot, quint8(armed() ? 0xD1 : 0x51), armed() ? Active : Standby};
}

mavlink::SysStatus FlightSimulator::sysStatus()
{
    const double used = 0.7 * std::min(1.0, seconds() / std::max(m_duration, 1200.0));
    mavlink::SysStatus status{0x3F, 0x3F, 0x3F};
    status.load = quint16(350 + noise(50));
    status.millivolt = quint16(12600 - 1500 * used + noise(40));
    status.centiampere = qint16(armed() ? 1800 + noise(300) : 60);
    status.remaining = qint8(100 - 100 * used);
    return status;
}

mavlink::GpsRawInt FlightSimulator::gps(const State& state)
{
    return {quint64(m_startUsec + m_tick * 1000000 / TicksPerSecond),
            qint32(latitude(state) * 1e7),
            qint32(longitude(state) * 1e7),
            qint32((HomeAltitude + state.height + noise(0.8)) * 1000),
            quint16(90 + noise(10)),
            quint16(140 + noise(10)),
            quint16(state.speed * 100),
            0xFFFF,
            3,
            quint8(12 + noise(2.9))};
}

mavlink::Attitude FlightSimulator::attitude(const State& state)
{
    const double tilt = state.speed > 0 ? -0.12 : 0;
    return {quint32(m_tick * 1000 / TicksPerSecond),
            float(noise(0.03)),
            float(tilt + noise(0.03)),
            float(state.course + noise(0.01)),
            float(noise(0.05)),
            float(noise(0.05)),
            float(noise(0.05))};
}

mavlink::GlobalPositionInt FlightSimulator::globalPosition(const State& state)
{
    const double course = qRadiansToDegrees(state.course);
    return {quint32(m_tick * 1000 / TicksPerSecond),
            qint32(latitude(state) * 1e7 + noise(5)),
            qint32(longitude(state) * 1e7 + noise(5)),
            qint32((HomeAltitude + state.height + noise(0.3)) * 1000),
            qint32((state.height + noise(0.1)) * 1000),
            qint16(state.speed * std::cos(state.course) * 100 + noise(10)),
            qint16(state.speed * std::sin(state.course) * 100 + noise(10)),
            qint16(noise(5)),
            quint16((course < 0 ? course + 360 : course) * 100)};
}

/// The waypoint that the aircraft flies to.
mavlink::MissionCurrent FlightSimulator::missionCurrent() const
{
    const int last = waypoints() - 1;
    return {quint16(std::clamp(1 + int(surveyDone() * last), 1, last))};
}

double FlightSimulator::latitude(const State& state) const
{
    return m_homeLat + state.north / MetresPerDegree;
}

double FlightSimulator::longitude(const State& state) const
{
    return m_homeLng + state.east / (MetresPerDegree * std::cos(qDegreesToRadians(m_homeLat)));
}
