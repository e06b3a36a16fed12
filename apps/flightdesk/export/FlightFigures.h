// SPDX-License-Identifier: MIT
#pragma once

#include "export/Flight.h"

#include <QtCore/QMetaType>

/// What a pilot writes down of a flight.
///
/// Airborne is who is armed, and more than 1 m above the start or faster than 3 m/s. Time and way between two
/// positions count when the aircraft was airborne at both.
struct FlightFigures {
    static constexpr qint64 LinkTimeout = 5000; ///< milliseconds without a record after which a link is lost

    qint64 start = flightTime::Unknown;
    FlightPoint place;                  ///< the first that is known
    double airborne = 0;                ///< seconds
    double distance = 0;                ///< metres over ground
    double highest = UnknownNumber;     ///< metres above the start, of the airborne positions
    double fastest = UnknownNumber;     ///< metres a second, of the airborne positions
    double batteryUsed = UnknownNumber; ///< per cent; unknown when it was changed
    QString end;                        ///< in words
    bool isLinkLost = false;            ///< nothing was heard of an armed aircraft before the recording ended
    qint64 waiting = 0;                 ///< rows for upload
    FlightGaps gaps;

    /// \param step  called at every record; may throw to stop
    static FlightFigures of(
        Flight& flight, const std::function<void()>& step = [] {});
};

Q_DECLARE_METATYPE(FlightFigures)
