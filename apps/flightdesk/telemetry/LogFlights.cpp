// SPDX-License-Identifier: MIT
#include "telemetry/LogFlights.h"

#include "telemetry/MavlinkCodec.h"
#include "telemetry/MavlinkMessages.h"

#include <QtCore/QStringList>

namespace
{
/// Notes whose the flights are.
class Census : public FlightSplitter::Sink
{
public:
    void began(int, const FlightStart& start) override { systems.append(start.system); }
    void frame(int, const TelemetryFrame&) override {}
    void ended(int, const QString&) override {}

    QVector<quint8> systems; ///< of the flights, in their order
};

/// A splitter that is fed from a log.
class LogCutter
{
public:
    LogCutter(FrameSource& log, FlightSplitter::Sink& sink, const SplitRule& rule)
        : m_log(log), m_splitter(sink, rule)
    {
    }

    /// Feeds the next frame; at the end of the log all flights end, and it says false.
    bool step()
    {
        TelemetryFrame frame;
        if (!m_log.next(&frame)) {
            m_splitter.endAll(QString());
            return false;
        }
        frame.usec = m_stamps.next(frame.usec); // what a flight's length is measured by
        m_splitter.take(frame, 0);
        return true;
    }

private:
    FrameSource& m_log;
    FlightSplitter m_splitter;
    SteadyStamps m_stamps;
};

/// One of the flights that a log is cut into.
class CutFlight : public FrameSource, private FlightSplitter::Sink
{
public:
    /// \param number  of the splitter's, from 1
    CutFlight(const QString& path, const SplitRule& rule, int number)
        : m_log(path), m_cutter(m_log, *this, rule), m_number(number)
    {
    }

    bool next(TelemetryFrame* frame) override
    {
        while (m_frames.isEmpty() && !m_ended) {
            m_ended = !m_cutter.step() || m_ended;
        }
        if (m_frames.isEmpty()) {
            return false;
        }
        *frame = m_frames.dequeue();
        return true;
    }
    qint64 position() const override { return m_log.position(); }
    qint64 size() const override { return m_log.size(); }
    QString error() const override { return m_log.error(); }

private:
    void began(int flight, const FlightStart& start) override
    {
        for (const TelemetryFrame& before : start.preRoll) {
            CutFlight::frame(flight, before);
        }
    }
    void frame(int flight, const TelemetryFrame& frame) override
    {
        if (flight == m_number) {
            m_frames.enqueue(frame);
        }
    }
    void ended(int flight, const QString&) override { m_ended = m_ended || flight == m_number; }

    TelemetryLog m_log;
    LogCutter m_cutter;
    const int m_number;
    QQueue<TelemetryFrame> m_frames; ///< read and not taken yet
    bool m_ended = false;
};
} // namespace

LogFlights::LogFlights(const QString& path, bool split, qint64 preRoll) : m_path(path), m_log(path)
{
    findVehicles();
    m_rule.perArming = split;
    m_rule.preRoll = preRoll;
    if (split || m_rule.vehicles.size() > 1) {
        findFlights();
    }
    if (m_names.size() < 2) {
        m_names = QStringList{QString()};
    }
}

void LogFlights::findVehicles()
{
    m_rule = SplitRule::ofLog({}, true);
    TelemetryFrame frame;
    while (m_log.next(&frame)) {
        const mavlink::Header header = mavlink::headerOf(frame.bytes);
        if (header.id != mavlink::Heartbeat::Id || m_rule.vehicles.contains(header.system)) {
            continue;
        }
        const auto message = mavlink::decode(frame.bytes);
        if (message && mavlink::read<mavlink::Heartbeat>(message->payload).isAutopilots()) {
            m_rule.vehicles.append(header.system);
        }
    }
}

void LogFlights::findFlights()
{
    TelemetryLog log(m_path);
    Census census;
    LogCutter cutter(log, census, m_rule);
    while (cutter.step()) {
    }
    QMap<quint8, int> flown;
    for (const quint8 system : qAsConst(census.systems)) {
        const int number = ++flown[system];
        QStringList words;
        if (m_rule.vehicles.size() > 1) {
            words.append(QStringLiteral("system %1").arg(system));
        }
        if (census.systems.count(system) > 1) {
            words.append(QStringLiteral("flight %1").arg(number));
        }
        m_names.append(QStringLiteral(" (%1)").arg(words.join(QStringLiteral(", "))));
    }
}

std::unique_ptr<FrameSource> LogFlights::open(int flight) const
{
    if (count() == 1) {
        return std::make_unique<TelemetryLog>(m_path);
    }
    return std::make_unique<CutFlight>(m_path, m_rule, flight + 1);
}
