// SPDX-License-Identifier: MIT
#include "support/FlightLog.h"
#include "support/Wire.h"

#include <algorithm>
#include <csignal>
#include <numeric>
#include <sys/resource.h>

namespace
{
using Frames = QList<QByteArray>;

/// A station on a project, and what it says.
class Station : public QProcess
{
public:
    Station(const FlownProject& project, const QStringList& links, const QStringList& options = {})
    {
        QStringList arguments = project.command("station"_l1, options);
        for (const QString& link : links) {
            arguments += {"--link"_l1, link};
        }
        setProcessChannelMode(MergedChannels);
        std::signal(SIGXFSZ, SIG_IGN); // inherited: a limit is then a write that fails
        start(QCoreApplication::applicationDirPath() + "/flightdesk"_l1, arguments);
    }
    ~Station() override { end(); }

    /// Waits until it has said these words so many times; its latest line with them.
    QString heard(const QByteArray& words, int times = 1)
    {
        do {
            m_said += readAll();
        } while (m_said.count(words) < times && waitForReadyRead(20000));
        const QByteArray lines = m_said.left(m_said.lastIndexOf('\n') + 1);
        const QByteArray line = lines.mid(lines.lastIndexOf(words));
        return lines.count(words) < times ? QString() : QString::fromUtf8(line.left(line.indexOf('\n')));
    }
    int end()
    {
        terminate();
        waitForFinished(30000);
        m_said += readAll();
        return exitStatus() == NormalExit ? exitCode() : -1;
    }
    void killNow()
    {
        kill();
        waitForFinished();
    }
    QByteArray said() const { return m_said; }

private:
    QByteArray m_said;
};

/// Frames of an armed vehicle without end, and the hash of those that were sent.
class Stream
{
public:
    explicit Stream(quint8 system) : m_system(system) {}

    QByteArray next()
    {
        mavlink::Message message{mavlink::Attitude::Id, m_system, 1,
                                 mavlink::payload(mavlink::Attitude{quint32(m_sent)})};
        if (m_sent % 100 == 0) {
            message.id = mavlink::Heartbeat::Id;
            message.payload = mavlink::payload(mavlink::Heartbeat{0, 2, 3, 0x80});
        }
        QByteArray frame = mavlink::encode(message, quint8(m_sent++));
        m_hash->addData(frame);
        return frame;
    }
    int sent() const { return m_sent; }
    QByteArray hash() const { return m_hash->result(); }

private:
    quint8 m_system;
    int m_sent = 0;
    std::shared_ptr<QCryptographicHash> m_hash =
        std::make_shared<QCryptographicHash>(QCryptographicHash::Md5);
};

/// Sends so many frames a second of the first streams, a hundredth of them at a time.
void fly(QVector<Stream>* streams, int count, int seconds, int rate,
         const std::vector<std::unique_ptr<Wire>>& wires)
{
    QElapsedTimer clock;
    clock.start();
    for (int step = 0; step < seconds * 100; ++step) {
        for (int i = 0; i < count; ++i) {
            for (int frame = 0; frame < rate / 100; ++frame) {
                wires[size_t(i) % wires.size()]->send((*streams)[i].next());
            }
        }
        QTest::qWait(int(qMax(qint64(0), step * 10LL - clock.elapsed())));
    }
}

/// A project that a station records into.
struct AirProject : FlownProject {
    /// The frames of a mission in their order.
    static Frames framesIn(const QString& file)
    {
        Frames frames;
        if (QFileInfo(file).size() == 0) {
            return {}; // it is just being made
        }
        for (const QVariant& record :
             values(file, "SELECT message FROM flight_monitor_detail_log ORDER BY rowid"_l1)) {
            frames.append(record.toByteArray().mid(8));
        }
        return frames;
    }
    Frames frames() const
    {
        Frames all;
        for (const QString& file : missionFiles()) {
            all += framesIn(file);
        }
        return all;
    }
    int messages() const
    {
        int all = 0;
        for (const QString& file : missionFiles()) {
            all += value(file, "SELECT max(rowid) FROM flight_monitor_detail_log"_l1).toInt();
        }
        return all;
    }
    static QString end(const QString& file) { return text(file, "SELECT result FROM flight_complete"_l1); }
    static bool hasBreakpoint(const QString& file)
    {
        return !text(file, "SELECT break_point_lng FROM flight_mission"_l1).isEmpty();
    }
};

/// A station that listens to one wire.
struct OneLink {
    explicit OneLink(const QString& kind, QStringList options = {})
        : wire(Wire::make(kind)), m_options(std::move(options))
    {
        begin();
    }
    void begin()
    {
        station = std::make_unique<Station>(project, QStringList(wire->link()), m_options);
        const QString line =
            station->heard(wire->link().startsWith("udp"_l1) ? "listening on" : "connected to");
        QVERIFY2(!line.isEmpty(), station->said().constData());
        wire->noteUp(line);
    }

