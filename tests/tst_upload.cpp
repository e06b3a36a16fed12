// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"
#include "KvData.h"
#include "KvLog.h"
#include "KvProjectDbOperator/CKvFlightDataDbOperator.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"

#include <QtCore/QDir>
#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <QtCore/QJsonObject>
#include <QtCore/QSet>
#include <QtCore/QThread>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <functional>
#include <map>
#include <memory>

namespace
{
const QString Log = QStringLiteral("flight_monitor_detail_log");
const QStringList Tables = {"flight_mission", "pos_data", "uas_status", Log};
const QStringList Chain = {"/flight/upload", "/flight/posupload", "/flight/uasstatusupload",
                           "/flight/detailupload"};

CKvControl* control()
{
    return CKvControl::GetInstance(false, EPlaneType::Multirotor);
}

/// An uploader that is armed with a token; ticks are given by hand or by its timer.
struct Uploader {
    explicit Uploader(EUploadEnv env, const QString& file = {}, const char* token = "token")
        : op(new CKvFlightDataDbOperator(nullptr, env))
        , host(op.get())
        , uploading(op.get(), SIGNAL(UpLoading(QString, QString)))
        , finished(op.get(), SIGNAL(UploadFinished(QString, QString)))
        , missions(op.get(), SIGNAL(signalUploadFlightMissionFinish()))
    {
        SKvUserInfo user;
        user.m_strToken = token;
        SetCurUserInfo(user);
        if (!file.isEmpty()) {
            op->SetFlightMissionFilePath(file);
        }
        op->SetStartTimeInterval(1000000); // no tick of its own before a cycle has run
        emit host.arm();
        op->SetStartTimeInterval(10);
    }
    std::unique_ptr<CKvFlightDataDbOperator> op;
    HostSignals host;
    QSignalSpy uploading;
    QSignalSpy finished;
    QSignalSpy missions;
};

/// Runs a function on a thread whose stack holds no ten thousand nested calls.
void onSmallStack(const std::function<void()>& function)
{
    const std::unique_ptr<QThread> thread(QThread::create(function));
    thread->setStackSize(512 * 1024);
    thread->start();
    QTRY_VERIFY_WITH_TIMEOUT(thread->isFinished(), 60000);
}

int waitingRows(const QString& file)
{
    int rows = 0;
    for (const QString& table : Tables) {
        rows += TestProject::waiting(file, table);
    }
    return rows;
}
} // namespace

class tst_upload : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void chain();
    void exactValues();
    void environments_data();
    void environments();
    void faults();
    void rowsWithoutIdOrMark();
    void rowsAddedInFlightWait();
    void marksRefused();
    void emptyToken();
    void video_data();
    void video();
    void networkDown();
    void pauseAndResume();
    void resetFlow();
    void deadEnds();
    void finishedFiles();
    void staleQueue();
    void waitingRowsAreIndexed();
    void logThreshold();

private:
    std::unique_ptr<ScriptedServer> m_server;
};

void tst_upload::init()
{
    m_server = std::make_unique<ScriptedServer>();
    SetServerIP(m_server->url());
    control()->SetNetWorkConnected(true);
}

void tst_upload::chain()
{
    const TestProject project;
    const QString first = project.missionFile("m1/flight.kv");
    const QString second = project.missionFile("m2/flight.kv");
    TestProject::addMission(first, "m1", 1200, 3, 2500);
    TestProject::addMission(second, "m2", 0, 0, 1);
    Uploader uploader(EUploadEnv::WholeProject);
    emit uploader.host.tick();
    QTRY_COMPARE_WITH_TIMEOUT(waitingRows(first) + waitingRows(second), 0, 20000);
    QCOMPARE(uploader.missions.count(), 2);
    QCOMPARE(uploader.uploading.count(), 4);

    QList<int> rows;
    QStringList paths;
    for (const SRequest& request : qAsConst(m_server->requests)) {
        QCOMPARE(request.headers.value("token"), QByteArray("token"));
        if (request.body.contains("m1")) {
            paths.append(request.path);
            rows.append(request.records().size());
            const bool single = request.path == "/flight/upload";
            QCOMPARE(request.field("flight_mission_id"), QByteArray(single ? "" : "m1"));
            QVERIFY(request.body.startsWith(single ? "data={" : "flight_mission_id=m1&data=[{"));
        }
    }
    QCOMPARE(paths, Chain + QStringList({"/flight/detailupload", "/flight/detailupload"}));
    QCOMPARE(rows, (QList<int>{1, 1200, 3, 1000, 1000, 500}));
    QVERIFY(uploader.uploading.contains({"project-m1", "m1"}));
}

