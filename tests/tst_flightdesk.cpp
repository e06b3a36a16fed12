// SPDX-License-Identifier: MIT
#include "command/Commands.h"
#include "record/FlightRecorder.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"
#include "telemetry/FlightSimulator.h"
#include "telemetry/TelemetryLog.h"
#include "upload/Backlog.h"
#include "upload/Uploader.h"

#include <QtTest/QtTest>

namespace
{
const QByteArray Stamp = QByteArray::fromHex("00051a2b3c4d5e6f");
const QByteArray Payload = QByteArray::fromHex("050000000203d10400");

/// Parts of a log, a letter each: a heartbeat of MAVLink 1 (a) and 2 (b: signed, its last zero cut off), a
/// message that nobody decodes (u), the heartbeat with a wrong checksum (w), u with a wrong length (l).
QByteArray frame(QChar letter)
{
    const QByteArray a = mavlink::encode({mavlink::Heartbeat::Id, 1, 1, Payload}, 7);
    const QByteArray u = QByteArray::fromHex("fe04010101c801020304aabb");
    QByteArray b = QByteArray::fromHex("fd080100000101000000") + Payload.left(8);
    const quint16 crc = mavlink::checksum(b.constData() + 1, b.size() - 1, 50);
    b += QByteArray(1, char(crc & 0xFF)) + char(crc >> 8) + QByteArray(13, 'S');
    const QByteArray w = a.left(8) + 'x' + a.mid(9), l = QByteArray("\xFE\x20") + u.mid(2);
    return QMap<QChar, QByteArray>{{u'a', a}, {u'b', b}, {u'u', u}, {u'w', w}, {u'l', l}}.value(letter);
}
} // namespace

