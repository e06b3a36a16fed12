// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/Autopilot.h"
#include "telemetry/Breakpoint.h"
#include "telemetry/FrameSource.h"

#include <QtCore/QJsonObject>
#include <QtCore/QString>

#include <optional>

/// Turns the telemetry of one vehicle into position and status records.
class VehicleTracker
{
public:
    /// What one frame gives; neither record has ids yet.
    struct Records {
        std::optional<QJsonObject> position; ///< numbers as numbers
        std::optional<QJsonObject> status;   ///< every value as text; null is unknown
    };

    Records take(const TelemetryFrame& frame);

    /// What kept the flight from its regular end; nothing when the aircraft was disarmed when last heard.
    /// \param endUsec  time of the telemetry's last frame
    std::optional<Interruption> interruption(qint64 endUsec) const;

    /// Seconds by which the vehicle's own clock, once its GPS has set it, is ahead of the frames' stamps;
    /// nothing when the two agree, or before it was told.
    std::optional<double> clockOffset() const;

    /// ISO 8601 in UTC with milliseconds.
    static QString timeText(qint64 usec);

private:
    bool isOurs(const mavlink::Message& message);
    void note(qint64 usec, const mavlink::SystemTime& time);
    QJsonObject status(qint64 usec, const mavlink::Heartbeat& heartbeat) const;
    QJsonObject position(qint64 usec, const mavlink::GlobalPositionInt& here);

    Autopilot m_autopilot;
    std::optional<mavlink::SysStatus> m_sysStatus; ///< the latest, nothing until the first
    std::optional<mavlink::GpsRawInt> m_gps;
    std::optional<mavlink::Attitude> m_attitude;
    std::optional<double> m_clockOffset; ///< the latest
    qint64 m_heardUsec = 0;              ///< latest heartbeat
    bool m_armed = false;
    int m_waypoints = 0; ///< of the mission, 0 until told
    Breakpoint m_place;  ///< where the vehicle is now
    bool m_located = false;
};