/// What a text column holds is what the server reads, whatever it is.
void tst_upload::exactValues()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    const QString nasty =
        QString::fromUtf8("%41&data=x;+ \"\\\r\n\t/'飞行 🚁 \u2028\x7f\xc2\xa0") + QString(3000, '%');
    const QMap<QString, QStringList> columns = {
        {"flight_mission",
         {"project_id", "mission_id", "name", "aircraft", "started_at", "flight_mission_data",
          "last_waypoint_index", "break_point_lng", "break_point_lat", "created_at"}},
        {"pos_data", {"time", "created_at"}},
        {"uas_status", {"mission_id", "time", "flight_mode", "created_at"}},
        {Log, {"created_at"}},
    };
    const QByteArray bytes = QByteArray::fromHex("00ff25262b3d0a") + QByteArray(500, '\xfb');
    QString quoted = nasty;
    quoted.replace("'", "''");
    for (const QString& table : Tables) {
        QStringList set;
        for (const QString& column : columns[table]) {
            set.append(column + " = '" + column + quoted + "'");
        }
        const QString id =
            table == "flight_mission" ? "id) VALUES('m1')" : "id, flight_mission_id) VALUES('1', 'm1')";
        QVERIFY(TestProject::run(
            file, {"INSERT INTO " + table + '(' + id, "UPDATE " + table + " SET " + set.join(',')}));
    }
    QVERIFY(TestProject::run(file, {"UPDATE " + Log + " SET message = x'" + bytes.toHex() + "'"}));
    Uploader uploader(EUploadEnv::OncePerRequest, file);
    emit uploader.host.tick();
    QTRY_COMPARE(m_server->requests.size(), 4);
    for (int i = 0; i < Tables.size(); ++i) {
        const QJsonObject record = m_server->requests[i].records().at(0).toObject();
        QVERIFY(!record.contains("is_uploaded"));
        for (const QString& column : columns[Tables[i]]) {
            QCOMPARE(record[column].toString(), column + nasty);
        }
    }
    const QString message = m_server->requests[3].records().at(0)["message"].toString();
    QCOMPARE(QByteArray::fromBase64(message.toLatin1(), QByteArray::Base64UrlEncoding), bytes);
}

void tst_upload::environments_data()
{
    QTest::addColumn<int>("env");
    QTest::addColumn<QString>("current");
    QTest::addColumn<QStringList>("missions"); // that reach the server
    QTest::newRow("nothing") << 0 << "a" << QStringList();
    QTest::newRow("unknown value") << 77 << "a" << QStringList();
    QTest::newRow("current log") << 1 << "a" << QStringList{"a"};
    QTest::newRow("current, without log rows") << 1 << "b" << QStringList();
    QTest::newRow("project") << 2 << "" << QStringList{"a", "b", "c"};
    QTest::newRow("once, current file") << 3 << "" << QStringList{"a", "b"};
}

void tst_upload::environments()
{
    QFETCH(int, env);
    QFETCH(QString, current);
    QFETCH(QStringList, missions);
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    const QString other = project.missionFile("m2/flight.kv");
    TestProject::addMission(file, "a", 1, 1, 1);
    TestProject::addMission(file, "b", 1, 0, 0);
    TestProject::addMission(file, "done", 0, 0, 0);
    TestProject::addMission(other, "c", 0, 1, 0);
    QVERIFY(TestProject::run(file, {"UPDATE flight_mission SET is_uploaded = 1 WHERE id IN('b', 'done')"}));
    Uploader uploader(static_cast<EUploadEnv>(env), file);
    uploader.op->SetFilghtMissionID(current);
    emit uploader.host.tick();
    const int requests = missions.size() == 3 ? 7 : missions.contains("b") ? 5 : missions.size() * 4;
    QTRY_COMPARE(m_server->requests.size(), requests);
    QTest::qWait(100);
    QCOMPARE(m_server->requests.size(), requests);
    QSet<QString> seen;
    for (const SRequest& request : qAsConst(m_server->requests)) {
        const QByteArray id = request.field("flight_mission_id");
        seen.insert(id.isEmpty() ? request.ids().value(0) : id);
    }
    QCOMPARE(seen, QSet<QString>(missions.cbegin(), missions.cend()));
    if (env == 3) {
        QCOMPARE(uploader.finished, (QList<QVariantList>{{"", "b"}}));
        // The timer is stopped, its signals are blocked and the file is closed; the way out of all three:
        uploader.op->SetFlightMissionFilePath(file);
        emit uploader.host.startUploadTimer(true);
        emit uploader.host.arm();
        QTRY_COMPARE(uploader.finished.count(), 2);
        QCOMPARE(uploader.finished.constLast(), (QVariantList{"", ""}));
    }
}

