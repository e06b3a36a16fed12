// SPDX-License-Identifier: MIT
#include "export/FormatWriter.h"
#include "telemetry/MavlinkCodec.h"
#include "telemetry/VehicleTracker.h"

#include <KvAlgorthm.h>

#include <QtCore/QtEndian>

#include <algorithm>

namespace
{
constexpr int StampLength = 8;

bool isFrame(const QByteArray& bytes)
{
    return bytes.size() >= mavlink::PrefixLength && mavlink::frameLength(bytes.constData()) == bytes.size();
}

/// Times for frames that were stored without: those of the positions and status records that came of them.
class StampsOfRecords
{
public:
    explicit StampsOfRecords(Flight& flight)
        : m_positions(flight.walk(PosDataTableName, {QStringLiteral("time")}))
        , m_statuses(flight.walk(UasStatusTableName, {QStringLiteral("time")}))
        , m_msec(flightTime::read(flight.mission().startedAt))
    {
    }

    /// \param createdAt  of the message's row, for a flight that tells no time
    QByteArray stamp(const QByteArray& frame, const QString& createdAt)
    {
        const VehicleTracker::Records records = m_tracker.take({0, frame});
        if (records.position) {
            advance(m_positions);
        }
        if (records.status) {
            advance(m_statuses);
        }
        if (m_msec == flightTime::Unknown) {
            m_msec = flightTime::read(createdAt);
        }
        QByteArray stamp(StampLength, '\0');
        qToBigEndian(std::max(m_msec, qint64(0)) * 1000, stamp.data());
        return stamp;
    }

private:
    void advance(RowWalk& rows)
    {
        const QVector<QVariant>* const row = rows.next();
        const qint64 told = row ? flightTime::read(row->constFirst().toString()) : flightTime::Unknown;
        m_msec = std::max(m_msec, told); // a log that runs backwards is cut there by those who read it
    }

    VehicleTracker m_tracker;
    RowWalk m_positions;
    RowWalk m_statuses;
    qint64 m_msec;
};

/// The telemetry log as it came: records of a time stamp and a frame.
class TlogWriter : public FormatWriter
{
public:
    explicit TlogWriter(QIODevice& device) : m_device(device) {}

    qint64 add(Flight& flight) override
    {
        flight.gaps = {};
        qint64 written = 0;
        StampsOfRecords stamps(flight);
        RowWalk rows =
            flight.walk(FlightLogTableName, {QStringLiteral("message"), QStringLiteral("created_at")});
        while (const QVector<QVariant>* const row = rows.next()) {
            const QByteArray message = row->constFirst().toByteArray();
            if (isFrame(message)) {
                m_device.write(stamps.stamp(message, row->at(1).toString()));
                ++flight.gaps.unstamped;
            } else if (!isFrame(message.mid(StampLength))) {
                ++flight.gaps.damaged;
                flight.gaps.damagedBytes += message.size();
                continue;
            }
            m_device.write(message);
            ++written;
        }
        flight.gaps.unreadable = rows.unreadable();
        return written;
    }

private:
    QIODevice& m_device;
};
} // namespace

std::unique_ptr<FormatWriter> makeTlogWriter(QIODevice& device)
{
    return std::make_unique<TlogWriter>(device);
}
