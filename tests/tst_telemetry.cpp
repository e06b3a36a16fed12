// SPDX-License-Identifier: MIT
#include "telemetry/FlightSimulator.h"
#include "telemetry/FlightSplitter.h"
#include "telemetry/FrameReader.h"
#include "telemetry/LinkQuality.h"
#include "telemetry/SteadyStamps.h"

#include <QtTest/QtTest>

#include <random>

namespace
{
constexpr quint32 Foreign = 0x9C41; // in no public definition

/// A MAVLink 2 frame, its payload's last zeros cut off.
QByteArray frame2(quint32 id, quint8 extra, const QByteArray& payload, int sequence, bool isSigned = false)
{
    int length = payload.size();
    while (length > 1 && payload[length - 1] == '\0') {
        --length;
    }
    QByteArray frame("\xFD");
    for (const uint byte :
         {uint(length), isSigned ? 1U : 0U, 0U, uint(sequence), 1U, 1U, id & 0xFF, id >> 8, id >> 16}) {
        frame.append(char(byte));
    }
    frame += payload.left(length);
    const quint16 crc = mavlink::checksum(frame.constData() + 1, frame.size() - 1, extra);
    return frame + char(crc & 0xFF) + char(crc >> 8) + (isSigned ? QByteArray(13, 'S') : QByteArray());
}

/// A flight's frames, of both versions, signed ones and such of an unknown message among them.
QList<QByteArray> mixedFrames(int minutes)
{
    QList<QByteArray> frames;
    FlightSimulator flight(1, 0, minutes);
    for (TelemetryFrame frame; flight.next(&frame);) {
        const int kind = frames.size() % 100;
        const auto message = mavlink::decode(frame.bytes);
        const quint8 extra = mavlink::factsOf(message->id)->extra;
        frames.append(kind == 7       ? frame2(Foreign, 99, frame.bytes.mid(1), kind)
                      : kind % 3 == 0 ? frame.bytes
                                      : frame2(message->id, extra, message->payload, kind, kind % 3 == 1));
    }
    return frames;
}

QList<QByteArray> readAll(FrameReader* reader)
{
    QList<QByteArray> frames;
    for (QByteArray frame; reader->next(&frame);) {
        frames.append(frame);
    }
    return frames;
}
} // namespace

class tst_telemetry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// One byte in 200 is flipped, comes in between or is lost.
    void findsFramesInNoise()
    {
        std::mt19937 random(17);
        const auto unsignedPart = [](const QByteArray& frame) {
            return mavlink::isSigned(frame) ? frame.chopped(13) : frame; // no checksum covers the rest
        };
        QList<QByteArray> whole, sound, found;
        FrameReader reader;
        for (const QByteArray& frame : mixedFrames(20)) {
            QByteArray sent;
            int damagedAt = frame.size();
            for (int i = 0; i < frame.size(); ++i) {
                const auto fate = random() % 600;
                sent += fate == 0   ? QByteArray(1, char(random())) + frame[i]
                        : fate == 1 ? QByteArray()
                        : fate == 2 ? QByteArray(1, char(uchar(frame[i]) ^ (1U << random() % 8)))
                                    : QByteArray(1, frame[i]);
                damagedAt = fate == 1 || fate == 2 || (fate == 0 && i > 0) ? qMin(damagedAt, i) : damagedAt;
            }
            if (damagedAt == frame.size()) {
                whole.append(frame);
            }
            if (damagedAt >= unsignedPart(frame).size()) {
                sound.append(unsignedPart(frame));
            }
            reader.feed(sent);
            found += readAll(&reader);
        }
        auto nextSound = sound.cbegin();
        auto nextWhole = whole.cbegin();
        int undamaged = 0;
        for (const QByteArray& frame : qAsConst(found)) {
            nextSound = std::find(nextSound, sound.cend(), unsignedPart(frame));
            QVERIFY2(nextSound != sound.cend(), frame.toHex());
            ++nextSound;
            const auto at = std::find(nextWhole, whole.cend(), frame);
            if (at != whole.cend()) {
                nextWhole = at + 1;
                ++undamaged;
            }
        }
        QVERIFY(undamaged >= whole.size() * 0.99);
    }
    void readsCleanStreamsAndDatagrams()
    {
        for (const int chunk : {1, 7, 100000}) {
            for (const bool datagrams : {false, true}) {
                FrameReader reader;
                QList<QByteArray> found;
                const auto frames = mixedFrames(1);
                QByteArray all;
                for (const QByteArray& frame : frames) {
                    if (datagrams) {
                        reader.feed(frame);
                        reader.endOfDatagram();
                        found += readAll(&reader);
                    }
                    all += frame;
                }
                for (int i = 0; i < all.size() && !datagrams; i += chunk) {
                    reader.feed(all.mid(i, chunk));
                    found += readAll(&reader);
                }
                QCOMPARE(found, frames);
                QCOMPARE(reader.counts().noiseBytes, quint64(0));
            }
        }
    }
    void keepsStampsInOrder()
    {
        const qint64 year = 365LL * 24 * 3600 * 1000000;
        for (const auto& leaps : QList<QList<qint64>>{
                 {0}, {0, -year, 0}, {0, year, 0}, {0, -year, year, 0}, {0, year, -year}, {0, -5000000}}) {
            SteadyStamps stamps;
            qint64 clock = 1448000000000000, last = clock, leap = 0;
            int i = 0;
            for (const qint64 next : leaps) {
                for (int second = 0; second < 60; ++second, ++i) {
                    leap = next;
                    const qint64 stamp = stamps.next(clock + leap + i * 1000000LL);
                    QVERIFY(stamp >= last);
                    last = stamp;
                }
            }
            const qint64 lost = qAbs(last - clock - (i - 1) * 1000000LL);
            QVERIFY2(lost <= 5000000 * leaps.size(), qPrintable(QString::number(lost)));
        }
    }
};

QTEST_GUILESS_MAIN(tst_telemetry)
#include "tst_telemetry.moc"
