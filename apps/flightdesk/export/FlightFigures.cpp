// SPDX-License-Identifier: MIT
#include "export/FlightFigures.h"

#include <QtCore/QtMath>

#include <optional>

namespace
{
constexpr double AirborneHeight = 1;
constexpr double AirborneSpeed = 3;
constexpr double EarthRadius = 6371008.8; // metres, mean

/// Metres over ground along the great circle.
double distance(const FlightPoint& from, const FlightPoint& to)
{
    const double lat1 = qDegreesToRadians(from.lat);
    const double lat2 = qDegreesToRadians(to.lat);
    const double north = std::sin((lat2 - lat1) / 2);
    const double east = std::sin(qDegreesToRadians(to.lng - from.lng) / 2);
    const double half = north * north + std::cos(lat1) * std::cos(lat2) * east * east;
    return 2 * EarthRadius * std::asin(std::min(1.0, std::sqrt(half)));
}

/// The larger one of what is known.
double larger(double a, double b)
{
    return std::isnan(a) || a < b ? b : a;
}

/// Adds up positions in the order in which they were flown.
class Sum
{
public:
    explicit Sum(FlightFigures& figures) : m_figures(figures) {}

    void add(FlightPoint point, bool armed)
    {
        if (std::isnan(m_startAlt)) {
            m_startAlt = point.alt;
        }
        if (std::isnan(point.relativeAlt)) {
            point.relativeAlt = point.alt - m_startAlt;
        }
        if (point.hasPlace() && !m_figures.place.hasPlace()) {
            m_figures.place = point;
        }
        const bool airborne = armed && (point.relativeAlt > AirborneHeight || point.speed > AirborneSpeed);
        if (airborne) {
            m_figures.highest = larger(m_figures.highest, point.relativeAlt);
            m_figures.fastest = larger(m_figures.fastest, point.speed);
            if (m_before) {
                addWay(*m_before, point);
            }
        }
        m_before = airborne ? std::optional(point) : std::nullopt;
    }

private:
    void addWay(const FlightPoint& from, const FlightPoint& to)
    {
        m_figures.airborne += std::max(0.0, double(to.msec - from.msec) / 1000);
        if (from.hasPlace() && to.hasPlace()) {
            m_figures.distance += distance(from, to);
        }
    }

    FlightFigures& m_figures;
    double m_startAlt = UnknownNumber;
    std::optional<FlightPoint> m_before; ///< the last position, where the aircraft was airborne
};

QString endOf(const Flight& flight, bool isSilent)
{
    const MissionCount& mission = flight.mission();
    if (mission.isIncomplete) {
        return mission.incompleteWords();
    }
    if (mission.completedAt.isEmpty()) {
        return QStringLiteral("not ended");
    }
    if (mission.result == QLatin1String("completed")) {
        return QStringLiteral("landed");
    }
    const QString how = isSilent ? QStringLiteral("link lost") : QStringLiteral("interrupted");
    return mission.breakpoint && mission.breakpoint->waypoint > 0
               ? QStringLiteral("%1 at waypoint %2").arg(how).arg(mission.breakpoint->waypoint)
               : how;
}
} // namespace

FlightFigures FlightFigures::of(Flight& flight, const std::function<void()>& step)
{
    FlightFigures figures;
    qint64 lastHeard = flightTime::Unknown;
    double first = UnknownNumber;
    double last = UnknownNumber;
    flight.statuses([&](const FlightStatus& status) {
        step();
        lastHeard = status.msec;
        const QVariant& percent = status.values.at(FlightStatus::Percent);
        if (!percent.isNull()) {
            last = percent.toDouble();
            first = std::isnan(first) ? last : first;
        }
    });
    figures.batteryUsed = first >= last ? first - last : UnknownNumber;
    Sum sum(figures);
    flight.positionsWithStatus([&](const FlightPoint& point, const FlightStatus& status) {
        step();
        sum.add(point, status.isArmed());
    });
    figures.gaps = flight.gaps;
    figures.start = flight.start();
    const bool isSilent = lastHeard != flightTime::Unknown && flight.end() != flightTime::Unknown &&
                          flight.end() - lastHeard > LinkTimeout;
    figures.isLinkLost = isSilent && flight.mission().result == QLatin1String("interrupted");
    figures.end = endOf(flight, isSilent);
    figures.waiting = flight.waiting();
    return figures;
}
