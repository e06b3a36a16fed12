// SPDX-License-Identifier: MIT
#include "telemetry/FlightSimulator.h"
#include "telemetry/FlightSplitter.h"
#include "telemetry/FrameReader.h"
#include "telemetry/LinkQuality.h"

#include <QtTest/QtTest>

#include <random>

namespace
{
constexpr quint32 Foreign = 0x9C41; // in no public definition
/// As a ground station sent it in 2015. Today's message of that id is longer.
const QByteArray Former = QByteArray::fromHex("fe0500ff008effffffff016537");

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

/// A flight's frames, of both versions, signed ones and such of unknown messages among them.
QList<QByteArray> mixedFrames(int minutes)
{
    QList<QByteArray> frames;
    FlightSimulator flight(1, 0, minutes);
    for (TelemetryFrame frame; flight.next(&frame);) {
        const int kind = frames.size() % 100;
        const auto message = mavlink::decode(frame.bytes);
        const quint8 extra = mavlink::factsOf(message->id)->extra;
        frames.append(kind == 7       ? frame2(Foreign, 99, frame.bytes.mid(1), kind)
                      : kind == 60    ? Former
                      : kind % 3 == 0 ? frame.bytes
                                      : frame2(message->id, extra, message->payload, kind, kind % 3 == 1));
    }
    return frames;
}

/// Flights as text: the vehicle, the letters of the frames before and in the flight, and why it ended.
class Flights : public FlightSplitter::Sink
{
public:
    void began(int flight, const FlightStart& start) override
    {
        text.insert(flight, QString("%1:").arg(start.system));
        for (const TelemetryFrame& before : start.preRoll) {
            frame(flight, before);
        }
        text[flight] += '|';
    }
    void frame(int flight, const TelemetryFrame& frame) override
    {
        inOrder = inOrder && frame.usec >= m_latest.value(flight);
        m_latest[flight] = frame.usec;
        text[flight] += letters.value(frame.bytes);
    }
    void ended(int flight, const QString& reason) override { text[flight] += ' ' + reason; }