/// Every fault at every step of the chain, each on a file and operator of its own, at the same time: what
/// was not accepted is not marked, and everything arrives once the server is well.
void tst_upload::faults()
{
    using Reply = ScriptedServer::SReply;
    const QMap<QByteArray, Reply> replies = {
        {"500", ScriptedServer::json("", "500 Internal Server Error")},
        {"500 with status", ScriptedServer::json(R"({"status":500})", "500 Internal Server Error")},
        {"garbage", ScriptedServer::json("<html>")},
        {"empty object", ScriptedServer::json("{}")},
        {"401", ScriptedServer::json(R"({"status":401})")},
        {"403", ScriptedServer::json(R"({"status":403})", "403 Forbidden")},
        {"cut", ScriptedServer::cut()},
        {"slam", ScriptedServer::slam()},
        {"silence", ScriptedServer::silence()},
    };
    const TestProject project;
    struct Case {
        QString file;
        std::unique_ptr<Uploader> uploader;
    };
    std::map<QByteArray, Case> cases;
    for (auto reply = replies.begin(); reply != replies.end(); ++reply) {
        for (const QString& path : Chain) {
            const QByteArray name = reply.key() + path.toLatin1();
            Case& c = cases[name];
            c.file = project.missionFile(name.toHex() + "/flight.kv");
            TestProject::addMission(c.file, name.toHex(), 3, 2, 1100);
        }
    }
    int failed = 0;
    bool markedEarly = false;
    m_server->script = [&](const SRequest& request) {
        const QByteArray name = request.headers.value("token");
        Case& c = cases.at(name);
        const QString table = Tables[Chain.indexOf(request.path)];
        const int waiting = TestProject::waiting(c.file, table);
        if (!name.endsWith(request.path) || c.uploader->op->property("failed").toBool()) {
            return ScriptedServer::accepted();
        }
        markedEarly |= waiting < request.records().size();
        c.uploader->op->setProperty("failed", true);
        ++failed;
        return replies[name.left(name.indexOf('/'))];
    };
    for (auto& [name, c] : cases) {
        c.uploader = std::make_unique<Uploader>(EUploadEnv::OncePerRequest, c.file, name.constData());
        emit c.uploader->host.tick();
    }
    for (auto& [name, c] : cases) {
        QTRY_VERIFY2_WITH_TIMEOUT(waitingRows(c.file) == 0, name.constData(), 60000);
    }
    QCOMPARE(failed, static_cast<int>(cases.size()));
    QVERIFY(!markedEarly);
}

void tst_upload::rowsWithoutIdOrMark()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    TestProject::addMission(file, "m1", 0, 0, 0);
    for (const QString& table : Tables.mid(1)) {
        QVERIFY(TestProject::run(file, {"INSERT INTO " + table + "(flight_mission_id) VALUES('m1'), ('m1')",
                                        "INSERT INTO " + table +
                                            "(id, flight_mission_id, is_uploaded) VALUES(NULL, 'm1', NULL), "
                                            "(7, 'm1', '0'), ('8.50', 'm1', 0.0)"}));
    }
    Uploader uploader(EUploadEnv::OncePerRequest, file);
    emit uploader.host.tick();
    QTRY_COMPARE(uploader.finished.count(), 1);
    QCOMPARE(waitingRows(file), 0);
    QCOMPARE(m_server->requests.size(), 4);
    QStringList ids = m_server->requests[3].ids();
    QCOMPARE(ids.size(), 5);
    QCOMPARE(ids.removeDuplicates(), 0);
    QVERIFY(ids.contains("7") && ids.contains("8.50"));
}

