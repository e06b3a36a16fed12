// SPDX-License-Identifier: MIT
#include "support/Program.h"
#include "support/TestProject.h"

#include <QtCore/QDir>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QtEndian>
#include <QtTest/QTest>

#include <algorithm>
#include <memory>
#include <random>

namespace
{
const QString Token = QStringLiteral("t0k3n");

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

QByteArray asLog(const QList<QByteArray>& frames)
{
    QByteArray log;
    quint64 usec = 1436056003484000;
    for (const QByteArray& frame : frames) {
        QByteArray stamp(8, '\0');
        qToBigEndian(usec += 100000, stamp.data());
        log += stamp + frame;
    }
    return log;
}

QStringList missionFiles(const QString& project)
{
    QStringList files;
    for (const QFileInfo& folder : QDir(project).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        for (const QFileInfo& file : QDir(folder.filePath()).entryInfoList({"*.kv"})) {
            files.append(file.filePath());
        }
    }
    return files;
}

Program::SResult upload(const QString& project, const QString& url, const QStringList& more = {})
{
    return Program::run("flightdesk", QStringList({"upload", "--project", project, "--server", url, "--token",
                                                   Token, "--interval", "100"}) +
                                          more);
}
} // namespace

class tst_programs : public QObject
{
    Q_OBJECT

private slots:
    void everyFrameOnce();
    void faultyServer_data();
    void faultyServer();
    void hopelessUploads_data();
    void hopelessUploads();
    void wrongUsage_data();
    void wrongUsage();
};

/// A telemetry log, recorded and uploaded: the ledger holds each frame once, byte for byte.
void tst_programs::everyFrameOnce()
{
    const TestProject folder;
    const QString project = folder.path("project");
    const QString ledger = folder.path("ledger.db");
    QList<QByteArray> frames = makeFrames(2100);
    const QString log = folder.file("flight.tlog", asLog(frames) + "cut off");
    auto server = std::make_unique<IngestServer>(QStringList{"--token", Token, "--ledger", ledger});
    for (int round = 1; round <= 2; ++round) {
        QCOMPARE(Program::run("flightdesk", {"record", "--project", project, log}).exitCode, 0);
        const Program::SResult uploaded = upload(project, server->url());
        QVERIFY2(uploaded.exitCode == 0, uploaded.err);
        const Program::SResult status =
            Program::run("flightdesk", {"status", "--project", project, "--ledger", ledger});
        QVERIFY2(status.exitCode == 0, status.out + status.err);
        QVERIFY(status.out.trimmed().endsWith("rows accepted and marked"));
    }
    server.reset(); // it holds the ledger
    const QString kind = " WHERE kind = 'flight_monitor_detail_log'";
    QList<QByteArray> received;
    for (const QVariant& row : TestProject::values(ledger, "SELECT json FROM \"row\"" + kind)) {
        const QJsonObject record = QJsonDocument::fromJson(row.toByteArray()).object();
        received.append(
            QByteArray::fromBase64(record["message"].toString().toLatin1(), QByteArray::Base64UrlEncoding));
    }
    frames += frames;
    std::sort(frames.begin(), frames.end());
    std::sort(received.begin(), received.end());
    QCOMPARE(received.size(), frames.size());
    QVERIFY(received == frames);
    QCOMPARE(TestProject::value(ledger, "SELECT max(times) FROM \"row\"").toInt(), 1);
    QCOMPARE(TestProject::values(ledger,
                                 "SELECT rows FROM request WHERE path = '/flight/detailupload' ORDER BY seq"),
             (QVariantList{1000, 1000, 100, 1000, 1000, 100}));
}

void tst_programs::faultyServer_data()
{
    QTest::addColumn<QStringList>("faults");
    QTest::newRow("errors, then well")
        << QStringList{"http=500:0:1", "garbage:2:1", "status=403:4:1", "cut:6:1"};
    QTest::newRow("reply lost after the commit") << QStringList{"drop:1:1", "drop:5:1"};
    QTest::newRow("no answer for 20 s") << QStringList{"stall:3:1"};
}