    AirProject project;
    std::unique_ptr<Wire> wire;
    std::unique_ptr<Station> station;

private:
    QStringList m_options;
};

/// Sends frames in pieces that begin and end anywhere, but for datagrams; noise stands between some.
void send(Wire* wire, const Frames& frames, bool noise = false)
{
    QByteArray bytes;
    for (int i = 0; i < frames.size(); ++i) {
        bytes += frames.at(i);
        if (noise && i % 50 == 25 &&
            i + 50 < frames.size()) { // a false beginning takes what follows to be found out
            bytes += "\xFD\x09 noise \xFE\xFF";
        }
        const int size =
            wire->link().startsWith("udp"_l1) ? (i % 3 == 2 ? bytes.size() : 0) : bytes.size() / 97 * 97;
        wire->send(bytes.left(size));
        bytes.remove(0, size);
    }
    wire->send(bytes);
}
} // namespace

class tst_station : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recordsByteForByte()
    {
        for (const auto& [kind, interrupted, noise] : {std::tuple("udp", false, false),
                                                       {"tcp", true, false},
                                                       {"tcp", false, true},
                                                       {"serial", true, true}}) {
            OneLink air{QLatin1String(kind)};
            const Frames sent = flightOf(7, interrupted);
            send(air.wire.get(), sent, noise);
            QTRY_COMPARE(air.project.frames().size(), sent.size());
            QCOMPARE(air.station->end(), 0);
            QCOMPARE(air.project.missionFiles().size(), 1);
            const QString file = air.project.missionFiles().constFirst();
            QCOMPARE(AirProject::framesIn(file), sent);
            QCOMPARE(AirProject::end(file), QLatin1String(interrupted ? "interrupted" : "completed"));
            QCOMPARE(AirProject::hasBreakpoint(file), interrupted);
            QVERIFY(air.station->said().contains("vehicle-7-"));
        }
    }

    /// And what it brings goes on in the same mission.
    void linkComesBack()
    {
        for (const char* kind : {"udp", "tcp", "serial"}) {
            const int pulls = environmentNumber("KV_STATION_PULLS", 3);
            OneLink air{QLatin1String(kind)};
            const Frames flight = flightOf(1, true);
            const int first = flight.size() / 2; // it is armed by then
            const int part = (flight.size() - first) / pulls;
            for (int pull = 0; pull <= pulls; ++pull) {
                if (pull > 0) {
                    const bool isTold = *kind != 'u';
                    air.wire->pull();
                    QVERIFY2(!isTold || !air.station->heard(QByteArray("lost ") + kind, pull).isEmpty(),
                             kind);
                    air.wire->plug();
                    QVERIFY2(!isTold ||
                                 !air.station->heard(QByteArray("connected to ") + kind, pull + 1).isEmpty(),
                             kind);
                }
                const int known = pull == 0 ? 0 : first + (pull - 1) * part;
                send(air.wire.get(), flight.mid(known, first + pull * part - known));
                QTRY_COMPARE(air.project.frames().size(), first + pull * part);
            }
            QCOMPARE(air.station->end(), 0);
            QCOMPARE(air.project.missionFiles().size(), 1);
            QCOMPARE(air.project.frames(), flight.mid(0, first + pulls * part));
        }
    }

    /// And each line of what is printed for scripts is a document.
    void twoVehiclesAreTwoMissions()
    {
        AirProject project;
        Station station(project, {"udp:127.0.0.1:0"_l1}, {"--json"_l1});
        const auto told = [&station](const QByteArray& words) {
            return QJsonDocument::fromJson(station.heard("{\"" + words).toUtf8());
        };
        const auto wire = Wire::make("udp"_l1);
        wire->noteUp(told("event\":\"listening")["link"_l1].toString());
        const QMap<quint8, Frames> sent{{1, flightOf(1)}, {2, flightOf(2, true)}};
        for (int i = 0; i < sent[1].size(); ++i) {
            wire->send(sent[1].at(i) + sent[2].value(i));
        }
        const int all = sent[1].size() + sent[2].size();
        QTRY_COMPARE(told("event\":\"status")["links"_l1][0]["frames"_l1].toInt(), all);
        const QJsonDocument status = told("event\":\"status");
        QCOMPARE(status["vehicles"_l1][1]["mode"_l1].toString(), "AUTO"_l1);
        QTRY_COMPARE(project.frames().size(), all);
        QCOMPARE(station.end(), 0);
        QCOMPARE(project.missionFiles().size(), 2);
        for (const QString& file : project.missionFiles()) {
            const Frames stored = AirProject::framesIn(file);
            QCOMPARE(stored, sent[mavlink::headerOf(stored.constFirst()).system]);
        }
    }

    /// What was in the file stays, the flight gets its end and its breakpoint, and goes on in a new mission.
    void killedAndStartedAgain()
    {
        const int kills = environmentNumber("KV_STATION_KILLS", 3);
        OneLink air("serial"_l1);
        const Frames flight = flightOf(1, true);
        const int part = flight.size() / (kills + 1);
        int known = 0;
        for (int run = 0; run <= kills; ++run) {
            const Frames sent = flight.mid(run * part, part);
            send(air.wire.get(), sent);
            QTRY_VERIFY(air.project.frames().size() >= known + part);
            if (run < kills) {
                send(air.wire.get(), sent.mid(0, 3)); // lost, or still in the line
                air.station->killNow();
                known = air.project.frames().size();
                air.begin();
            }
        }
        QCOMPARE(air.station->end(), 0);
        QStringList files = air.project.missionFiles(); // those of one second in any order
        std::sort(files.begin(), files.end(), [](const QString& one, const QString& other) {
            const QString begin = "SELECT started_at FROM flight_mission"_l1;
            return AirProject::text(one, begin) < AirProject::text(other, begin);
        });
        QCOMPARE(files.size(), kills + 1);
        for (const QString& file : files) {
            QCOMPARE(AirProject::text(file, "PRAGMA integrity_check"_l1), "ok"_l1);
            QCOMPARE(AirProject::end(file),
                     QLatin1String(file == files.last() ? "interrupted" : "recorder ended"));
            QVERIFY(AirProject::hasBreakpoint(file));
        }
        QVERIFY(AirProject::framesIn(files.first()).mid(0, part) == flight.mid(0, part));
        QVERIFY(QDir(air.project.path("project"_l1)).entryList({"*.open"_l1}, QDir::Files).isEmpty());
    }

    /// Nothing is lost as long as memory holds.
    void fullDisk()
    {
        OneLink air("tcp"_l1);
        const Frames flight = flightOf(1, true);
        const auto limit = [&air](rlim_t bytes) {
            const rlimit files{bytes, RLIM_INFINITY};
            QCOMPARE(prlimit(pid_t(air.station->processId()), RLIMIT_FSIZE, &files, nullptr), 0);
        };
        send(air.wire.get(), flight.mid(0, 300));
        QTRY_COMPARE(air.project.frames().size(), 300);
        limit(4096);
        send(air.wire.get(), flight.mid(300));
        QVERIFY2(!air.station->heard("NOTHING IS WRITTEN").isEmpty(), air.station->said().constData());
        limit(RLIM_INFINITY);
        QVERIFY2(!air.station->heard("recording goes on; 0 frames were lost").isEmpty(),
                 air.station->said().constData());
        QTRY_COMPARE(air.project.frames().size(), flight.size());
        QCOMPARE(air.station->end(), 0);
        QCOMPARE(air.project.frames(), flight);
    }

    /// All is uploaded while it is recorded, a breakpoint that came last with the next station.
    void uploadsBeside()
    {
        qputenv("KV_TOKEN", Token.toUtf8());
        AirProject ground;
        const IngestServer server({"--token"_l1, Token, "--ledger"_l1, ground.ledger});
        OneLink air("udp"_l1, {"--server"_l1, server.url, "--heartbeat"_l1});
        qunsetenv("KV_TOKEN");
        const Frames flight = flightOf(1);
        send(air.wire.get(), flight);
        const auto waiting = [&air](const QString& marked) {
            int rows = 0;
            for (const QString& file : air.project.missionFiles()) {
                for (const QString& table : Tables) {
                    rows += AirProject::value(file, "SELECT count(*) FROM "_l1 + table +
                                                        " WHERE is_uploaded = "_l1 + marked)
                                .toInt();
                }
            }
            return rows;
        };
        QTRY_VERIFY_WITH_TIMEOUT(waiting("1"_l1) > flight.size() && waiting("0"_l1) == 0, 30000);
        QCOMPARE(air.wire->answer().mid(3, 1), QByteArray("\xff"));
        Station second(air.project, {"udp:127.0.0.1:0"_l1});
        QVERIFY(second.waitForFinished());
        QCOMPARE(second.exitCode(), 1);
        QCOMPARE(air.station->end(), 0);
    }

    /// Ten vehicles on three kinds of links at once, for KV_STATION_MINUTES, and then one in a burst: each
    /// has one mission, which holds what it sent.
    void soak()
    {
        std::vector<std::unique_ptr<Wire>> wires;
        QStringList links;
        for (const char* kind : {"udp", "tcp", "serial"}) {
            wires.push_back(Wire::make(QLatin1String(kind)));
            links.append(wires.back()->link());
        }
        const AirProject project;
        Station station(project, links);
        wires[0]->noteUp(station.heard("listening on"));
        QVERIFY(!station.heard("connected to", 2).isEmpty());
        QVector<Stream> streams;
        for (quint8 system = 1; system <= 10; ++system) {
            streams.append(Stream(system));
        }
        const int minutes = environmentNumber("KV_STATION_MINUTES", 0);
        fly(&streams, streams.size(), 60 * minutes + 3, 200, wires);
        fly(&streams, 1, minutes > 0 ? 10 : 1, minutes > 0 ? 20000 : 2000, wires);
        const int sent = std::accumulate(streams.begin(), streams.end(), 0,
                                         [](int sum, const Stream& stream) { return sum + stream.sent(); });
        QTRY_COMPARE_WITH_TIMEOUT(project.messages(), sent, 60000);
        QCOMPARE(station.end(), 0);
        QCOMPARE(project.missionFiles().size(), streams.size());
        for (const QString& file : project.missionFiles()) {
            QCryptographicHash hash(QCryptographicHash::Md5);
            const Frames frames = AirProject::framesIn(file);
            for (const QByteArray& frame : frames) {
                hash.addData(frame);
            }
            const Stream& stream = streams.at(mavlink::headerOf(frames.constFirst()).system - 1);
            QCOMPARE(frames.size(), stream.sent());
            QCOMPARE(hash.result(), stream.hash());
        }
        qInfo("%d frames sent and stored, byte for byte", sent);
    }

    void badInput()
    {
        for (const auto& [links, words] :
             {std::pair("ftp:there", "write udp:[ADDRESS]:PORT, tcp:HOST:PORT or serial:DEVICE:BAUD"),
              {"udp::65536", "no port from 0 to 65535; write udp:[ADDRESS]:PORT"},
              {"udp:no.address:1", "no address"},
              {"udp:14550", "write udp:[ADDRESS]:PORT"},
              {"tcp:host", "write tcp:HOST:PORT"},
              {"serial:COM1:57600", "write serial:DEVICE:BAUD"},
              {"serial:/dev/ttyUSB0:7", "no speed"},
              {"serial:/dev/null:57600", "no serial line"},
              {"udp::14550 udp:127.0.0.1:14550", "same port as udp:0.0.0.0:14550"},
              {"tcp:a:1 tcp:a:1", "same port"},
              {"serial:/dev/x:57600 serial:/dev/x:9600", "same port"}}) {
            AirProject project;
            Station station(project, QString::fromLatin1(links).split(u' '));
            QVERIFY(station.waitForFinished());
            QCOMPARE(station.end(), 2);
            QVERIFY2(station.said().contains(words), station.said().constData());
            QCOMPARE(station.said().count('\n'), 1);
        }
    }
};

QTEST_GUILESS_MAIN(tst_station)
#include "tst_station.moc"
