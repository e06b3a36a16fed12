// SPDX-License-Identifier: MIT
#include "telemetry/LogFlights.h"

#include "telemetry/MavlinkCodec.h"
#include "words/Failure.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDateTime>
#include <QtCore/QFileInfo>
#include <QtCore/QStringList>

namespace
{
constexpr int FramesBetweenTellings = 1000;
constexpr qint64 Second = 1000000; // microseconds
constexpr qint64 Day = 86400 * Second;
constexpr qint64 Year2000 = 946684800 * Second;

QString fileName(const QString& path)
{
    return QFileInfo(path).fileName();
}

QString contentId(const QString& path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha1);
    const bool isRead = file.open(QIODevice::ReadOnly) && hash.addData(&file);
    return isRead ? QString::fromLatin1(hash.result().toHex()) : QString();
}

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

LogFlights::LogFlights(const QString& path, bool split, const Reading& reading)
    : m_path(path), m_id(contentId(path))
{
    SplitRule armings;
    armings.preRoll = 0;
    armings.silence = 0;
    Census census(m_flights);
    LogCutter cutter(path, census, armings);
    QVector<quint8> vehicles;
    while (cutter.step()) {
        note(cutter.frame());
        if (cutter.isVehicles() && !vehicles.contains(cutter.system())) {
            vehicles.append(cutter.system());
        }
        if (m_frames % FramesBetweenTellings == 0 && reading && !reading(cutter.log())) {
            throw Failure(Trouble::Stopped);
        }
    }
    m_size = cutter.log().size();
    m_skipped = cutter.log().skippedBytes();
    m_truncated = cutter.log().truncatedBytes();
    if (vehicles.isEmpty()) {
        vehicles.append(0);
    }
    m_rule = SplitRule::ofLog(vehicles, split);
}

void LogFlights::note(const TelemetryFrame& frame)
{
    m_firstUsec = m_frames == 0 ? frame.usec : m_firstUsec;
    m_lastUsec = frame.usec;
    ++m_frames;
    const mavlink::Soundness soundness = mavlink::judge(frame.bytes);
    m_sound += soundness == mavlink::Soundness::Sound ? 1 : 0;
    m_damaged += soundness == mavlink::Soundness::Damaged ? 1 : 0;
}

/// A frame or two are found in files of any kind.
void LogFlights::check(bool anyway) const
{
    const QString name = fileName(m_path);
    const qint64 latest = QDateTime::currentMSecsSinceEpoch() * 1000 + Day;
    if (m_frames == 0 || (m_sound == 0 && m_skipped > m_size / 2)) {
        throw Failure(Trouble::NoLog, {name});
    }
    if (anyway) {
        return;
    }
    if (m_skipped > m_size / 2) {
        throw Failure(Trouble::Unreadable, {name, QString::number(m_skipped), QString::number(m_size)});
    }
    if (m_damaged > m_sound) {
        throw Failure(Trouble::BadChecksums, {name, QString::number(m_damaged), QString::number(m_frames)});
    }
    if (m_firstUsec < Year2000 || m_lastUsec > latest) {
        const qint64 usec = m_firstUsec < Year2000 ? m_firstUsec : m_lastUsec;
        throw Failure(Trouble::BadTimes,
                      {name, QDateTime::fromMSecsSinceEpoch(usec / 1000, Qt::UTC).toString(Qt::ISODate)});
    }
}

QString LogFlights::remark() const
{
    QString remark;
    if (m_skipped > 0) {
        remark += QStringLiteral(", %1 unreadable bytes skipped").arg(m_skipped);
    }
    if (m_damaged > 0) {
        remark += QStringLiteral(", %1 frames with wrong checksums").arg(m_damaged);
    }
    if (m_truncated > 0) {
        remark += QStringLiteral(", the log is cut off at %1, in a last record of %2 bytes")
                      .arg(durationWords((m_lastUsec - m_firstUsec) / Second))
                      .arg(m_truncated);
    }
    return remark;
}

/// Of flights that are split the ends are not known beforehand.
LogOrigin LogFlights::origin() const
{
    return {fileName(m_path), m_id, m_rule.perArming ? 0 : m_lastUsec, m_skipped, m_truncated};
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