void tst_programs::faultyServer()
{
    QFETCH(QStringList, faults);
    const TestProject folder;
    const QString project = folder.path("project");
    const QString ledger = folder.path("ledger.db");
    QStringList arguments{"--token", Token, "--ledger", ledger};
    for (const QString& fault : faults) {
        arguments += {"--fault", fault};
    }
    const IngestServer server(arguments);
    QCOMPARE(Program::run("flightdesk", {"simulate", "--project", project, "--missions", "2", "--minutes",
                                         "1", "--seed", "3"})
                 .exitCode,
             0);
    const Program::SResult uploaded = upload(project, server.url());
    QVERIFY2(uploaded.exitCode == 0, uploaded.err);
    const Program::SResult status =
        Program::run("flightdesk", {"status", "--project", project, "--ledger", ledger});
    QVERIFY2(status.exitCode == 0, status.out + status.err);
}

void tst_programs::hopelessUploads_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QByteArray>("words");
    QTest::newRow("token") << "token" << QByteArray("token");
    QTest::newRow("unreachable") << "unreachable" << QByteArray("no usable answer");
    QTest::newRow("no mission row") << "orphan" << QByteArray("no flight_mission row");
    QTest::newRow("corrupt file") << "corrupt" << QByteArray("cannot be read");
}

void tst_programs::hopelessUploads()
{
    QFETCH(QString, kind);
    QFETCH(QByteArray, words);
    const TestProject folder;
    const QString project = folder.path("project");
    const IngestServer server({"--token", kind == "token" ? "other" : Token});
    QCOMPARE(Program::run("flightdesk", {"simulate", "--project", project, "--missions", "1", "--minutes",
                                         "1", "--seed", "4"})
                 .exitCode,
             0);
    QString url = server.url();
    if (kind == "unreachable") {
        url = "http://127.0.0.1:1";
    } else if (kind == "orphan") {
        QVERIFY(TestProject::run(missionFiles(project).value(0), {"DELETE FROM flight_mission"}));
    } else if (kind == "corrupt") {
        folder.file("project/broken/flight.kv", QByteArray(5000, 'x'));
    }
    const Program::SResult uploaded = upload(project, url, {"--patience", "5"});
    QCOMPARE(uploaded.exitCode, 1);
    const QByteArray said = uploaded.out + uploaded.err;
    QVERIFY2(said.contains(words), said);
    QVERIFY(!said.contains(Token.toUtf8()));
}

void tst_programs::wrongUsage_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments");
    const QStringList upload{"upload", "--project", "/tmp", "--token", "t", "--server"};
    QTest::newRow("no such command") << "flightdesk" << QStringList{"fly"};
    QTest::newRow("no project") << "flightdesk" << QStringList{"status"};
    QTest::newRow("no log") << "flightdesk" << QStringList{"record", "--project", "/tmp"};
    QTest::newRow("bad address") << "flightdesk" << upload + QStringList{"ftp://x"};
    QTest::newRow("bad number") << "flightdesk" << upload + QStringList{"http://x", "--patience", "-1"};
    QTest::newRow("bad port") << "flightserver" << QStringList{"--port", "99999"};
    QTest::newRow("bad fault") << "flightserver" << QStringList{"--fault", "rain"};
    QTest::newRow("bad ledger") << "flightserver" << QStringList{"--ledger", "/proc/no/ledger"};
}

void tst_programs::wrongUsage()
{
    QFETCH(QString, program);
    QFETCH(QStringList, arguments);
    const Program::SResult result = Program::run(program, arguments);
    QCOMPARE(result.exitCode, 2);
    QVERIFY(result.out.isEmpty());
    QVERIFY(result.err.size() > 10);
}

QTEST_GUILESS_MAIN(tst_programs)
#include "tst_programs.moc"
