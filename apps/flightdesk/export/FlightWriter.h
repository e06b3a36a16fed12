// SPDX-License-Identifier: MIT
#pragma once

#include "export/Flight.h"

#include <QtCore/QIODevice>

#include <memory>

/// Writes flights in the format of other programs, one after another and however long they are: nothing of a
/// flight is kept in memory.
class FlightWriter
{
public:
    FlightWriter() = default;
    virtual ~FlightWriter() = default;
    FlightWriter(const FlightWriter&) = delete;
    FlightWriter& operator=(const FlightWriter&) = delete;

    /// \return records that were written: messages of a telemetry log, else positions
    virtual qint64 add(Flight& flight) = 0;
    /// After the last flight.
    virtual void finish() {}
};

std::unique_ptr<FlightWriter> makeCsvWriter(QIODevice& device);
std::unique_ptr<FlightWriter> makeGeoJsonWriter(QIODevice& device);
std::unique_ptr<FlightWriter> makeGpxWriter(QIODevice& device);
std::unique_ptr<FlightWriter> makeKmlWriter(QIODevice& device);
std::unique_ptr<FlightWriter> makeTlogWriter(QIODevice& device);

/// A format by the name that is also the ending of its files.
struct ExportFormat {
    const char* name;
    const char* records; ///< what a file holds, in words
    std::unique_ptr<FlightWriter> (*makeWriter)(QIODevice& device);
};
constexpr ExportFormat ExportFormats[] = {{"tlog", "telemetry records", makeTlogWriter},
                                          {"kml", "positions", makeKmlWriter},
                                          {"gpx", "positions", makeGpxWriter},
                                          {"geojson", "positions", makeGeoJsonWriter},
                                          {"csv", "positions", makeCsvWriter}};
