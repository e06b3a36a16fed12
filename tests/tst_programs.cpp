// SPDX-License-Identifier: MIT
#include "project/MissionRecord.h"
#include "project/ProjectLock.h"
#include "support/FlightLog.h"
#include "support/ScriptedServer.h"

#include <algorithm>
#include <csignal>
#include <memory>
#include <sys/mount.h>

namespace
{
/// A program whose files may not grow beyond so many KiB, which is then a write that fails.
ProgramResult runLimited(const QStringList& arguments, const QString& most)
{
    QProcess program;
    const QString limit = QStringLiteral("trap '' XFSZ; ulimit -f %1; exec \"$0\" \"$@\"");
    const QStringList desk{QCoreApplication::applicationDirPath() + "/flightdesk"_l1};
    program.start("bash"_l1, QStringList{"-c"_l1, limit.arg(most)} + desk + arguments);
    program.waitForFinished(-1);
    return {program.exitCode(), program.readAllStandardOutput(), program.readAllStandardError()};
}
} // namespace

class tst_programs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qunsetenv("QT_LOGGING_RULES"); } // what the programs say is tested here

    /// A telemetry log, recorded and uploaded: the ledger holds each frame once, byte for byte.
    void everyFrameOnce()
    {
        const FlownProject project;
        QList<QByteArray> frames = framesOf(FlightSimulator(7, 0, 3));
        const QString log = project.file("flight.tlog"_l1, asLog(frames) + "cut off");
        auto server =
            std::make_unique<IngestServer>(QStringList{"--token"_l1, Token, "--ledger"_l1, project.ledger});
        for (int round = 1; round <= 2; ++round) {
            const QStringList again = round > 1 ? QStringList{"--anyway"_l1} : QStringList();
            QCOMPARE(project.desk("record"_l1, QStringList{log} + again).exitCode, 0);
            project.uploadAll(server->url);
        }
        server.reset(); // it holds the ledger
        QList<QByteArray> received;
        for (const QVariant& row : TestProject::values(
                 project.ledger, R"(SELECT json FROM "row" WHERE kind = 'flight_monitor_detail_log')"_l1)) {
            const QByteArray message =
                QJsonDocument::fromJson(row.toByteArray())["message"_l1].toString().toLatin1();
            received.append(QByteArray::fromBase64(message, QByteArray::Base64UrlEncoding).mid(8));
        }
        frames += frames;
        std::sort(frames.begin(), frames.end());
        std::sort(received.begin(), received.end());
        QCOMPARE(received.size(), frames.size());
        QVERIFY(received == frames);
        QCOMPARE(TestProject::value(project.ledger, "SELECT max(times) FROM \"row\""_l1), QVariant(1));
        // Two flights of one project, though they began at the same time: a file for each.
        QCOMPARE(QDir(project.path("project"_l1)).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size(), 2);
        QCOMPARE(TestProject::value(project.ledger,
                                    "SELECT count(DISTINCT json_extract(json, '$.project_id')) FROM \"row\" "
                                    "WHERE kind = 'flight_mission'"_l1),
                 QVariant(1));
    }

    /// Interrupted flights and a video mission beside one another: each kind of upload takes its own.
    void faultyServer()
    {
        const QStringList faults[] = {
            {"http=500:0:1"_l1, "garbage:2:1"_l1, "status=403:4:1"_l1, "cut:6:1"_l1},
            {"drop:1:1"_l1, "drop:5:1"_l1}, // replies lost after the commit
            {"stall:3:1"_l1},               // no answer for 20 s
        };
        for (const QStringList& ofServer : faults) {
            const FlownProject project;
            const QStringList options = ("--fault "_l1 + ofServer.join(" --fault "_l1)).split(u' ');
            const IngestServer server(QStringList{"--token"_l1, Token, "--ledger"_l1, project.ledger} +
                                      options);
            const QStringList flights{"--missions"_l1, "2"_l1, "--minutes"_l1, "1"_l1};
            QCOMPARE(project.desk("simulate"_l1, flights + QStringList{"--interrupted"_l1}).exitCode, 0);
            QVERIFY(project.desk("status"_l1, {"--details"_l1}).out.contains("breakpoint: waypoint"));
            QCOMPARE(project.desk("simulate"_l1, flights + QStringList{"--easy-fly"_l1}).exitCode, 0);
            const ProgramResult flown = project.upload(server.url);
            QVERIFY2(flown.exitCode == 0 && flown.out.contains("--easy-fly"), flown.err.constData());
            QCOMPARE(flown.err.contains("No answer from"), ofServer.contains("stall:3:1"_l1));
            QCOMPARE(project.desk("status"_l1, {"--ledger"_l1, project.ledger}).exitCode, 1);
            project.uploadAll(server.url, {"--easy-fly"_l1});
        }
    }

    void hopelessUploads()
    {
        const std::pair<QString, QByteArray> cases[] = {
            {"token"_l1, "token"},
            {"unreachable"_l1, "No connection to http://127.0.0.1:1"},
            {"no mission row"_l1, "has no row of its own"},
            {"corrupt file"_l1, "cannot be read"},
            {"full log"_l1, "Connection refused"},
            {"untrusted"_l1, "is not trusted"}};
        for (const auto& [trouble, said] : cases) {
            const FlownProject project;
            QStringList options{"--token"_l1, trouble == "token"_l1 ? "other"_l1 : Token, "--ledger"_l1,
                                project.ledger};
            if (trouble == "untrusted"_l1) { // for a certificate that nobody vouches for
                const QString pem =
                    project.file("untrusted.pem"_l1, TestProject::contents(":/untrusted.pem"_l1));
                options += {"--tls-cert"_l1, pem, "--tls-key"_l1, pem};
            }
            const IngestServer server(options);
            QVERIFY(project.simulate(1));
            if (trouble == "no mission row"_l1) {
                QVERIFY(TestProject::run(project.missionFiles().value(0), {"DELETE FROM flight_mission"_l1}));
            } else if (trouble == "corrupt file"_l1) {
                project.file("project/broken/flight.kv"_l1, QByteArray(5000, 'x'));
            }
            const bool reachable = trouble != "unreachable"_l1 && trouble != "full log"_l1;
            const QString url = reachable ? server.url : "http://127.0.0.1:1"_l1;
            const QString log = QLatin1String(trouble == "full log"_l1 ? " --log /dev/full" : "");
            const ProgramResult uploaded = project.upload(url, ("--patience 5"_l1 + log).split(u' '));
            const QByteArray output = uploaded.out + uploaded.err;
            QVERIFY2(uploaded.exitCode == 1 && output.contains(said),
                     (trouble.toUtf8() + output).constData());
            QVERIFY(!output.contains(Token.toUtf8()));
            QVERIFY(trouble != "untrusted"_l1 || project.rows("received IS NOT NULL"_l1).isEmpty());
        }
    }

    /// What a person reads, and what is kept, of logs that are none, that are bad, or that were added before.
    void badLogs()
    {
        const QList<QByteArray> frames = framesOf(FlightSimulator(7, 0, 1));
        const QByteArray sound = asLog(frames);
        QByteArray damaged = sound, future = sound;
        for (int at = 0, i = 0; i < frames.size(); at += 8 + frames[i++].size()) {
            damaged[at + 8 + 6] = char(~damaged[at + 8 + 6]);
            future.replace(at, 2, QByteArray("\0\xe9", 2)); // the year 4049
        }
        const std::tuple<const char*, QByteArray, const char*> cases[] = {
            {"text", QByteArray("no flight at all\n").repeated(5000),
             "Not a telemetry log: log.tlog, nothing"},
            {"program", TestProject::contents(QCoreApplication::applicationFilePath()).left(300000),
             "Not a telemetry log"},
            {"mostly unreadable", sound.left(20000) + QByteArray(60000, 'x'), " bytes are no telemetry"},
            {"checksums", damaged, "1081 of 1081 frames have wrong checksums"},
            {"times", future, "Impossible times"},
            {"missing", {}, "cannot be read"},
        };
        for (const auto& [name, log, said] : cases) {
            const FlownProject project;
            QVERIFY(project.simulate(1));
            const int before = project.rows().size();
            const QString file = log.isEmpty() ? project.path("none"_l1) : project.file("log.tlog"_l1, log);
            const ProgramResult refused = project.desk("record"_l1, {file});
            QVERIFY2(refused.exitCode == 1 && refused.err.contains(said), (name + refused.err).constData());
            QCOMPARE(project.rows().size(), before);
        }
        const FlownProject project;
        QCOMPARE(project.desk("record"_l1, {project.file("text.tlog"_l1, "no flight")}).exitCode, 1);
        QVERIFY(!QFile::exists(project.path("project"_l1)));
        const ProgramResult cut =
            project.desk("record"_l1, {project.file("cut.tlog"_l1, "noise" + sound.chopped(7))});
        QVERIFY2(cut.exitCode == 0 && cut.out.contains("cut off at 1:47"), cut.out.constData());
        for (const auto& [command, words] :
             {std::pair("status --json", R"("log_truncated_bytes":)"),
              {"status", "log cut off"},
              {"logbook", ", log cut off"},
              {"export cut --format tlog --output ",
               "; 5 unreadable bytes of its log were skipped; its log is cut off in a last record of "}}) {
            QStringList parts = QString::fromLatin1(command).split(u' ');
            parts.last() += parts.last().isEmpty() ? project.path("again.tlog"_l1) : QString();
            const ProgramResult told = project.desk(parts.first(), parts.mid(1));
            QVERIFY2(told.out.contains(words) && !told.err.contains('%'), (told.out + told.err).constData());
        }
        const QString whole = project.file("whole.tlog"_l1, sound),
                      copy = project.file("copy.tlog"_l1, sound);
        QCOMPARE(project.desk("record"_l1, {whole}).exitCode, 0);
        const ProgramResult again = project.desk("record"_l1, {copy, "--json"_l1});
        QVERIFY2(again.exitCode == 1 && again.err.contains("in this project as whole"),
                 again.err.constData());
        QVERIFY(!QJsonDocument::fromJson(again.out)["ok"_l1].toBool(true));
        QCOMPARE(project.desk("record"_l1, {copy, "--anyway"_l1}).exitCode, 0);
    }

    /// Told to end, a recording keeps what it has, says so everywhere, and can be done again.
    void stopped()
    {
        const FlownProject project;
        const QString log = project.file("long.tlog"_l1, asLog(framesOf(FlightSimulator(7, 0, 90))));
        for (const int signal : {SIGINT, SIGTERM}) {
            Program desk("flightdesk"_l1, project.command("record"_l1, {log}));
            desk.setReadChannel(QProcess::StandardError);
            QByteArray said;
            while (!said.contains(" 10 %") && desk.waitForReadyRead(60000)) {
                said += desk.readAll();
            }
            ::kill(pid_t(desk.processId()), signal);
            QVERIFY(desk.waitForFinished(60000));
            QCOMPARE(desk.exitCode(), 128 + signal);
            QVERIFY(
                desk.readAllStandardOutput().contains("the first part is stored. To have all of it, add"));
        }
        static const QRegularExpression incomplete(R"re(incomplete \((\d+:)?\d+:\d\d of 2:42:\d\d\))re"_l1);
        for (const QString& command : QStringList{"status"_l1, "logbook"_l1, "export"_l1}) {
            const QStringList more{"--format"_l1, "gpx"_l1, "--output"_l1, "-"_l1};
            const ProgramResult told = project.desk(command, command == "export"_l1 ? more : QStringList());
            QVERIFY2(QString::fromUtf8(told.out).contains(incomplete), told.out.constData());
        }
        const IngestServer server({"--token"_l1, Token, "--ledger"_l1, project.ledger});
        project.uploadAll(server.url);
        QCOMPARE(TestProject::value(project.ledger,
                                    "SELECT count(*) FROM \"row\" WHERE kind = 'flight_mission' "
                                    "AND json LIKE '%incomplete%'"_l1),
                 QVariant(2));
        QDirIterator file(project.path("project"_l1), {"*.kv"_l1}, QDir::Files, QDirIterator::Subdirectories);
        QVERIFY(!MissionsOfFile::read(file.next()).missions.first().breakpoint);
    }

    /// On a disk of 2 MB, where one can be mounted, and where files may not grow any more.
    void fullDisk()
    {
        for (const bool isDisk : {true, false}) {
            FlownProject project;
            const QByteArray disk = project.path("project"_l1).toLocal8Bit();
            QDir().mkpath(QString::fromUtf8(disk));
            if (isDisk && ::mount("tmpfs", disk.constData(), "tmpfs", 0, "size=2m") != 0) {
                continue; // only root may
            }
            const auto unmount = qScopeGuard([&] { ::umount2(disk.constData(), MNT_DETACH); });
            const auto most = isDisk ? "unlimited"_l1 : "390"_l1;
            const QString log = project.file("long.tlog"_l1, asLog(framesOf(FlightSimulator(7, 0, 60))));
            const ProgramResult full = runLimited(project.command("record"_l1, {log}), most);
            const QByteArray said =
                isDisk ? "Disk full: long stopped at " : "takes no records: long stopped at ";
            QVERIFY2(full.exitCode == 1 && full.err.contains(said), full.err.constData());
            QVERIFY(full.err.count('\n') < 20 && !full.err.contains("100 %"));
            QVERIFY(project.desk("status"_l1, {}).out.contains("incomplete"));
            const IngestServer server({"--token"_l1, Token, "--ledger"_l1, project.ledger});
            const ProgramResult sent = runLimited(project.uploadCommand(server.url), isDisk ? most : "4"_l1);
            QVERIFY2(sent.exitCode == 1 &&
                         sent.err.contains(isDisk ? "the disk is full" : "cannot be marked"),
                     sent.err.constData());
            QVERIFY(TestProject::value(project.ledger, "SELECT max(times) FROM \"row\""_l1).toInt() <= 2);
        }
    }

    void wrongFolder()
    {
        const FlownProject project;
        project.file("project/letter.txt"_l1, "no flight");
        for (const QStringList& more :
             {QStringList{"status"_l1},
              {"export"_l1, "--format"_l1, "kml"_l1},
              {"logbook"_l1},
              {"upload"_l1, "--server"_l1, "http://127.0.0.1:1"_l1, "--token"_l1, "t"_l1},
              {"record"_l1, project.file("a.tlog"_l1, "x")},
              {"simulate"_l1}}) {
            const ProgramResult result = project.desk(more.first(), more.mid(1) + QStringList{"--json"_l1});
            QVERIFY2(result.exitCode == 1 && result.err.contains("This folder is no project"),
                     result.err.constData());
            QVERIFY(QJsonDocument::fromJson(result.out)["error"_l1].isString());
            QCOMPARE(
                QDir(project.path("project"_l1)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(),
                1);
        }
    }

    void oneUploadAtATime()
    {
        const FlownProject project;
        QVERIFY(project.simulate(1));
        ProjectLock other(Project::open(project.path("project"_l1)), ProjectLock::Use::Uploading);
        QCOMPARE(other.take(), QString());
        const IngestServer server({"--token"_l1, Token, "--ledger"_l1, project.ledger});
        const ProgramResult second = project.upload(server.url);
        QVERIFY2(second.exitCode == 1 && second.err.contains("Another program uploads"),
                 second.err.constData());
        other.release();
        project.uploadAll(server.url);
    }

    void fetches()
    {
        const TestProject folder;
        ScriptedServer server(ScriptedServer::reply("404 gone"_l1));
        const QString to = folder.file("fetched.bin"_l1, "old");
        for (const int code : {1, 0}) {
            Program desk("flightdesk"_l1,
                         {"fetch"_l1, QString::fromUtf8(server.url() + "/file.bin"), "--to"_l1, to});
            QTRY_COMPARE_WITH_TIMEOUT(desk.state(), QProcess::NotRunning, 20000);
            QCOMPARE(desk.exitCode(), code);
            QCOMPARE(TestProject::contents(to), QByteArray(code == 1 ? "old" : "new"));
            server.script = [](const PostedRequest&) { return ScriptedServer::file("new"); };
        }
    }

    void wrongUsage()
    {
        for (const QString& command :
             QStringList{"flightdesk fly"_l1, "flightdesk status"_l1, "flightdesk record --project /tmp"_l1,
                         "flightdesk upload --project /tmp --token t --server ftp://x"_l1,
                         "flightdesk upload --project /tmp --token t --server http://x --patience -1"_l1,
                         "flightserver --port 99999"_l1, "flightserver --fault rain"_l1,
                         "flightserver --ledger /proc/no/ledger"_l1, "flightdesk --screenshot"_l1}) {
            const ProgramResult result = runProgram(command.section(u' ', 0, 0), command.split(u' ').mid(1));
            QVERIFY2(result.exitCode == 2 && result.out.isEmpty() && result.err.size() > 10,
                     qPrintable(command));
        }
    }
};

QTEST_GUILESS_MAIN(tst_programs)
#include "tst_programs.moc"
