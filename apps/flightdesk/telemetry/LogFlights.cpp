// SPDX-License-Identifier: MIT
#include "telemetry/LogFlights.h"

#include "telemetry/MavlinkCodec.h"

#include <QtCore/QStringList>

namespace
{
constexpr int FramesBetweenTellings = 1000;

/// Counts the flights of each vehicle.
class Census : public FlightSplitter::Sink
{
public:
    explicit Census(QMap<quint8, int>& flights) : m_flights(flights) {}

    void began(int, const FlightStart& start) override { ++m_flights[start.system]; }
    void frame(int, const TelemetryFrame&) override {}
    void ended(int, const QString&) override {}

private:
    QMap<quint8, int>& m_flights;
};

/// One of the flights of a log that has one for each vehicle.
class CutFlight : public FrameSource, private FlightSplitter::Sink
{
public:
    CutFlight(const QString& path, const SplitRule& rule, quint8 vehicle)
        : m_cutter(path, *this, rule), m_vehicle(vehicle)
    {
    }

    bool next(TelemetryFrame* frame) override
    {
        bool goesOn = true;
        while (m_frames.isEmpty() && goesOn) {
            goesOn = m_cutter.step();
        }
        if (m_frames.isEmpty()) {
            return false;
        }
        *frame = m_frames.dequeue();
        return true;
    }
    qint64 position() const override { return m_cutter.log().position(); }
    qint64 size() const override { return m_cutter.log().size(); }
    QString error() const override { return m_cutter.log().error(); }

private:
    void began(int flight, const FlightStart& start) override
    {
        m_flight = start.system == m_vehicle ? flight : m_flight; // nothing is before a vehicle's first one
    }
    void frame(int flight, const TelemetryFrame& frame) override
    {
        if (flight == m_flight) {
            m_frames.enqueue(frame);
        }
    }
    void ended(int, const QString&) override {}

    LogCutter m_cutter;
    const quint8 m_vehicle;
    int m_flight = 0;                ///< 0 until it begins
    QQueue<TelemetryFrame> m_frames; ///< read and not taken yet
};
} // namespace

bool LogCutter::step()
{
    if (!m_log.next(&m_frame)) {
        m_splitter.endAll(QString());
        return false;
    }
    m_frame.usec = m_stamps.next(m_frame.usec);
    m_splitter.take(m_frame, 0);
    return true;
}

quint8 LogCutter::system() const
{
    return mavlink::headerOf(m_frame.bytes).system;
}

LogFlights::LogFlights(const QString& path, bool split, const Reading& reading) : m_path(path)
{
    SplitRule armings;
    armings.preRoll = 0;
    armings.silence = 0;
    Census census(m_flights);
    LogCutter cutter(path, census, armings);
    QVector<quint8> vehicles;
    for (int frames = 1; cutter.step(); ++frames) {
        if (cutter.isVehicles() && !vehicles.contains(cutter.system())) {
            vehicles.append(cutter.system());
        }
        if (frames % FramesBetweenTellings == 0 && reading && !reading(cutter.log())) {
            break;
        }
    }
    if (vehicles.isEmpty()) {
        vehicles.append(0);
    }
    m_rule = SplitRule::ofLog(vehicles, split);
}

QString LogFlights::name(quint8 vehicle, int number) const
{
    QStringList words;
    if (vehicles().size() > 1) {
        words.append(QStringLiteral("system %1").arg(vehicle));
    }
    if (m_rule.perArming && m_flights.value(vehicle) > 1) {
        words.append(QStringLiteral("flight %1").arg(number));
    }
    return words.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(words.join(QStringLiteral(", ")));
}

std::unique_ptr<FrameSource> LogFlights::open(quint8 vehicle) const
{
    return std::make_unique<CutFlight>(m_path, SplitRule::ofLog(vehicles(), false), vehicle);
}
