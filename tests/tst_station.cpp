// SPDX-License-Identifier: MIT
#include "support/FlightLog.h"
#include "support/Wire.h"

#include <csignal>
#include <numeric>
#include <sys/resource.h>
#include <unistd.h>

namespace
{
using Frames = QList<QByteArray>;

int number(const char* variable, int otherwise)
{
    bool isSet = false;
    const int value = qEnvironmentVariableIntValue(variable, &isSet);
    return isSet ? value : otherwise;
}

/// A station on a project, and what it says.
class Station : public QProcess
{
public:
    Station(const FlownProject& project, const QStringList& links, const QStringList& options = {})
    {
        QStringList arguments = project.command("station", options);
        for (const QString& link : links) {
            arguments += {"--link", link};
        }
        setProcessChannelMode(MergedChannels);
        start(QCoreApplication::applicationDirPath() + "/flightdesk", arguments);
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
        return lines.count(words) < times ? QString() : line.left(line.indexOf('\n'));
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
    void setupChildProcess() override { std::signal(SIGXFSZ, SIG_IGN); } // a limit is then a write that fails

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
    quint8 system() const { return m_system; }
    int sent() const { return m_sent; }
    QByteArray hash() const { return m_hash->result(); }

private:
    quint8 m_system;
    int m_sent = 0;
    std::shared_ptr<QCryptographicHash> m_hash =
        std::make_shared<QCryptographicHash>(QCryptographicHash::Md5);
};

int sentBy(const QVector<Stream>& streams)
{
    return std::accumulate(streams.begin(), streams.end(), 0,
                           [](int sum, const Stream& stream) { return sum + stream.sent(); });
}

/// Sends so many frames a second of each stream, a hundredth of them at a time.
void fly(QVector<Stream>* streams, double seconds, int rate,
         const std::function<void(int stream, const QByteArray& bytes)>& wire)
{
    QElapsedTimer clock;
    clock.start();
    for (int step = 0; step < seconds * 100; ++step) {
        for (int i = 0; i < streams->size(); ++i) {
            for (int frame = 0; frame < rate / 100; ++frame) {
                wire(i, (*streams)[i].next());
            }
        }
        QTest::qWait(int(qMax(qint64(0), step * 10LL - clock.elapsed())));
    }
}

/// What a process takes of the machine.
class Load
{
public:
    explicit Load(qint64 process) : m_process(process), m_memory(memory()), m_ticks(ticks())
    {
        m_clock.start();
    }

    void report() const
    {
        qInfo("%.1f s, %.1f %% of a core, %d kB at the start, %d kB at the end", m_clock.elapsed() / 1e3,
              100e3 * (ticks() - m_ticks) / sysconf(_SC_CLK_TCK) / m_clock.elapsed(), m_memory, memory());
    }

private:
    QByteArray read(const char* file) const
    {
        return TestProject::contents(QString("/proc/%1/%2").arg(m_process).arg(file));
    }
    int memory() const
    {
        return read("statm").split(' ').value(1).toInt() * int(sysconf(_SC_PAGESIZE) / 1024);
    }
    int ticks() const
    {
        const QList<QByteArray> fields = read("stat").split(' ');
        return fields.value(13).toInt() + fields.value(14).toInt();
    }