void tst_upload::rowsAddedInFlightWait()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    TestProject::addMission(file, "m1", 2, 0, 0);
    m_server->script = [&](const SRequest& request) {
        if (request.path == "/flight/posupload" && m_server->count(request.path) == 1) {
            TestProject::run(file, {"INSERT INTO pos_data(id, flight_mission_id) VALUES('late', 'm1')"});
        }
        return ScriptedServer::accepted();
    };
    Uploader uploader(EUploadEnv::WholeProject);
    emit uploader.host.tick();
    QTRY_COMPARE(m_server->count("/flight/posupload"), 1);
    QTRY_COMPARE(TestProject::values(file, "SELECT id FROM pos_data WHERE is_uploaded = 0"),
                 (QVariantList{"late"}));
    QTRY_COMPARE_WITH_TIMEOUT(waitingRows(file), 0, 6000); // the cycle after 3000 ms
    QCOMPARE(m_server->requests.constLast().ids(), (QStringList{"late"}));
}

/// A file that takes no marks, as a read-only one: everything is sent, nothing is lost.
void tst_upload::marksRefused()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    TestProject::addMission(file, "m1", 2, 2, 0);
    QStringList triggers;
    for (const QString& table : Tables) {
        triggers.append("CREATE TRIGGER no_" + table + " BEFORE UPDATE ON " + table +
                        " BEGIN SELECT RAISE(FAIL, 'read-only'); END");
    }
    QVERIFY(TestProject::run(file, triggers));
    Uploader uploader(EUploadEnv::WholeProject);
    emit uploader.host.tick();
    QTRY_COMPARE(m_server->requests.size(), 3);
    QCOMPARE(waitingRows(file), 5);
    QVERIFY(TestProject::run(
        file, {"DROP TRIGGER no_flight_mission", "DROP TRIGGER no_pos_data", "DROP TRIGGER no_uas_status"}));
    QTRY_COMPARE_WITH_TIMEOUT(waitingRows(file), 0, 6000);
}

void tst_upload::emptyToken()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    TestProject::addMission(file, "m1", 0, 0, 0);
    m_server->script = [](const SRequest& request) {
        return request.headers.value("token").isEmpty() ? ScriptedServer::json(R"({"status":401})")
                                                        : ScriptedServer::accepted();
    };
    {
        Uploader uploader(EUploadEnv::WholeProject, {}, "");
        emit uploader.host.tick();
        QTRY_COMPARE(m_server->requests.size(), 2); // tries again after the interval
        QCOMPARE(waitingRows(file), 1);
    }
    Uploader uploader(EUploadEnv::WholeProject); // a new token takes a new operator
    emit uploader.host.tick();
    QTRY_COMPARE(waitingRows(file), 0);
}

void tst_upload::video_data()
{
    QTest::addColumn<bool>("easyFly");
    QTest::addColumn<QString>("current");
    QTest::addColumn<QStringList>("first"); // requests of the first tick
    QTest::addColumn<QStringList>("second");
    QTest::newRow("easy-fly") << true << "v1"
                              << QStringList{"/flight/upload4video", "/flight/upload",
                                             "/flight/uasstatusupload", "/flight/detailupload"}
                              << QStringList{"/flight/uasstatusupload"};
    QTest::newRow("other mode") << false << "v1"
                                << QStringList{"/flight/upload", "/flight/uasstatusupload",
                                               "/flight/detailupload"}
                                << QStringList();
    QTest::newRow("no current mission") << true << "" << QStringList() << QStringList();
}

/// Beside the chain, which reads the mission from the video table in easy-fly mode but marks the mission
/// table.
void tst_upload::video()
{
    QFETCH(bool, easyFly);
    QFETCH(QString, current);
    QFETCH(QStringList, first);
    QFETCH(QStringList, second);
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    TestProject::addMission(file, "v1", 0, 1, 1);
    QVERIFY(TestProject::run(file, {"INSERT INTO flight_video_mission(id, name) VALUES('v1', 'a+b')"}));
    Uploader uploader(EUploadEnv::CurrentMissionLog, file);
    uploader.op->SetFlightModeEasyFly(easyFly);
    uploader.op->SetFilghtMissionID(current);
    const auto paths = [this] {
        QStringList list;
        for (const SRequest& request : qAsConst(m_server->requests)) {
            list.append(request.path);
        }
        list.sort();
        return list;
    };
    first.sort();
    emit uploader.host.tick();
    QTRY_COMPARE(paths(), first);
    QTRY_COMPARE(TestProject::waiting(file, "flight_video_mission"), easyFly && !current.isEmpty() ? 0 : 1);
    QTRY_COMPARE(TestProject::waiting(file, "flight_mission"), current.isEmpty() ? 1 : 0);
    QTRY_COMPARE(TestProject::waiting(file, Log), current.isEmpty() ? 1 : 0);
    QVERIFY(TestProject::run(file, {"INSERT INTO uas_status(id, flight_mission_id) VALUES('late', 'v1')"}));
    m_server->requests.clear();
    emit uploader.host.tick();
    QTRY_COMPARE(paths(), second);
    QTRY_COMPARE(TestProject::waiting(file, "uas_status"),
                 second.isEmpty() ? (current.isEmpty() ? 2 : 1) : 0);
}

