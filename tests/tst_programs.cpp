// SPDX-License-Identifier: MIT
#include "support/Programs.h"
#include "support/Rows.h"
#include "support/ScriptedServer.h"

#include <algorithm>
#include <memory>
#include <random>

namespace
{
/// MAVLink frames of unknown messages with bytes of all kinds; the first is a heartbeat of a vehicle.
QList<QByteArray> makeFrames(int count)
{
    std::mt19937 random(7);
    QList<QByteArray> frames{QByteArray::fromHex("fe0900010100000000000203510403be93")};
    while (frames.size() < count) {
        const int length = static_cast<int>(random() % 256);
        QByteArray frame =
            QByteArray::fromHex("fe") + static_cast<char>(length) + QByteArray::fromHex("000101c8");
        for (int i = 0; i < length + 2; ++i) {
            frame += static_cast<char>(random());
        }
        frames.append(frame);
    }
    return frames;
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
        QList<QByteArray> frames = makeFrames(2100);
        const QString log = project.file("flight.tlog", asLog(frames) + "cut off");
        auto server = std::make_unique<IngestServer>(QStringList{"--token", Token, "--ledger", project.ledger,
                                                                 "--access-log", project.path("access.log")});
        for (int round = 1; round <= 2; ++round) {
            QCOMPARE(project.desk("record", {log}).exitCode, 0);
            project.uploadAll(server->url);
        }
        server.reset(); // it holds the ledger
        QList<QByteArray> received;
        for (const QVariant& row : TestProject::values(
                 project.ledger, "SELECT json FROM \"row\" WHERE kind = 'flight_monitor_detail_log'")) {
            const QByteArray message =
                QJsonDocument::fromJson(row.toByteArray())["message"].toString().toLatin1();
            received.append(QByteArray::fromBase64(message, QByteArray::Base64UrlEncoding));
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
        QStringList rows;
        for (const QByteArray& line : TestProject::contents(project.path("access.log")).split('\n')) {
            if (line.contains(" /flight/detailupload owner=demo status=0 ")) {
                rows.append(line.mid(line.indexOf(" rows=") + 6).split(' ').constFirst());
            }
        }
        QCOMPARE(rows.join(' '), QString("1000 1000 100 1000 1000 100"));
    }

    void faultyServer_data() { addRows(); }
    void faultyServer()
    {
        const FlownProject project;
        QStringList arguments{"--token", Token, "--ledger", project.ledger};
        for (const QString& fault : cell("options").split(' ')) {
            arguments += {"--fault", fault};
        }
        const IngestServer server(arguments);
        QVERIFY(project.simulate(2));
        project.uploadAll(server.url);
    }

    void hopelessUploads_data() { addRows(); }
    void hopelessUploads()
    {
        const FlownProject project;
        const QString trouble = cell("trouble");
        QStringList options{"--token", trouble == "token" ? "other" : Token, "--ledger", project.ledger};
        if (trouble == "untrusted") { // for a certificate that nobody vouches for
            const QString pem = project.file("untrusted.pem", TestProject::contents(":/untrusted.pem"));
            options += {"--tls-cert", pem, "--tls-key", pem};
        }
        auto server = std::make_unique<IngestServer>(options);
        QVERIFY(project.simulate(1));
        if (trouble == "no mission row") {
            QDirIterator file(project.path("project"), {"*.kv"}, QDir::Files, QDirIterator::Subdirectories);
            QVERIFY(TestProject::run(file.next(), {"DELETE FROM flight_mission"}));
        } else if (trouble == "corrupt file") {
            project.file("project/broken/flight.kv", QByteArray(5000, 'x'));
        }
        const QString url = trouble == "unreachable" ? "http://127.0.0.1:1" : server->url;
        QCOMPARE(url.startsWith("https"), trouble == "untrusted");
        const SResult uploaded = project.upload(url, {"--patience", "5"});
        QCOMPARE(uploaded.exitCode, 1);
        const QByteArray said = uploaded.out + uploaded.err;
        QVERIFY2(said.contains(cell("said").toUtf8()), said);
        QVERIFY(!said.contains(Token.toUtf8()));
        server.reset();
        if (trouble == "untrusted") {
            QCOMPARE(TestProject::value(project.ledger, "SELECT count(*) FROM \"row\""), QVariant(0));
        }
    }

    /// Interrupted flights and video missions beside one another: each kind of upload takes its own.
    void interruptedAndEasyFly()
    {
        const FlownProject project;
        auto server =
            std::make_unique<IngestServer>(QStringList{"--token", Token, "--ledger", project.ledger});
        const QStringList flight{"--missions", "1", "--minutes", "1", "--seed", "3"};
        QCOMPARE(project.desk("simulate", flight + QStringList{"--interrupted"}).exitCode, 0);
        QCOMPARE(project.desk("simulate", flight + QStringList{"--easy-fly"}).exitCode, 0);
        const SResult flown = project.upload(server->url);
        QVERIFY2(flown.exitCode == 0 && (flown.out + flown.err).contains("--easy-fly"), flown.err);
        QVERIFY(project.desk("status", {}).out.contains("breakpoint: waypoint"));
        const SResult video = project.upload(server->url, {"--easy-fly"});
        QVERIFY2(video.exitCode == 0, video.err);
        QCOMPARE(project.desk("status", {"--ledger", project.ledger}).exitCode, 0);
        server.reset();
        QCOMPARE(TestProject::text(project.ledger,
                                   "SELECT times FROM \"row\" WHERE kind = 'flight_video_mission'"),
                 QString("1"));
    }

    void fetches()
    {
        ScriptedServer server;
        const TestProject folder;
        const QByteArray bytes(3000000, 'f');
        server.script = [&](const SRequest& request) {
            return request.path == "/gone.bin" ? ScriptedServer::reply("404 gone")
                                               : ScriptedServer::file(bytes);
        };
        const QString to = folder.file("fetched.bin", "old");
        for (const QStringList& how : {QStringList(), QStringList{"--external"}}) {
            for (const char* name : {"gone.bin", "file.bin"}) {
                Program desk("flightdesk", QStringList{"fetch", server.url() + '/' + name, "--to", to} + how);
                QTRY_COMPARE_WITH_TIMEOUT(desk.state(), QProcess::NotRunning, 20000);
                const bool gone = QByteArray(name) == "gone.bin";
                QCOMPARE(desk.exitCode(), gone ? 1 : 0);
                QFile file(to);
                QVERIFY(file.open(QIODevice::ReadOnly));
                QCOMPARE(file.size(), qint64(gone && how.isEmpty() ? 3 : bytes.size()));
            }
        }
    }

    void wrongUsage_data() { addRows(); }
    void wrongUsage()
    {
        const QStringList command = cell("command").split(' ');
        const SResult result = runProgram(command[0], command.mid(1));
        QCOMPARE(result.exitCode, 2);
        QVERIFY(result.out.isEmpty());
        QVERIFY(result.err.size() > 10);
    }
};

QTEST_GUILESS_MAIN(tst_programs)
#include "tst_programs.moc"
