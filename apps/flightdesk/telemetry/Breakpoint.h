// SPDX-License-Identifier: MIT
#pragma once

#include "words/Latin1.h"

#include <QtCore/QJsonObject>
#include <QtCore/QString>

#include <optional>

/// Where a mission stopped, so that it can be resumed there.
struct Breakpoint {
    int waypoint = 0; ///< index of the last one; 0 also when unknown
    double lng = 0;   ///< degrees
    double lat = 0;
    double completion = 0; ///< per cent of the mission's waypoints; 0 also when unknown

    /// In words, with the six decimals that are stored.
    QString text() const
    {
        return QStringLiteral("waypoint %1 at %2, %3")
            .arg(QString::number(waypoint), QString::number(lng, 'f', 6), QString::number(lat, 'f', 6));
    }
    QJsonObject json() const
    {
        return {{"waypoint"_l1, waypoint}, {"lng"_l1, lng}, {"lat"_l1, lat}, {"completion"_l1, completion}};
    }
};

/// How a flight ended that did not end with a disarmed aircraft.
struct Interruption {
    QString reason;
    std::optional<Breakpoint> breakpoint; ///< nothing when the position is not known
};