    const qint64 m_process;
    const int m_memory;
    const int m_ticks;
    QElapsedTimer m_clock;
};

/// A project that a station records into.
struct AirProject : FlownProject {
    QStringList files() const
    {
        QStringList found;
        QDirIterator it(path("project"), {"flight.kv"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            found.append(it.next());
        }
        found.sort();
        return found;
    }
    /// The frames of a mission in their order.
    static Frames framesIn(const QString& file)
    {
        Frames frames;
        if (QFileInfo(file).size() == 0) {
            return {}; // it is just being made
        }
        for (const QVariant& record :
             values(file, "SELECT message FROM flight_monitor_detail_log ORDER BY rowid")) {
            frames.append(record.toByteArray().mid(8));
        }
        return frames;
    }
    Frames frames() const
    {
        Frames all;
        for (const QString& file : files()) {
            all += framesIn(file);
        }
        return all;
    }
    int messages() const
    {
        int all = 0;
        for (const QString& file : files()) {
            all += value(file, "SELECT max(rowid) FROM flight_monitor_detail_log").toInt();
        }
        return all;
    }
    static QString end(const QString& file) { return text(file, "SELECT result FROM flight_complete"); }
    static bool hasBreakpoint(const QString& file)
    {
        return !text(file, "SELECT break_point_lng FROM flight_mission").isEmpty();
    }
};

/// Each vehicle has one mission, which holds what it sent.
void compare(const AirProject& project, const QVector<Stream>& streams)
{
    QCOMPARE(project.files().size(), streams.size());
    for (const QString& file : project.files()) {
        QCryptographicHash hash(QCryptographicHash::Md5);
        const Frames frames = AirProject::framesIn(file);
        for (const QByteArray& frame : frames) {
            hash.addData(frame);
        }
        const Stream& stream = streams.at(mavlink::headerOf(frames.constFirst()).system - 1);
        QCOMPARE(frames.size(), stream.sent());
        QCOMPARE(hash.result(), stream.hash());
    }
    qInfo("%d frames sent and stored, byte for byte", sentBy(streams));
}

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
        const QString line = station->heard(wire->link().startsWith("udp") ? "listening on" : "connected to");
        QVERIFY2(!line.isEmpty(), station->said());
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
            wire->link().startsWith("udp") ? (i % 3 == 2 ? bytes.size() : 0) : bytes.size() / 97 * 97;
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
    void recordsByteForByte_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<bool>("interrupted");
        QTest::addColumn<bool>("noise");
        QTest::newRow("udp") << "udp" << false << false;
        QTest::newRow("tcp, interrupted") << "tcp" << true << false;
        QTest::newRow("tcp, noise") << "tcp" << false << true;
        QTest::newRow("serial, interrupted, noise") << "serial" << true << true;
    }
    void recordsByteForByte()
    {
        QFETCH(QString, kind);
        QFETCH(bool, interrupted);
        QFETCH(bool, noise);
        OneLink air(kind);
        const Frames sent = flightOf(7, interrupted);
        send(air.wire.get(), sent, noise);
        QTRY_COMPARE(air.project.frames().size(), sent.size());
        QCOMPARE(air.station->end(), 0);
        QCOMPARE(air.project.files().size(), 1);
        const QString file = air.project.files().constFirst();
        QCOMPARE(AirProject::framesIn(file), sent);
        QCOMPARE(AirProject::end(file), QString(interrupted ? "interrupted" : "completed"));
        QCOMPARE(AirProject::hasBreakpoint(file), interrupted);
        QVERIFY(air.station->said().contains("vehicle-7-"));
    }

    void linkComesBack_data()
    {
        QTest::addColumn<QString>("kind");
        for (const char* kind : {"udp", "tcp", "serial"}) {
            QTest::newRow(kind) << kind;
        }
    }
    /// And what it brings goes on in the same mission.
    void linkComesBack()
    {
        QFETCH(QString, kind);
        const int pulls = number("KV_STATION_PULLS", 3);
        OneLink air(kind);
        const Frames flight = flightOf(1, true);
        const int first = flight.size() / 2; // it is armed by then
        const int part = (flight.size() - first) / pulls;
        for (int pull = 0; pull <= pulls; ++pull) {
            if (pull > 0) {
                air.wire->pull();
                if (kind != "udp") {
                    QVERIFY2(!air.station->heard("lost " + kind.toUtf8(), pull).isEmpty(),
                             air.station->said());
                }
                air.wire->plug();
                if (kind != "udp") {
                    QVERIFY2(!air.station->heard("connected to " + kind.toUtf8(), pull + 1).isEmpty(),
                             air.station->said());
                }
            }
            const int known = pull == 0 ? 0 : first + (pull - 1) * part;
            send(air.wire.get(), flight.mid(known, first + pull * part - known));
            QTRY_COMPARE(air.project.frames().size(), first + pull * part);
        }
        QCOMPARE(air.station->end(), 0);
        QCOMPARE(air.project.files().size(), 1);
        QCOMPARE(air.project.frames(), flight.mid(0, first + pulls * part));
    }

    /// And each line of what is printed for scripts is a document.
    void twoVehiclesAreTwoMissions()
    {
        AirProject project;
        Station station(project, {"udp:127.0.0.1:0"}, {"--json"});
        const auto told = [&station](const QByteArray& words) {
            return QJsonDocument::fromJson(station.heard("{\"" + words).toUtf8());
        };
        const auto wire = Wire::make("udp");
        wire->noteUp(told("event\":\"listening")["link"].toString());
        const QMap<quint8, Frames> sent{{1, flightOf(1)}, {2, flightOf(2, true)}};
        for (int i = 0; i < sent[1].size(); ++i) {
            wire->send(sent[1].at(i) + sent[2].value(i));
        }
        const int all = sent[1].size() + sent[2].size();
        QTRY_COMPARE(told("event\":\"status")["links"][0]["frames"].toInt(), all);
        const QJsonDocument status = told("event\":\"status");
        QCOMPARE(status["vehicles"][1]["mode"].toString(), QString("AUTO"));
        QTRY_COMPARE(project.frames().size(), all);
        QCOMPARE(station.end(), 0);
        QCOMPARE(project.files().size(), 2);
        for (const QString& file : project.files()) {
            const Frames stored = AirProject::framesIn(file);
            QCOMPARE(stored, sent[mavlink::headerOf(stored.constFirst()).system]);
        }
    }

