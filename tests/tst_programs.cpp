// SPDX-License-Identifier: MIT
#include "support/FlightLog.h"
#include "support/ScriptedServer.h"

#include <algorithm>
#include <memory>

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
        const QString log = project.file("flight.tlog", asLog(frames) + "cut off");
        auto server =
            std::make_unique<IngestServer>(QStringList{"--token", Token, "--ledger", project.ledger});
        for (int round = 1; round <= 2; ++round) {
            const QStringList again = round > 1 ? QStringList{"--anyway"} : QStringList();
            QCOMPARE(project.desk("record", QStringList{log} + again).exitCode, 0);
            project.uploadAll(server->url);
        }
        server.reset(); // it holds the ledger
        QList<QByteArray> received;
        for (const QVariant& row : TestProject::values(
                 project.ledger, "SELECT json FROM \"row\" WHERE kind = 'flight_monitor_detail_log'")) {
            const QByteArray message =
                QJsonDocument::fromJson(row.toByteArray())["message"].toString().toLatin1();
            received.append(QByteArray::fromBase64(message, QByteArray::Base64UrlEncoding).mid(8));
        }
        frames += frames;
        std::sort(frames.begin(), frames.end());
        std::sort(received.begin(), received.end());
        QCOMPARE(received.size(), frames.size());
        QVERIFY(received == frames);
        QCOMPARE(TestProject::value(project.ledger, "SELECT max(times) FROM \"row\""), QVariant(1));
        // Two flights of one project, though they began at the same time: a file for each.
        QCOMPARE(QDir(project.path("project")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size(), 2);
        QCOMPARE(TestProject::value(project.ledger,
                                    "SELECT count(DISTINCT json_extract(json, '$.project_id')) FROM \"row\" "
                                    "WHERE kind = 'flight_mission'"),
                 QVariant(1));
    }

    /// Interrupted flights and a video mission beside one another: each kind of upload takes its own.
    void faultyServer()
    {
        const QStringList faults[] = {
            {"http=500:0:1", "garbage:2:1", "status=403:4:1", "cut:6:1"},
            {"drop:1:1", "drop:5:1"}, // replies lost after the commit
            {"stall:3:1"},            // no answer for 20 s
        };
        for (const QStringList& ofServer : faults) {
            const FlownProject project;
            const QStringList options = ("--fault " + ofServer.join(" --fault ")).split(' ');
            const IngestServer server(QStringList{"--token", Token, "--ledger", project.ledger} + options);
            const QStringList flights{"--missions", "2", "--minutes", "1"};
            QCOMPARE(project.desk("simulate", flights + QStringList{"--interrupted"}).exitCode, 0);
            QVERIFY(project.desk("status", {"--details"}).out.contains("breakpoint: waypoint"));
            QCOMPARE(project.desk("simulate", flights + QStringList{"--easy-fly"}).exitCode, 0);
            const ProgramResult flown = project.upload(server.url);
            QVERIFY2(flown.exitCode == 0 && flown.out.contains("--easy-fly"), flown.err);
            QCOMPARE(flown.err.contains("No answer from"), ofServer.contains("stall:3:1"));
            QCOMPARE(project.desk("status", {"--ledger", project.ledger}).exitCode, 1);
            project.uploadAll(server.url, {"--easy-fly"});
        }
    }

    void hopelessUploads()
    {
        const std::pair<QString, QByteArray> cases[] = {
            {"token", "token"},
            {"unreachable", "No connection to http://127.0.0.1:1"},
            {"no mission row", "has no row of its own"},
            {"corrupt file", "cannot be read"},
            {"full log", "Connection refused"},
            {"untrusted", "is not trusted"}};
        for (const auto& [trouble, said] : cases) {
            const FlownProject project;
            QStringList options{"--token", trouble == "token" ? "other" : Token, "--ledger", project.ledger};
            if (trouble == "untrusted") { // for a certificate that nobody vouches for
                const QString pem = project.file("untrusted.pem", TestProject::contents(":/untrusted.pem"));
                options += {"--tls-cert", pem, "--tls-key", pem};
            }
            const IngestServer server(options);
            QVERIFY(project.simulate(1));
            if (trouble == "no mission row") {
                QVERIFY(TestProject::run(project.missionFiles().value(0), {"DELETE FROM flight_mission"}));
            } else if (trouble == "corrupt file") {
                project.file("project/broken/flight.kv", QByteArray(5000, 'x'));
            }
            const bool reachable = trouble != "unreachable" && trouble != "full log";
            const QString url = reachable ? server.url : "http://127.0.0.1:1";
            const QString log = trouble == "full log" ? " --log /dev/full" : "";
            const ProgramResult uploaded = project.upload(url, ("--patience 5" + log).split(' '));
            const QByteArray output = uploaded.out + uploaded.err;
            QVERIFY2(uploaded.exitCode == 1 && output.contains(said), trouble.toUtf8() + output);
            QVERIFY(!output.contains(Token.toUtf8()));
            QVERIFY(trouble != "untrusted" || project.rows("received IS NOT NULL").isEmpty());
        }
    }

    void fetches()
    {
        const TestProject folder;
        ScriptedServer server(ScriptedServer::reply("404 gone"));
        const QString to = folder.file("fetched.bin", "old");
        for (const int code : {1, 0}) {
            Program desk("flightdesk", {"fetch", server.url() + "/file.bin", "--to", to});
            QTRY_COMPARE_WITH_TIMEOUT(desk.state(), QProcess::NotRunning, 20000);
            QCOMPARE(desk.exitCode(), code);
            QCOMPARE(TestProject::contents(to), QByteArray(code == 1 ? "old" : "new"));
            server.script = [](const PostedRequest&) { return ScriptedServer::file("new"); };
        }
    }

    void wrongUsage()
    {
        for (const QString& command :
             QStringList{"flightdesk fly", "flightdesk status", "flightdesk record --project /tmp",
                         "flightdesk upload --project /tmp --token t --server ftp://x",
                         "flightdesk upload --project /tmp --token t --server http://x --patience -1",
                         "flightserver --port 99999", "flightserver --fault rain",
                         "flightserver --ledger /proc/no/ledger", "flightdesk --screenshot"}) {
            const ProgramResult result = runProgram(command.section(' ', 0, 0), command.split(' ').mid(1));
            QVERIFY2(result.exitCode == 2 && result.out.isEmpty() && result.err.size() > 10,
                     qPrintable(command));
        }
    }
};

QTEST_GUILESS_MAIN(tst_programs)
#include "tst_programs.moc"