    QMap<int, QString> text;
    QHash<QByteArray, QChar> letters;
    bool inOrder = true; ///< no flight's stamps run backwards

private:
    QMap<int, qint64> m_latest;
};

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
        const auto frames = mixedFrames(20);
        QList<QByteArray> found;
        QVector<int> whole; // 1: came as it was sent
        FrameReader reader;
        for (const QByteArray& frame : frames) {
            QByteArray sent;
            for (const char byte : frame) {
                const auto fate = random() % 600;
                sent += fate == 0   ? QByteArray(1, char(random())) + byte
                        : fate == 1 ? QByteArray()
                        : fate == 2 ? QByteArray(1, char(uchar(byte) ^ (1U << random() % 8)))
                                    : QByteArray(1, byte);
            }
            whole.append(sent == frame ? 1 : 0);
            reader.feed(sent);
            found += readAll(&reader);
        }
        auto next = frames.cbegin();
        int undamaged = 0;
        for (const QByteArray& frame : qAsConst(found)) {
            next = std::find_if(next, frames.cend(), [&](const QByteArray& sent) {
                return unsignedPart(sent) == unsignedPart(frame);
            });
            QVERIFY2(next != frames.cend(), frame.toHex());
            undamaged += whole[int(next - frames.cbegin())];
            ++next;
        }
        QVERIFY(undamaged >= whole.count(1) * 0.99);
    }
    void readsStreamsAndDatagrams()
    {
        const auto frames = mixedFrames(1);
        for (const int chunk : {1, 7, 100000}) {
            FrameReader reader;
            QList<QByteArray> found;
            const QByteArray all = QByteArrayList(frames).join();
            for (int i = 0; i < all.size(); i += chunk) {
                reader.feed(all.mid(i, chunk));
                found += readAll(&reader);
            }
            QCOMPARE(found, frames);
            QCOMPARE(reader.counts().noiseBytes, quint64(0));
        }
        FrameReader reader;
        QList<QByteArray> found;
        for (int i = 0; i < frames.size(); ++i) {
            for (const QByteArray& datagram :
                 {frames[i], i % 100 == 90 ? frames[i].chopped(1) : QByteArray()}) {
                reader.feed(datagram); // nothing continues in the next one
                reader.endOfDatagram();
                found += readAll(&reader);
            }
        }
        QCOMPARE(found, frames);
    }
    void countsLostFrames()
    {
        const std::pair<QList<int>, int> cases[] = {{{7, 8, 9}, 0},  {{254, 255, 0, 1}, 0}, {{254, 1}, 2},
                                                    {{5, 5, 6}, 0},  {{5, 7, 6, 8}, 1},     {{200, 0, 1}, 55},
                                                    {{100, 0, 1}, 0}};
        for (const auto& [sequences, lost] : cases) {
            LinkQuality quality;
            for (const int sequence : sequences) {
                for (const quint8 system : {1, 2}) { // each has numbers of its own
                    quality.take(mavlink::encode({42, system, 1, "ww"}, quint8(sequence)));
                }
            }
            QCOMPARE(int(quality.lost()), 2 * lost);
            QCOMPARE(int(quality.sender(2).lost), lost);
        }
    }
    void cutsFlights()
    {
        // A letter a second. A, a and B, b: heartbeats of two vehicles, armed and disarmed; x, y: their other
        // components; g: the ground station; r: a radio, which never sends a heartbeat; .: nothing.
        struct Case {
            const char* seen;
            SplitRule rule;
            QStringList flights;
        };
        const SplitRule live{3000000, 2000000, 20000000, false, true, {}};
        SplitRule split = SplitRule::ofLog({1, 2}, true);
        split.preRoll = live.preRoll;
        split.landing = live.landing;
        const SplitRule whole = SplitRule::ofLog({1, 2}, false);
        const Case cases[] = {
            {"agxaxAAxgaxgaxgx", live, {"1:xax|AAxgaxg disarmed"}},
            {"aAaxAaxxxxx", live, {"1:a|AaxAaxx disarmed"}},            // armed again at once
            {"aAaaaaaaaA", live, {"1:a|Aaaa disarmed", "1:aaa|A end"}}, // and later
            {"aAaaaaA", live, {"1:a|Aaaa disarmed", "1:a|A end"}},      // no frame in two flights
            {"abAyBxgbbyaxg", live, {"1:a|Axgaxg end", "2:by|Bgbby disarmed"}},
            {"aArrrrrA", live, {"1:a|ArrrrrA end"}},
            {"aArxrxrxrxA", live, {"1:a|AxxrrrxrxA end"}},
            {"xxxA", live, {"1:xxx|A end"}},
            {"aAyxbxA", live, {"1:a|AxxA end"}}, // not known to be another vehicle's when it came
            {"aA.........................A", live, {"1:a|A link lost", "1:|A end"}},
            {"gxaAaaaaaaAaagbyAB",
             split,
             {"1:|gxaAaaa disarmed", "1:aaa|Aaag disarmed", "2:|byB end", "1:|A end"}},
            {"gxbaAaaaBggA", whole, {"1:|gxaAaaaggA end", "2:|bBgg end"}},
            {"gxxr", SplitRule::ofLog({}, true), {"0:|gxxr end"}},
        };
        for (const Case& flown : cases) {
            const QByteArray armed = QByteArray::fromHex("000000000203800403");
            const QByteArray disarmed = QByteArray::fromHex("000000000203000403");
            const QMap<char, mavlink::Message> messages{
                {'A', {0, 1, 1, armed}},   {'a', {0, 1, 1, disarmed}},
                {'B', {0, 2, 1, armed}},   {'b', {0, 2, 1, disarmed}},
                {'x', {42, 1, 154, "ww"}}, {'y', {42, 2, 154, "ww"}},
                {'r', {42, 51, 68, "ww"}}, {'g', {0, 255, 190, QByteArray::fromHex("000000000608000403")}}};
            Flights flights;
            FlightSplitter splitter(flights, flown.rule);
            qint64 usec = 0;
            for (const char* letter = flown.seen; *letter; ++letter) {
                usec += 1000000;
                if (*letter == '.') {
                    splitter.pass(usec);
                    continue;
                }
                const QByteArray frame = mavlink::encode(messages[*letter], 0);
                flights.letters.insert(frame, *letter);
                splitter.take({usec, frame}, 0);
            }
            splitter.endAll("end");
            QCOMPARE(QStringList(flights.text.values()), flown.flights);
            QVERIFY2(flights.inOrder, flown.seen);
        }
    }
};

QTEST_GUILESS_MAIN(tst_telemetry)
#include "tst_telemetry.moc"
