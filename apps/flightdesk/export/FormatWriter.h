// SPDX-License-Identifier: MIT
#pragma once

#include "export/Flight.h"

#include <QtCore/QIODevice>

#include <memory>

/// Writes flights in the format of other programs, one after another and however long they are: nothing of a
/// flight is kept in memory.
class FormatWriter
{
public:
    FormatWriter() = default;
    virtual ~FormatWriter() = default;
    FormatWriter(const FormatWriter&) = delete;
    FormatWriter& operator=(const FormatWriter&) = delete;

    /// \return records that were written: messages of a telemetry log, else positions
    virtual qint64 add(Flight& flight) = 0;
    /// After the last flight.
    virtual void finish() {}
};

std::unique_ptr<FormatWriter> makeCsvWriter(QIODevice& device);
std::unique_ptr<FormatWriter> makeGeoJsonWriter(QIODevice& device);
std::unique_ptr<FormatWriter> makeGpxWriter(QIODevice& device);
std::unique_ptr<FormatWriter> makeKmlWriter(QIODevice& device);
std::unique_ptr<FormatWriter> makeTlogWriter(QIODevice& device);

/// A format by the name that is also the ending of its files.
struct ExportFormat {
    const char* name;
    const char* records; ///< what a file holds, in words
    std::unique_ptr<FormatWriter> (*makeWriter)(QIODevice& device);
};
constexpr ExportFormat ExportFormats[] = {{"tlog", "telemetry records", makeTlogWriter},
                                          {"kml", "positions", makeKmlWriter},
                                          {"gpx", "positions", makeGpxWriter},
                                          {"geojson", "positions", makeGeoJsonWriter},
                                          {"csv", "positions", makeCsvWriter}};