void tst_upload::networkDown()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    TestProject::addMission(file, "m1", 0, 0, 1);
    Uploader uploader(EUploadEnv::WholeProject);
    control()->SetNetWorkConnected(false);
    emit uploader.host.arm(); // the timer ticks every 10 ms from here on
    QTest::qWait(200);
    QCOMPARE(m_server->requests.size(), 0);
    control()->SetNetWorkConnected(true);
    QTRY_COMPARE(waitingRows(file), 0);
}

void tst_upload::pauseAndResume()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    TestProject::addMission(file, "m1", 0, 0, 1500);
    Uploader uploader(EUploadEnv::WholeProject);
    m_server->script = [&](const SRequest& request) {
        if (request.path == "/flight/detailupload" && m_server->count(request.path) == 1) {
            emit uploader.host.startUploadTimer(false); // with a request in flight
        }
        return ScriptedServer::accepted();
    };
    emit uploader.host.tick();
    QTRY_COMPARE(m_server->requests.size(), 2);
    QTest::qWait(300);
    QCOMPARE(m_server->requests.size(), 2);
    QCOMPARE(TestProject::waiting(file, Log), 1500); // accepted, but the file was closed: sent again
    uploader.op->SetFlightMissionFilePath(file);
    emit uploader.host.startUploadTimer(true);
    emit uploader.host.arm();
    QTRY_COMPARE(waitingRows(file), 0);
}

void tst_upload::resetFlow()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    TestProject::addMission(file, "m1", 0, 0, 2500);
    Uploader uploader(EUploadEnv::WholeProject);
    connect(uploader.op.get(), &CKvFlightDataDbOperator::UpLoading, this, [&] {
        if (uploader.uploading.count() == 1) {
            uploader.op->slotResetUploadFlow();
        }
    });
    emit uploader.host.tick();
    QTRY_COMPARE(TestProject::waiting(file, Log), 1500);
    QTest::qWait(1000);
    QCOMPARE(m_server->count("/flight/detailupload"), 1);
    QTRY_COMPARE_WITH_TIMEOUT(waitingRows(file), 0, 6000);
    QCOMPARE(m_server->count("/flight/detailupload"), 3);
}

/// A handle that was closed under the same name is not opened by a scan; naming the file again is.
void tst_upload::deadEnds()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    TestProject::addMission(file, "m1", 0, 0, 1);
    Uploader uploader(EUploadEnv::OncePerRequest, file);
    emit uploader.host.startUploadTimer(false);
    QTest::ignoreMessage(QtDebugMsg, "Data base not open ");
    emit uploader.host.tick();
    QCOMPARE(waitingRows(file), 2);
    uploader.op->SetFlightMissionFilePath(file);
    emit uploader.host.tick();
    QTRY_COMPARE(waitingRows(file), 0);
}

/// Ten thousand files without anything to send.
void tst_upload::finishedFiles()
{
    const TestProject project;
    const QString file = project.missionFile("template/flight.kv");
    QVERIFY(QDir().mkpath(project.path("many")));
    for (int i = 0; i < 10000; ++i) {
        QVERIFY(QFile::link(file, project.path(QString("many/%1.kv").arg(i))));
    }
    const auto openFiles = [] {
        return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System).size();
    };
    int before = 0;
    int after = -1;
    onSmallStack([&] {
        Uploader uploader(EUploadEnv::WholeProject);
        before = openFiles();
        emit uploader.host.tick();
        after = openFiles();
    });
    QCOMPARE(after, before + 1); // the file that the connection names last
}

