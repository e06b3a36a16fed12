// SPDX-License-Identifier: MIT
#include "record/LogRecorder.h"

#include "Failure.h"

#include <QtCore/QCoreApplication>

#include <algorithm>
#include <iterator>
#include <utility>

namespace
{
constexpr int FramesAtOnce = 500;
} // namespace

LogRecorder::LogRecorder(Project project, const MissionFormat& format, const QString& path, bool split)
    : m_project(std::move(project))
    , m_format(format)
    , m_path(path)
    , m_file(path)
    , m_flights(path, split)
    , m_cutter(m_flights.cut(*this))
{
}

bool LogRecorder::step()
{
    for (int i = 0; i < FramesAtOnce; ++i) {
        if (!m_cutter.step()) {
            return false;
        }
    }
    QCoreApplication::processEvents();
    return true;
}

QVector<RecordedFlight> LogRecorder::flights() const
{
    QVector<RecordedFlight> flights;
    std::copy(m_recorded.cbegin(), m_recorded.cend(), std::back_inserter(flights));
    if (flights.isEmpty()) {
        RecordedFlight none;
        none.name = m_path;
        none.error = QStringLiteral("holds no telemetry frame");
        flights.append(none);
    }
    for (RecordedFlight& flight : flights) {
        if (!log().error().isEmpty()) {
            flight.error = QStringLiteral("cannot be read: %1").arg(log().error());
        }
    }
    return flights;
}

void LogRecorder::began(int flight, const FlightStart& start)
{
    m_recorded[flight].name = m_flights.name(start.system, ++m_flown[start.system]);
    for (const TelemetryFrame& before : start.preRoll) {
        frame(flight, before);
    }
}

/// What cannot be written ends a flight; the log's others go on.
void LogRecorder::frame(int flight, const TelemetryFrame& frame)
{
    RecordedFlight& recorded = m_recorded[flight];
    if (!recorded.error.isEmpty()) {
        return;
    }
    try {
        std::unique_ptr<FlightRecorder>& recorder = m_recorders[flight];
        if (!recorder) {
            recorder = std::make_unique<FlightRecorder>(m_project, m_format);
            recorder->begin(frame.usec, m_file.completeBaseName() + recorded.name, QStringLiteral("unknown"),
                            m_file.fileName());
        }
        recorder->take(frame);
    } catch (const Failure& failure) {
        recorded.error = failure.words();
    }
}

void LogRecorder::ended(int flight, const QString&)
{
    const auto recorder = m_recorders.find(flight);
    if (recorder == m_recorders.end()) {
        return;
    }
    RecordedFlight& recorded = m_recorded[flight];
    const QString name = m_path + recorded.name;
    const QString error = recorded.error;
    recorded = error.isEmpty() ? recorder->second->end(0) : recorder->second->flight();
    recorded.name = name;
    recorded.error = error.isEmpty() ? recorded.error : error;
    m_recorders.erase(recorder);
}