    /// What was in the file stays, the flight gets its end and its breakpoint, and goes on in a new mission.
    void killedAndStartedAgain()
    {
        constexpr int Kills = 3;
        OneLink air("serial");
        const Frames flight = flightOf(1, true);
        const int part = flight.size() / (Kills + 1);
        int known = 0;
        for (int run = 0; run <= Kills; ++run) {
            const Frames sent = flight.mid(run * part, part);
            send(air.wire.get(), sent);
            QTRY_VERIFY(air.project.frames().size() >= known + part);
            if (run < Kills) {
                send(air.wire.get(), sent.mid(0, 3)); // lost, or still in the line
                air.station->killNow();
                known = air.project.frames().size();
                air.begin();
            }
        }
        QCOMPARE(air.station->end(), 0);
        const QStringList files = air.project.files();
        QCOMPARE(files.size(), Kills + 1);
        for (const QString& file : files) {
            QCOMPARE(AirProject::text(file, "PRAGMA integrity_check"), QString("ok"));
            QCOMPARE(AirProject::end(file), QString(file == files.last() ? "interrupted" : "recorder ended"));
            QVERIFY(AirProject::hasBreakpoint(file));
        }
        QVERIFY(AirProject::framesIn(files.first()).mid(0, part) == flight.mid(0, part));
        QVERIFY(QDir(air.project.path("project")).entryList({"*.open"}, QDir::Files).isEmpty());
    }

    /// Nothing is lost as long as memory holds.
    void fullDisk()
    {
        OneLink air("tcp");
        const Frames flight = flightOf(1, true);
        const auto limit = [&air](rlim_t bytes) {
            const rlimit files{bytes, RLIM_INFINITY};
            QCOMPARE(prlimit(pid_t(air.station->processId()), RLIMIT_FSIZE, &files, nullptr), 0);
        };
        send(air.wire.get(), flight.mid(0, 300));
        QTRY_COMPARE(air.project.frames().size(), 300);
        limit(4096);
        send(air.wire.get(), flight.mid(300));
        QVERIFY2(!air.station->heard("NOTHING IS WRITTEN").isEmpty(), air.station->said());
        limit(RLIM_INFINITY);
        QVERIFY2(!air.station->heard("recording goes on; 0 frames were lost").isEmpty(), air.station->said());
        QTRY_COMPARE(air.project.frames().size(), flight.size());
        QCOMPARE(air.station->end(), 0);
        QCOMPARE(air.project.frames(), flight);
    }

    /// All is uploaded while it is recorded, a breakpoint that came last with the next station.
    void uploadsBeside()
    {
        qputenv("KV_TOKEN", Token.toUtf8());
        AirProject ground;
        const IngestServer server({"--token", Token, "--ledger", ground.ledger});
        OneLink air("udp", {"--server", server.url, "--heartbeat"});
        qunsetenv("KV_TOKEN");
        const Frames flight = flightOf(1);
        send(air.wire.get(), flight);
        const auto waiting = [&air](const QString& marked) {
            int rows = 0;
            for (const QString& file : air.project.files()) {
                for (const QString& table : Tables) {
                    rows += AirProject::value(file, "SELECT count(*) FROM " + table +
                                                        " WHERE is_uploaded = " + marked)
                                .toInt();
                }
            }
            return rows;
        };
        QTRY_VERIFY_WITH_TIMEOUT(waiting("1") > flight.size() && waiting("0") == 0, 30000);
        QCOMPARE(air.wire->answer().mid(3, 1), QByteArray("\xff"));
        Station second(air.project, {"udp:127.0.0.1:0"});
        QVERIFY(second.waitForFinished());
        QCOMPARE(second.exitCode(), 1);
        QCOMPARE(air.station->end(), 0);
    }