/// Missions that were queued before an outage and have been sent meanwhile: the queue is walked, not nested.
void tst_upload::staleQueue()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    QVERIFY(TestProject::run(file, {"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE "
                                    "i < 20000) INSERT INTO flight_mission(id) SELECT i FROM n"}));
    m_server->script = [&](const SRequest& request) {
        if (m_server->requests.size() > 1) {
            return ScriptedServer::accepted();
        }
        TestProject::run(
            file, {"UPDATE flight_mission SET is_uploaded = 1 WHERE id <> '" + request.ids().value(0) + "'"});
        return ScriptedServer::json(R"({"status":5})");
    };
    onSmallStack([&] {
        Uploader uploader(EUploadEnv::OncePerRequest, file);
        QEventLoop loop;
        connect(uploader.op.get(), &CKvFlightDataDbOperator::UploadFinished, &loop, &QEventLoop::quit);
        emit uploader.host.tick();
        loop.exec();
    });
    QCOMPARE(m_server->requests.size(), 2);
    QCOMPARE(waitingRows(file), 0);
}

/// The cost of a scan must not grow with the rows that are uploaded already.
void tst_upload::waitingRowsAreIndexed()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    QStringList statements = {
        "SELECT flight_mission_id from flight_monitor_detail_log WHERE is_uploaded = 0 AND flight_mission_id "
        "= 'm1' group by flight_mission_id",
        "select id from flight_mission where id in (SELECT distinct flight_mission_id as id from "
        "flight_monitor_detail_log WHERE is_uploaded = 0\t\t\tunion all\t\t\tSELECT id from flight_mission "
        "WHERE is_uploaded = 0\t\t\tunion\t\t\tSELECT distinct flight_mission_id as id from uas_status WHERE "
        "is_uploaded = 0\t\t\tunion\t\t\tSELECT distinct flight_mission_id as id from pos_data WHERE "
        "is_uploaded = 0)",
        "select * from flight_video_mission WHERE is_uploaded = 0 AND id='m1' LIMIT 1",
    };
    for (const QString& table : Tables.mid(1)) {
        statements.append("select * from " + table +
                          " WHERE is_uploaded = 0 AND flight_mission_id='m1' LIMIT 1000");
    }
    CKvDataBase database(file);
    QVERIFY(database.open());
    for (const QString& sql : qAsConst(statements)) {
        QSqlQuery plan = database.exec("EXPLAIN QUERY PLAN " + sql);
        int searches = 0;
        while (plan.next()) {
            const QString detail = plan.value("detail").toString();
            const bool indexed = detail.contains("_waiting") || detail.contains("sqlite_autoindex");
            QVERIFY2(!detail.startsWith("SCAN") || detail.contains("_waiting"), qPrintable(detail));
            QVERIFY2(!detail.startsWith("SEARCH") || indexed, qPrintable(detail));
            searches += indexed ? 1 : 0;
        }
        QVERIFY2(searches > 0, qPrintable(sql));
    }
}

void tst_upload::logThreshold()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    QStringList lines;
    Logger& logger = Logger::instance();
    logger.setListener([&](Level level, const QString& line) {
        lines.append(QString::number(static_cast<int>(level)) + ' ' + line);
    });
    for (const Level level : {Level::Warn, Level::Info}) {
        logger.setLoggingLevel(level);
        QVERIFY(TestProject::run(file, {"DELETE FROM flight_mission", "DELETE FROM pos_data"}));
        TestProject::addMission(file, "m1", 2, 0, 0);
        Uploader uploader(EUploadEnv::OncePerRequest, file);
        emit uploader.host.tick();
        QTRY_COMPARE(uploader.finished.count(), 1);
        uploader.op->slotResetUploadFlow();
        QMetaObject::invokeMethod(uploader.op.get(), "slotUasStatusUpLoadfailed");
    }
    logger.setListener({});
    logger.setLoggingLevel(Level::Warn);
    QVERIFY(lines.value(0).startsWith(
        "2 CKvFlightDataDbOperator::_upLoadFlightMission true Post flight_mission: {"));
    const QString op = "2 CKvFlightDataDbOperator::";
    const QStringList expected = {
        op + "_postFlightMission Start upload flight mission,id = m1",
        op + "slotUploadMissionFinished Upload flight mission success,id = m1",
        op + "_postPosData Start upload pos data, flightmission id = m1 ,idList = (m1-pos_data-1, "
             "m1-pos_data-2)",
        op + "slotUpLoadPosDataFinshed true true",
        op + "slotUpLoadPosDataFinshed Upload pos data success,idList = 'm1-pos_data-1','m1-pos_data-2'",
        op + "slotResetUploadFlow",
        op + "slotUasStatusUpLoadfailed 700",
    };
    QCOMPARE(lines.mid(1).join('\n'), expected.join('\n'));
}

QTEST_GUILESS_MAIN(tst_upload)
#include "tst_upload.moc"
