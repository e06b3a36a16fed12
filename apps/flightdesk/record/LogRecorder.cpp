// SPDX-License-Identifier: MIT
#include "record/LogRecorder.h"

#include "words/Failure.h"

#include <QtCore/QCoreApplication>

#include <algorithm>
#include <iterator>
#include <utility>

namespace
{
constexpr int FramesAtOnce = 500;
} // namespace

LogRecorder::LogRecorder(Project project, const MissionFormat& format, const QString& path,
                         const LogFlights& flights)
    : m_project(std::move(project))
    , m_format(format)
    , m_path(path)
    , m_file(path)
    , m_flights(flights)
    , m_cutter(m_flights.cut(*this))
{
}

bool LogRecorder::step()
{
    try {
        for (int i = 0; i < FramesAtOnce; ++i) {
            if (!m_cutter.step()) {
                return false;
            }
        }
        for (const auto& recorder : m_recorders) {
            recorder.second->check();
        }
    } catch (const Failure& failure) {
        breakOff(failure);
        return false;
    }
    QCoreApplication::processEvents();
    return true;
}

void LogRecorder::breakOff(const Failure& why)
{
    while (!m_recorders.empty()) {
        const auto first = m_recorders.begin();
        keep(first->first, first->second->breakOff(why));
    }
}

QVector<RecordedFlight> LogRecorder::flights() const
{
    QVector<RecordedFlight> flights;
    std::copy(m_recorded.cbegin(), m_recorded.cend(), std::back_inserter(flights));
    return flights;
}

void LogRecorder::began(int flight, const FlightStart& start)
{
    m_recorded[flight].name = m_flights.name(start.system, ++m_flown[start.system]);
    for (const TelemetryFrame& before : start.preRoll) {
        frame(flight, before);
    }
}

void LogRecorder::frame(int flight, const TelemetryFrame& frame)
{
    std::unique_ptr<FlightRecorder>& recorder = m_recorders[flight];
    if (!recorder) {
        recorder = std::make_unique<FlightRecorder>(m_project, m_format);
        recorder->begin(frame.usec, m_file.completeBaseName() + m_recorded[flight].name,
                        QStringLiteral("unknown"), m_flights.origin());
    }
    recorder->take(frame);
}

void LogRecorder::ended(int flight, const QString&)
{
    const auto recorder = m_recorders.find(flight);
    if (recorder != m_recorders.end()) {
        keep(flight, recorder->second->end(0));
    }
}

void LogRecorder::keep(int flight, RecordedFlight recorded)
{
    recorded.name = m_path + m_recorded[flight].name;
    recorded.remark = recorded.incomplete.isEmpty() ? m_flights.remark() : QString();
    m_recorded[flight] = recorded;
    m_recorders.erase(flight);
}