class tst_flightdesk : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void decodesCheckedFramesOnly()
    {
        QCOMPARE(mavlink::checksum("12345678", 8, '9'),
                 quint16(0x6F91)); // the checksum's published check value
        for (const QChar good : QStringLiteral("ab")) {
            QCOMPARE(mavlink::decode(frame(good)).value_or(mavlink::Message()).payload, Payload);
            QVERIFY(!mavlink::decode(frame(good).chopped(1)));
        }
        QVERIFY(!mavlink::decode(frame(u'w')) && !mavlink::decode(frame(u'u')));
    }
    void readsLogs()
    {
        // In the logs, j: 60 bytes of garbage; a digit: so many bytes are missing at the end.
        const char* const cases[][2] = {
            {"", " skipped 0 truncated 0"},         {"abuwa", "abuwa skipped 0 truncated 0"},
            {"ujbu", "ubu skipped 60 truncated 0"}, {"jabj", "ab skipped 120 truncated 0"},
            {"ab9", "a skipped 0 truncated 32"},    {"au1", "a skipped 0 truncated 19"},
            {"albu", "abu skipped 20 truncated 0"}, {"jjj", " skipped 180 truncated 0"},
        };
        for (const auto& [log, expected] : cases) {
            QByteArray bytes;
            for (const QChar c : QString::fromLatin1(log)) {
                const QByteArray junk = QByteArray(60, char(0xEE)).replace(20, 1, "\xFE");
                bytes = c.isDigit() ? bytes.chopped(c.digitValue())
                                    : bytes + (c == u'j' ? junk : Stamp + frame(c));
            }
            const TestProject project;
            TelemetryLog reader(project.file("a.tlog"_l1, bytes));
            QString read;
            for (TelemetryFrame next; reader.next(&next);) {
                QCOMPARE(next.usec, qint64(0x00051a2b3c4d5e6f));
                for (const QChar c : QStringLiteral("abuwl")) {
                    read += next.bytes == frame(c) ? QString(c) : QString();
                }
            }
            read += QStringLiteral(" skipped %1 truncated %2")
                        .arg(reader.skippedBytes())
                        .arg(reader.truncatedBytes());
            QCOMPARE(read, QLatin1String(expected));
        }
    }
    void recordsWhatWasFlown()
    {
        const TestProject folder;
        FlightSimulator flight(5, 2, 1), again(5, 2, 1);
        const auto recorded =
            FlightRecorder(Project::make(folder.path("p"_l1))).record(flight, "n"_l1, "a"_l1);
        QCOMPARE(recorded.error, QString());
        QVariantList flown;
        for (TelemetryFrame next; again.next(&next);) {
            flown.append(next.logRecord());
        }
        const auto values = [&](const char* sql) {
            return TestProject::values(recorded.file, QLatin1String(sql));
        };
        QCOMPARE(values("SELECT message FROM flight_monitor_detail_log ORDER BY rowid"), flown);
        // The first heartbeat comes before any attitude: unknown must not become a neighbour's value.
        QCOMPARE(values("SELECT time IS min(time) FROM uas_status WHERE roll IS NULL"), QVariantList{1});
        QVERIFY(values("SELECT 1 FROM pos_data WHERE relative_alt > 39 AND typeof(lng) = 'real'").size() >
                50);
        QVERIFY(!values("SELECT 1 FROM uas_status WHERE armed = 1 AND flight_mode = 'LAND'").isEmpty());
    }
    /// The vehicle says its time with every frame; the row's time is that of the clock here.
    void keepsTimesInOrder()
    {
        constexpr qint64 Start = 1448000000000000, Second = 1000000, Year = 365LL * 86400 * Second;
        struct Case {
            std::optional<double> known; // before the flight
            qint64 vehicle;              // its time, less ours; 0: it knows none
            QList<qint64> leaps;         // of our clock, every 10 s
            const char* stored;          // the offset, and whether the row was sent again
        };
        const Case cases[] = {
            {{}, 0, {0, -Year, Year}, "- 1"},
            {{}, 0, {0, Year, 0}, "- 1"},
            {{}, 2 * Second - 1, {0}, "- 1"},
            {{}, 100 * Second + 400000, {0}, "100.0 0"},
            {100.4, 100 * Second + 400000, {0}, "100.4 1"},
            {100.4, -Year, {0}, "-31536000.0 0"},
        };
        for (const Case& flown : cases) {
            const TestProject folder;
            FlightRecorder recorder(Project::make(folder.path("p"_l1)));
            recorder.begin(Start, "n"_l1, "a"_l1, {}, flown.known);
            const auto stored = [&](const QString& sql) {
                return TestProject::values(recorder.flight().file, sql);
            };
            TestProject::run(recorder.flight().file, {"UPDATE flight_mission SET is_uploaded = 1"_l1});
            QByteArray log;
            int seconds = 0;
            for (const qint64 leap : flown.leaps) {
                for (const int end = seconds + 10; seconds < end; ++seconds) {
                    const qint64 now = Start + seconds * Second;
                    const quint64 vehicleTime = flown.vehicle ? quint64(now + flown.vehicle) : 0;
                    const mavlink::SystemTime time{vehicleTime, 0};
                    log += TelemetryFrame{now + leap, mavlink::encode({2, 1, 1, mavlink::payload(time)}, 0)}
                               .logRecord();
                }
            }
            const auto source = LogFlights(folder.file("clock.tlog"_l1, log), false).open(0);
            for (TelemetryFrame frame; source->next(&frame);) {
                recorder.take(frame);
            }
            recorder.flush(); // nothing is left to memory, whatever becomes of the recorder
            QByteArray stamps;
            for (const QVariant& message :
                 stored("SELECT message FROM flight_monitor_detail_log ORDER BY rowid"_l1)) {
                const QByteArray stamp = message.toByteArray().left(8);
                QVERIFY(stamp >= stamps);
                stamps = stamp;
            }
            // Time stands still for a frame with which the clock is set.
            const auto lasted = (qFromBigEndian<qint64>(stamps.constData()) - Start) / Second + 1;
            QVERIFY(lasted > seconds - flown.leaps.size() && lasted <= seconds);
            QCOMPARE(stored("SELECT count(*) FROM flight_monitor_detail_log"_l1), QVariantList{seconds});
            QCOMPARE(recorder.end(0).error, QString());
            QCOMPARE(stored("SELECT ifnull(clock_offset, '-') || ' ' || is_uploaded FROM flight_mission"_l1),
                     QVariantList{QLatin1String(flown.stored)});
        }
    }
    /// Rows that a file drops without a word are missed at the end.
    void tellsWhatWasNotStored()
    {
        for (const QString& table : QStringList{"pos_data"_l1, "uas_status"_l1,
                                                "flight_monitor_detail_log"_l1, "flight_complete"_l1}) {
            const TestProject folder;
            FlightSimulator flight(5, 2, 1);
            FlightRecorder recorder(Project::make(folder.path("p"_l1)));
            QString file;
            connect(&recorder, &FlightRecorder::told, this, [&] {
                if (file.isEmpty()) {
                    file = folder.missionFiles().value(0);
                    TestProject::run(file, {"CREATE TRIGGER dropped BEFORE INSERT ON "_l1 + table +
                                            " BEGIN SELECT RAISE(IGNORE); END"_l1});
                }
            });
            const QString error = recorder.record(flight, "n"_l1, "a"_l1).error;
            const QString found = TestProject::text(file, "SELECT count(*) FROM "_l1 + table);
            QVERIFY2(error.startsWith(found + " of "_l1) &&
                         error.endsWith(u' ' + table + " rows are in "_l1 + file),
                     qPrintable(error));
        }
    }
    void tellsHowAFlightEnded()
    {
        // A letter a second. H, h: heartbeat, armed and disarmed; p, o: position, known and not; c: waypoint
        // 3; n, m: 10 waypoints, told by the vehicle and by the ground station; .: other traffic.
        const QByteArray fix = QByteArray(4, 0) + QByteArray::fromHex("c0a5f5eac0dade58") + QByteArray(16, 0);
        const QMap<QChar, mavlink::Message> messages{
            {u'H', {mavlink::Heartbeat::Id, 1, 1, Payload}},
            {u'h', {mavlink::Heartbeat::Id, 1, 1, QByteArray(Payload).replace(6, 1, "Q")}},
            {u'p', {mavlink::GlobalPositionInt::Id, 1, 1, fix}},
            {u'o', {mavlink::GlobalPositionInt::Id, 1, 1, QByteArray(28, 0)}},
            {u'c', {mavlink::MissionCurrent::Id, 1, 1, QByteArray::fromHex("0300")}},
            {u'n', {mavlink::MissionCount::Id, 1, 1, QByteArray::fromHex("0a00ff00")}},
            {u'm', {mavlink::MissionCount::Id, 255, 190, QByteArray::fromHex("0a000101")}},
            {u'.', {mavlink::Heartbeat::Id, 255, 190, QByteArray::fromHex("000000000608c00003")}},
        };
        const std::pair<QString, QString> cases[] = {
            {"hHpcnh......."_l1, ""_l1},
            {"hHpcn"_l1, "still armed: waypoint 3 at 149.100000, -35.300000, 30 %"_l1},
            {"HpocHm...."_l1, "still armed: waypoint 3 at 149.100000, -35.300000, 30 %"_l1},
            {"HpcmH......"_l1, "link lost: waypoint 3 at 149.100000, -35.300000, 30 %"_l1},
            {"Hocn"_l1, "still armed: waypoint 0 at 0.000000, 0.000000, 0 %"_l1},
            {"pcn......."_l1, ""_l1},
        };
        for (const auto& [seen, expected] : cases) {
            VehicleTracker tracker;
            qint64 usec = 0;
            for (const QChar letter : seen) {
                tracker.take({usec += 1000000, mavlink::encode(messages[letter], 0)});
            }
            QString told;
            if (const auto end = tracker.interruption(usec)) {
                const Breakpoint at = end->breakpoint.value_or(Breakpoint());
                told = QStringLiteral("%1: %2, %3 %").arg(end->reason, at.text()).arg(at.completion);
            }
            QCOMPARE(told, expected);
        }
    }
    void recordsInterruptedAndVideoFlights()
    {
        const TestProject folder;
        const Project project = Project::make(folder.path("p"_l1));
        // Characters that would break the statement that stores a breakpoint.
        const QString name = R"q(it's %5, 100 % "%1")q"_l1;
        FlightSimulator interrupted(5, 2, 1, true), video(5, 2, 1);
        const auto flight = FlightRecorder(project).record(interrupted, name, "a"_l1);
        QCOMPARE(flight.error, QString());
        QCOMPARE(MissionFile(flight.file).breakpoint(flight.missionId)->text(),
                 flight.interruption->breakpoint->text());
        QCOMPARE(
            TestProject::value(flight.file, "SELECT name || result FROM flight_mission, flight_complete"_l1),
            QVariant(name + "interrupted"_l1));
        const auto easy =
            FlightRecorder(project, MissionFormat::video()).record(video, name, "a"_l1, {"v.tlog"_l1, {}, 0});
        QCOMPARE(easy.error, QString());
        QCOMPARE(TestProject::value(easy.file, "SELECT name || video_file FROM flight_video_mission"_l1),
                 QVariant(name + "v.tlog"_l1));
        QCOMPARE(TestProject::waiting(easy.file, "flight_monitor_detail_log"_l1), int(easy.messages));
    }
    /// Two vehicles, of which the first one arms three times, and a ground station, ten frames a second.
    void recordsEachVehicleOfALog()
    {
        const std::pair<QStringList, QStringList> cases[] = {
            {{}, {"log (system 1)"_l1, "log (system 2)"_l1}},
            {{"--split"_l1},
             {"log (system 1, flight 1)"_l1, "log (system 1, flight 2)"_l1, "log (system 1, flight 3)"_l1,
              "log (system 2)"_l1}}};
        QMap<uchar, QList<QByteArray>> sent; // of each system
        QByteArray log;
        for (int i = 0; i < 1500; ++i) {
            const quint8 system = QList<quint8>{1, 2, 255}[i % 3];
            const bool armed = system == 1 ? i % 500 > 200 && i % 500 < 300 : i > 400;
            const mavlink::Heartbeat heartbeat{quint32(i), 2, quint8(system < 3 ? 3 : 8),
                                               quint8(armed ? 0x80 : 0)};
            const TelemetryFrame frame{1448000000000000 + i * 100000LL,
                                       mavlink::encode({0, system, 1, mavlink::payload(heartbeat)}, 0)};
            log += frame.logRecord();
            sent[system].append(frame.logRecord());
        }
        for (const auto& [arguments, missions] : cases) {
            const TestProject folder;
            const QString file = folder.file("log.tlog"_l1, log);
            QCOMPARE(
                runRecord(QStringList{"record"_l1, "--project"_l1, folder.path("p"_l1), file} + arguments),
                int(Done));
            QMap<QString, QString> files; // by the mission's name
            for (const QString& mission : folder.missionFiles()) {
                files.insert(TestProject::text(mission, "SELECT name FROM flight_mission"_l1), mission);
            }
            QCOMPARE(QStringList(files.keys()), missions);
            QMap<uchar, QList<QByteArray>> recorded;
            QSet<QByteArray> ofOthers;
            for (auto mission = files.cbegin(); mission != files.cend(); ++mission) {
                const uchar own = uchar(mission.key().at(12).digitValue());
                for (const QVariant& row : TestProject::values(
                         *mission, "SELECT message FROM flight_monitor_detail_log ORDER BY rowid"_l1)) {
                    const QByteArray message = row.toByteArray();
                    const auto system = uchar(message[8 + 3]);
                    QVERIFY(system == own || system == 255);
                    if (system == own) {
                        recorded[own].append(message);
                    } else {
                        ofOthers.insert(message);
                    }
                }
            }
            QCOMPARE(recorded[1], sent[1]);
            QCOMPARE(recorded[2], sent[2]);
            QCOMPARE(ofOthers.size(), sent[255].size());
        }
    }
    void countsWhatWaits()
    {
        const std::tuple<const char*, int, int> cases[] = {
            {"SELECT 1", 9, 9}, // waiting, and of those sendable
            {"UPDATE pos_data SET is_uploaded = 1", 7, 7},
            {"DELETE FROM flight_mission", 8, 0},
            {"UPDATE pos_data SET flight_mission_id = NULL", 9, 7},
        };
        for (const auto& [change, waiting, sendable] : cases) {
            const TestProject folder;
            TestProject::addMission(folder.missionFile("m/flight.kv"_l1), "m"_l1, 2, 2, 4);
            const QString broken = folder.file("broken/flight.kv"_l1, QByteArray(5000, 'x'));
            BacklogCounter counter(Project::open(folder.path(""_l1)));
            counter.countAll();
            QVERIFY(TestProject::run(folder.path("m/flight.kv"_l1), {QLatin1String(change)}));
            counter.recount();
            const Backlog backlog = counter.backlog();
            QCOMPARE(int(backlog.waiting()), waiting);
            QCOMPARE(int(backlog.sendable()), sendable);
            QCOMPARE(backlog.unreadable, QStringList(broken));
        }
    }
    /// Three files with three missions each; m.n is the n-th of the m-th file. What is refused, so and so
    /// often, leaves ids behind in the operator's queue, which are of no use in the next file.
    void leavesWhatTheServerRefuses()
    {
        for (const auto& [refusing, left] :
             {std::pair("1.3 1", ""),
              {"1.1 1,1.2 1,1.3 1,2.1 1,2.2 1,2.3 1,3.1 1,3.2 1,3.3 1", ""},
              {"1.1 999,1.2 999", "1.1 1.2"},
              {"1.2 999,1.3 999,2.1 999,2.3 999,3.2 1", "1.2 1.3 2.1 2.3"},
              {"1.2 gone", "1.2"}}) { // a queued row vanishes, so that the operator rests
            const QStringList refused = QString::fromLatin1(refusing).split(u',');
            const TestProject folder;
            for (const char* name : {"1", "2", "3"}) {
                const QString file = folder.missionFile(QLatin1String(name) + "/flight.kv"_l1);
                for (const char* number : {".1", ".2", ".3"}) {
                    TestProject::addMission(file, QLatin1String(name) + QLatin1String(number), 2, 2, 2);
                }
            }
            folder.file("2b/flight.kv"_l1, QByteArray(5000, 'x')); // no database
            QMap<QString, int> refusals;
            for (const QString& mission : refused) {
                refusals[mission.section(u' ', 0, 0)] = mission.section(u' ', 1).toInt();
            }
            ScriptedServer server;
            server.script = [&](const PostedRequest& request) {
                if (refused.contains("1.2 gone"_l1)) {
                    TestProject::run(folder.path("1/flight.kv"_l1),
                                     {"DELETE FROM flight_mission WHERE id = '1.2'"_l1});
                }
                const QString mission = request.ids().value(0).left(3);
                return refusals.value(mission) > 0 && refusals[mission]--
                           ? ScriptedServer::reply(R"(200 {"status":9,"message":"no"})"_l1)
                           : ScriptedServer::accepted();
            };
            signIn("token"_l1);
            BacklogCounter counter(Project::open(folder.path(""_l1)));
            counter.countAll();
            const LogFeed feed;
            Uploader uploader(feed);
            uploader.setPace(RetryPace::fixed(20));
            uploader.start();
            const auto waiting = [&] {
                counter.recount();
                uploader.look(counter.backlog(), true);
                QSet<QString> missions;
                for (const WaitingRows& rows : counter.backlog().rows) {
                    missions.insert(rows.mission);
                }
                QStringList sorted = missions.values();
                sorted.sort();
                return sorted.join(u' ');
            };
            QTRY_COMPARE_WITH_TIMEOUT(waiting(), QLatin1String(left), 60000);
        }
    }
    /// The table that pilots look things up in has the program's words.
    void wordsOfTroubles()
    {
        QStringList rows;
        for (const TroubleText& text : allTroubles()) {
            rows += QStringLiteral("| %1 | %2 | %3 |")
                        .arg(QLatin1String(text.what), QLatin1String(text.safe), QLatin1String(text.todo));
        }
        const QString page =
            QString::fromUtf8(TestProject::contents(QFINDTESTDATA("../docs/what-pilots-see.md")));
        QCOMPARE(page.split(u'\n').filter(QRegularExpression("^[|] (?!what happened)"_l1)), rows);
        QCOMPARE(troubleWords(Trouble::DiskFull, {"ubc1 %2"_l1, "3:52"_l1}),
                 "Disk full: ubc1 %2 stopped at 3:52, the first part is stored. Free space, then add the log "
                 "again."_l1);
    }
    void supervises()
    {
        // Seen, a second each (a: sign of life, b: batch, n: no network), and done (r: rearmed, u:
        // unmarkable).
        const std::pair<QString, QString> cases[] = {
            {QStringLiteral("a.........").repeated(6), ""_l1},
            {"....a"_l1 + QString(60, u'.'), "r32 r60"_l1},
            {QString(40, u'n') + QString(40, u'.'), "r67"_l1},
            {"bb.b....."_l1, "u3"_l1},
            {QString(60, u' ') + "...."_l1, ""_l1}, // looks for the first time after a minute
            {"bbabbabba"_l1, ""_l1},
        };
        for (const auto& [seen, expected] : cases) {
            UploadSupervisor supervisor(3000);
            QStringList done;
            int second = 0;
            connect(&supervisor, &UploadSupervisor::checkNewData,
                    [&] { done << QStringLiteral("r%1").arg(second); });
            connect(&supervisor, &UploadSupervisor::unmarkable,
                    [&] { done << QStringLiteral("u%1").arg(second); });
            for (; second < seen.size(); ++second) {
                if (seen[second] == u'a') {
                    supervisor.noteSignOfLife(second * 1000LL);
                } else if (seen[second] == u'b') {
                    supervisor.noteBatch("m"_l1);
                }
                if (seen[second] != u' ') {
                    supervisor.look(second * 1000LL, "f.kv"_l1, seen[second] != u'n');
                }
            }
            QCOMPARE(done.join(u' '), expected);
        }
    }
};

QTEST_GUILESS_MAIN(tst_flightdesk)
#include "tst_flightdesk.moc"