    /// Ten vehicles on three kinds of links at once, for KV_STATION_MINUTES.
    void soak()
    {
        std::vector<std::unique_ptr<Wire>> wires;
        QStringList links;
        for (const char* kind : {"udp", "tcp", "serial"}) {
            wires.push_back(Wire::make(kind));
            links.append(wires.back()->link());
        }
        AirProject project;
        Station station(project, links);
        wires[0]->noteUp(station.heard("listening on"));
        QVERIFY(!station.heard("connected to", 2).isEmpty());
        QVector<Stream> streams;
        for (quint8 system = 1; system <= 10; ++system) {
            streams.append(Stream(system));
        }
        Load load(station.processId());
        fly(&streams, 60 * number("KV_STATION_MINUTES", 0) + 3, 200,
            [&wires](int vehicle, const QByteArray& bytes) { wires[size_t(vehicle % 3)]->send(bytes); });
        QTRY_COMPARE_WITH_TIMEOUT(project.messages(), sentBy(streams), 30000);
        load.report();
        QCOMPARE(station.end(), 0);
        compare(project, streams);
    }
    /// Killed in the middle of it all, KV_STATION_KILLS times: only what came last is missing.
    void killsUnderLoad()
    {
        OneLink air("udp");
        QVector<Stream> streams{Stream(1), Stream(2), Stream(3)};
        QVector<qint64> sentAt;
        QElapsedTimer clock;
        clock.start();
        qint64 oldestLost = 0;
        qint64 longestStart = 0;
        int known = 0;
        for (int kill = 0; kill < number("KV_STATION_KILLS", 2); ++kill) {
            const int before = sentAt.size();
            fly(&streams, 1.5 + kill % 10 * 0.07, 200, [&](int vehicle, const QByteArray& bytes) {
                air.wire->send(bytes);
                if (vehicle == 0) {
                    sentAt.append(clock.elapsed());
                }
            });
            air.station->killNow();
            const qint64 killedAt = clock.elapsed();
            const QStringList files = air.project.files();
            QVERIFY(files.size() >= known + streams.size());
            for (const QString& file : files.mid(known)) {
                QCOMPARE(AirProject::text(file, "PRAGMA integrity_check"), QString("ok"));
                const int stored = AirProject::framesIn(file).size();
                oldestLost = qMax(oldestLost, killedAt - sentAt.value(before + stored, killedAt));
            }
            known = files.size();
            air.begin();
            const qint64 began = clock.elapsed();
            longestStart = qMax(longestStart, began - killedAt);
        }
        qInfo("the oldest frame that was lost came %lld ms before the kill; listening again after %lld ms",
              oldestLost, longestStart);
        QVERIFY(oldestLost < 5000);
    }
    void burst()
    {
        const bool isShort = !qEnvironmentVariableIsSet("KV_STATION_MINUTES");
        OneLink air("udp");
        QVector<Stream> streams{Stream(1)};
        Load load(air.station->processId());
        fly(&streams, isShort ? 1 : 10, isShort ? 2000 : 20000,
            [&air](int, const QByteArray& bytes) { air.wire->send(bytes); });
        QTRY_COMPARE_WITH_TIMEOUT(air.project.messages(), sentBy(streams), 60000);
        load.report();
        QCOMPARE(air.station->end(), 0);
        compare(air.project, streams);
    }

    void badInput_data()
    {
        QTest::addColumn<QStringList>("links");
        QTest::addColumn<QString>("words");
        const auto row = [](const char* link, const char* words) {
            QTest::newRow(link) << QString(link).split(' ') << words;
        };
        row("ftp:there", "write udp:[ADDRESS]:PORT, tcp:HOST:PORT or serial:DEVICE:BAUD");
        row("udp::65536", "no port from 0 to 65535; write udp:[ADDRESS]:PORT");
        row("udp:no.address:1", "no address");
        row("udp:14550", "write udp:[ADDRESS]:PORT");
        row("tcp:host", "write tcp:HOST:PORT");
        row("serial:COM1:57600", "write serial:DEVICE:BAUD");
        row("serial:/dev/ttyUSB0:7", "no speed");
        row("serial:/dev/null:57600", "no serial line");
        row("udp::14550 udp:127.0.0.1:14550", "same port as udp:0.0.0.0:14550");
        row("tcp:a:1 tcp:a:1", "same port");
        row("serial:/dev/x:57600 serial:/dev/x:9600", "same port");
    }
    void badInput()
    {
        QFETCH(QStringList, links);
        QFETCH(QString, words);
        AirProject project;
        Station station(project, links);
        QVERIFY(station.waitForFinished());
        QCOMPARE(station.end(), 2);
        QVERIFY2(station.said().contains(words.toUtf8()), station.said());
        QCOMPARE(station.said().count('\n'), 1);
    }
};

QTEST_GUILESS_MAIN(tst_station)
#include "tst_station.moc"
