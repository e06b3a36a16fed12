// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/FrameSource.h"
#include "telemetry/MavlinkCodec.h"
#include "telemetry/MavlinkMessages.h"

#include <QtCore/QQueue>

#include <random>

/// A simulated survey flight: arm, take off, fly circles, land, disarm. The same seed and number give the
/// same frames.
class FlightSimulator : public FrameSource
{
public:
    /// \param number  which flight of the project's simulated day, from 0
    /// \param interrupted  the telemetry breaks off somewhere in mid-air
    FlightSimulator(quint32 seed, int number, int minutes, bool interrupted = false);

    bool next(TelemetryFrame* frame) override;
    qint64 position() const override { return m_tick; }
    qint64 size() const override { return m_ticks; }

private:
    struct State {
        double east = 0; ///< metres from the home position
        double north = 0;
        double height = 0;
        double speed = 0;  ///< over ground, metres a second
        double course = 0; ///< radians from north
    };

    double noise(double amplitude);
    double seconds() const;
    bool armed() const;
    quint32 mode() const;
    double heightAt(double t) const;
    double surveySeconds() const;
    double surveyDone() const;
    int waypoints() const;
    State stateNow() const;
    void makeTick();
    template<typename Message>
    void add(const Message& message);
    mavlink::Heartbeat heartbeat() const;
    mavlink::SysStatus sysStatus();
    mavlink::GpsRawInt gps(const State& state);
    mavlink::Attitude attitude(const State& state);
    mavlink::GlobalPositionInt globalPosition(const State& state);
    mavlink::MissionCurrent missionCurrent() const;
    double latitude(const State& state) const;
    double longitude(const State& state) const;

    std::mt19937 m_random;
    qint64 m_startUsec;
    qint64 m_tick = 0;
    qint64 m_ticks;
    double m_duration;   ///< seconds
    double m_radius = 0; ///< of the flown circle, metres
    int m_laps = 1;
    double m_homeLat;
    double m_homeLng;
    quint8 m_sequence = 0;
    QQueue<TelemetryFrame> m_pending;
};
