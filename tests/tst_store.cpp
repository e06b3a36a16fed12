// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"
#include "KvData.h"
#include "KvLog.h"
#include "KvProjectDbOperator/CKvFlightDataDbOperator.h"
#include "support/TestProject.h"

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QMetaMethod>
#include <QtSql/QSqlError>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <atomic>
#include <memory>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

namespace
{
const QString Log = QStringLiteral("flight_monitor_detail_log");
const QString Mission = QStringLiteral("m1");
const QByteArray RawMessage("\x01\x00\xff", 3);

/// A recorder on a mission file.
struct Recorder {
    explicit Recorder(const QString& file, EUploadEnv env = EUploadEnv::None)
        : op(new CKvFlightDataDbOperator(nullptr, env)), host(op.get())
    {
        op->SetFlightMissionFilePath(file);
        op->SetFilghtMissionID(Mission);
    }
    void write(int messages)
    {
        for (int i = 0; i < messages; ++i) {
            emit host.message(RawMessage + QByteArray::number(i));
        }
    }
    std::unique_ptr<CKvFlightDataDbOperator> op;
    HostSignals host;
};

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

int count(const QString& file, const QString& table)
{
    return TestProject::value(file, "SELECT count(*) FROM " + table).toInt();
}
} // namespace

class tst_store : public QObject
{
    Q_OBJECT

private slots:
    void metaObject();
    void initialisation();
    void lockedFileCostsOneShortWait();
    void lockStaysHeld_data();
    void lockStaysHeld();
    void monitorBatches();
    void waitingMessagesReachTheirFile_data();
    void waitingMessagesReachTheirFile();
    void foreignWriters();
    void fiveArguments_data();
    void fiveArguments();
    void typedRecords();
    void damagedDescriptions_data();
    void damagedDescriptions();
    void oneValue_data();
    void oneValue();
    void breakpoints_data();
    void breakpoints();
    void breakpointLines();
    void videoTables();
};

void tst_store::metaObject()
{
    const QStringList expected = {
        "signal public UploadFinished(QString strProID,QString strFlightID)",
        "signal public UpLoading(QString strProID,QString strFlightID)",
        "signal public WriteDBFinished(QString strMissionID,uint iOperatorType,QString "
        "strFlightMissionFilePath)",
        "signal public RecBreakPointRet(bool )",
        "signal public signalUploadFlightMissionFinish()",
        "slot public SetFilghtMissionID(QString strMissionID)",
        "slot public SetFlightMissionFilePath(QString strFlightMissionFilePath)",
        "slot public SetFlightModeEasyFly(bool easyMode)",
        "slot public slotUpdateGeneralOneValue(QVariant cmd,QVariant key,QVariant value,QVariant "
        "strFlightMissionID)",
        "slot public slotParseJson(QJsonArray ,QString strFilePath,QString strMissionID,uint "
        "iOperatorType,QString strFlightMissionFilePath)",
        "slot public slotResetUploadFlow()",
        "slot private slotStartUpload()",
        "slot private slotCheckNewData()",
        "slot private slotUploadMissionFinished()",
        "slot private slotUpLoadPosDataFinshed()",
        "slot private slotUploadUasStatusFinished()",
        "slot private slotUpLoadFlightMonitorFinished()",
        "slot private slotWriteFlightMonitor(QByteArray byte)",
        "slot private slotUploadVideoMissionFisished()",
        "slot private slotParseJson(QJsonArray jsonArray,QString strFilePath,QString strFlightMissionID)",
        "slot private slotParseSingleJson(QJsonObject ,QString strFilePath,QString strTableName)",
        "slot private slotUpdateBreakpoint(int nLastWPIndex,double dLng,double dLat,QString "
        "strFlightMissionID,double dCirculaTaskCompletionDegree)",
        "slot private slotStartUploadTimer(bool bStart)",
        "slot private slotUpLoadfailed()",
        "slot private slotFlightMissionUpLoadfailed()",
        "slot private slotPosDataUpLoadfailed()",
        "slot private slotUasStatusUpLoadfailed()",
        "slot private slotFlightMonitorUpLoadfailed()",
    };
    const QMetaObject& meta = CKvFlightDataDbOperator::staticMetaObject;
    QStringList actual;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        QStringList arguments;
        for (int a = 0; a < method.parameterCount(); ++a) {
            arguments.append(method.parameterTypes().at(a) + ' ' + method.parameterNames().at(a));
        }
        actual.append(QString("%1 %2 %3(%4)")
                          .arg(method.methodType() == QMetaMethod::Signal ? "signal" : "slot",
                               method.access() == QMetaMethod::Private ? "private" : "public",
                               QString(method.name()), arguments.join(',')));
    }
    QCOMPARE(actual, expected);
}

void tst_store::initialisation()
{
    const TestProject project;
    const QString empty = project.file("m1/x.kv");
    const QString second = project.file("m1/y.kv");
    const QString garbage = project.file("m2/g.kv", QByteArray(5000, 'g'));
    const QStringList untouched = {project.file("top.kv"), project.file("m1/deep/z.kv"),
                                   project.file("m2/a.db")};
    const CKvFlightDataDbOperator first(nullptr, EUploadEnv::None);
    for (const QString& file : {empty, second}) {
        QCOMPARE(TestProject::values(file, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY 1"),
                 (QVariantList{"flight_complete", "flight_mission", Log, "pos_data", "uas_status"}));
    }
    QCOMPARE(contents(garbage), QByteArray(5000, 'g'));
    for (const QString& file : untouched) {
        QCOMPARE(contents(file), QByteArray());
    }
    const QByteArray before = contents(empty);
    const CKvFlightDataDbOperator again(nullptr, EUploadEnv::None);
    QCOMPARE(contents(empty), before);
}

void tst_store::lockedFileCostsOneShortWait()
{
    const TestProject project;
    const QString locked = project.file("m1/a.kv");
    const QString free = project.file("m1/b.kv");
    CKvDataBase foreign(locked);
    QVERIFY(foreign.open() && foreign.transaction());
    const CKvFlightDataDbOperator op(nullptr, EUploadEnv::None);
    QVERIFY(foreign.commit());
    QCOMPARE(count(locked, "sqlite_master"), 0);
    QVERIFY(count(free, "sqlite_master") >= 5);
}

void tst_store::lockStaysHeld_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<bool>("project");
    QTest::addColumn<bool>("held");
    QTest::newRow("one value, no project") << "value" << false << true;
    QTest::newRow("records, no project") << "records" << false << true;
    QTest::newRow("one record, no project") << "record" << false << true;
    QTest::newRow("breakpoint, no project") << "breakpoint" << false << true;
    QTest::newRow("records into a file that does not open") << "records" << true << true;
    QTest::newRow("empty array") << "none" << false << false;
    QTest::newRow("other command") << "command 2" << false << false;
    QTest::newRow("one value, no file") << "value" << true << false;
}

void tst_store::lockStaysHeld()
{
    QFETCH(QString, call);
    QFETCH(bool, project);
    QFETCH(bool, held);
    const TestProject current;
    if (!project) {
        CKvControl::GetInstance(false, EPlaneType::Multirotor)->SetProjectDirPath(current.path("missing"));
    }
    const pid_t child = fork();
    if (child == 0) {
        CKvFlightDataDbOperator op(nullptr, EUploadEnv::None);
        HostSignals host(&op);
        if (call == "value" || call == "command 2") {
            op.slotUpdateGeneralOneValue(call == "value" ? 1 : 2, "is_uploaded", 0, Mission);
        } else if (call == "record") {
            emit host.record({{"id", "1"}}, "missing", "pos_data");
        } else if (call == "breakpoint") {
            emit host.breakpoint(1, 2, 3, Mission, 4);
        } else {
            const QJsonArray records = call == "none" ? QJsonArray() : QJsonArray{QJsonObject{{"id", "1"}}};
            op.slotParseJson(records, "pos_data.txt", Mission, 1, "/missing/folder/x.kv");
        }
        alarm(1);
        op.slotParseJson({}, {}, {}, 0, {}); // takes the lock and does nothing else
        _exit(0);
    }
    int status = 0;
    QCOMPARE(waitpid(child, &status, 0), child);
    QCOMPARE(WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM, held);
    QCOMPARE(WIFEXITED(status) && WEXITSTATUS(status) == 0, !held);
}

void tst_store::monitorBatches()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    {
        Recorder recorder(file);
        recorder.op->SetFilghtMissionID({});
        recorder.write(60);
        recorder.op->SetFilghtMissionID(Mission);
        recorder.write(49);
        QCOMPARE(count(file, Log), 0);
        recorder.write(1);
        QCOMPARE(count(file, Log), 50);
        recorder.write(7);
        QCOMPARE(count(file, Log), 50);
    }
    QCOMPARE(count(file, Log), 57);
    QCOMPARE(TestProject::value(file, "SELECT count(DISTINCT id) FROM " + Log +
                                          " WHERE flight_mission_id = 'm1' AND is_uploaded = 0 AND "
                                          "created_at LIKE '____-__-__ __:__:__.___' AND length(id) = 36")
                 .toInt(),
             57);
    const QVariant message = TestProject::value(file, "SELECT message FROM " + Log + " ORDER BY rowid");
    QCOMPARE(message.toByteArray(), RawMessage + '0');
}

void tst_store::waitingMessagesReachTheirFile_data()
{
    QTest::addColumn<QString>("event");
    for (const char* event : {"other file", "records, other file", "records, same file", "no such file",
                              "pause", "scan", "end of pass", "receiver of WriteDBFinished"}) {
        QTest::newRow(event) << event;
    }
}

void tst_store::waitingMessagesReachTheirFile()
{
    QFETCH(QString, event);
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    const QString other = project.missionFile("m2/flight.kv");
    const QJsonArray records{QJsonObject{{"id", "p1"}}};
    const QString columns = project.file("pos_data.txt", "id TEXT");
    CKvControl::GetInstance(false, EPlaneType::Multirotor)->SetNetWorkConnected(true);
    Recorder recorder(file, event == "scan" ? EUploadEnv::WholeProject : EUploadEnv::OncePerRequest);
    CKvFlightDataDbOperator& op = *recorder.op;
    recorder.write(30);
    QCOMPARE(count(file, Log), 0);
    if (event == "other file") {
        op.SetFlightMissionFilePath(other);
    } else if (event == "records, other file") {
        op.slotParseJson(records, columns, Mission, 1, other);
    } else if (event == "records, same file") {
        op.slotParseJson(records, columns, Mission, 1, file);
    } else if (event == "no such file") {
        op.SetFlightMissionFilePath("/missing/folder/x.kv");
    } else if (event == "pause") {
        emit recorder.host.startUploadTimer(false);
    } else if (event == "receiver of WriteDBFinished") {
        connect(&op, &CKvFlightDataDbOperator::WriteDBFinished, &op, [&] {
            recorder.write(30);
            op.SetFlightMissionFilePath(other);
        });
        op.slotParseJson(records, columns, Mission, 1, file);
        QCOMPARE(count(file, Log), 60);
        return;
    } else {
        emit recorder.host.tick();
    }
    QCOMPARE(count(file, Log), 30);
    QCOMPARE(count(other, Log), 0);
}

void tst_store::foreignWriters()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    std::atomic<bool> stop{false};
    std::atomic<int> written{0};
    std::thread foreign([&] {
        CKvDataBase database(QString{});
        database.DBInstance()->setDatabaseName(file);
        database.open();
        while (!stop) {
            database.transaction();
            database.exec("INSERT INTO flight_mission(name) VALUES('foreign')");
            std::this_thread::sleep_for(std::chrono::milliseconds(written == 0 ? 2500 : 3));
            written += database.commit() ? 1 : 0;
        }
    });
    QTest::qWait(200); // the first foreign transaction holds the lock by now
    {
        Recorder recorder(file);
        recorder.write(520);
    }
    stop = true;
    foreign.join();
    QCOMPARE(count(file, Log), 520);
    QCOMPARE(count(file, "flight_mission"), written.load());
}

void tst_store::fiveArguments_data()
{
    QTest::addColumn<QString>("columns");
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("sql");
    QTest::addColumn<QVariantList>("expected");
    QTest::newRow("values are text, numbers get NULL")
        << "id t name t aircraft t" << QByteArray(R"([{"id":"a","name":"x","aircraft":5}])")
        << "SELECT name || ifnull(aircraft, '-') FROM flight_mission WHERE id = 'a'" << QVariantList{"x-"};
    QTest::newRow("known ids are skipped")
        << "id t name t" << QByteArray(R"([{"id":"old","name":"new"},{"id":"b"},{"id":"b"}])")
        << "SELECT id || ifnull(name, '-') FROM flight_mission ORDER BY id" << QVariantList{"b-", "oldold"};
    QTest::newRow("the first key with id in it is compared")
        << "id t name t" << QByteArray(R"([{"aircraft_id":"old","id":"c"},{"aircraft_id":"7","id":"d"}])")
        << "SELECT id FROM flight_mission WHERE id <> 'old'" << QVariantList{"d"};
    QTest::newRow("a lacking column keeps the last value")
        << "id t name t" << QByteArray(R"([{"id":"e","name":"kept"},{"id":"f"}])")
        << "SELECT name FROM flight_mission WHERE id = 'f'" << QVariantList{"kept"};
    QTest::newRow("no id, no is_uploaded, number as id")
        << "name t id t is_uploaded t"
        << QByteArray(R"([{"name":"g"},{"name":"g","id":8,"is_uploaded":1},{"name":"g","is_uploaded":"1"}])")
        << "SELECT count(DISTINCT id) || sum(is_uploaded) FROM flight_mission WHERE name = 'g'"
        << QVariantList{"31"};
    QTest::newRow("empty text is no NULL")
        << "id t name t" << QByteArray(R"([{"id":"h","name":""}])")
        << "SELECT name IS NULL FROM flight_mission WHERE id = 'h'" << QVariantList{0};
    QTest::newRow("nothing but objects")
        << "id t name t" << QByteArray(R"([1,"x",null,{"id":"i"}])")
        << "SELECT count(*) FROM flight_mission WHERE id <> 'old'" << QVariantList{4};
    QTest::newRow("message is Base64, log_count is NULL in words")
        << "id t message b x_log_count t message_log_count t"
        << QByteArray(
               R"([{"id":"j","message":"AP8=","x_log_count":"3","message_log_count":"aGk="},{"id":"k"}])")
        << "SELECT hex(message) || x_log_count || message_log_count FROM flight_mission WHERE id IN('j', 'k')"
        << QVariantList{"00FFNULLhi", "00FFNULLNULL"};
}

void tst_store::fiveArguments()
{
    QFETCH(QString, columns);
    QFETCH(QByteArray, json);
    QFETCH(QString, sql);
    QFETCH(QVariantList, expected);
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    QVERIFY(TestProject::run(file, {"ALTER TABLE flight_mission ADD COLUMN message",
                                    "ALTER TABLE flight_mission ADD COLUMN x_log_count",
                                    "ALTER TABLE flight_mission ADD COLUMN message_log_count",
                                    "INSERT INTO flight_mission(id, name) VALUES('old', 'old')"}));
    CKvFlightDataDbOperator op(nullptr, EUploadEnv::None);
    QSignalSpy finished(&op, SIGNAL(WriteDBFinished(QString, uint, QString)));
    op.slotParseJson(QJsonDocument::fromJson(json).array(),
                     project.file("flight_mission.v1.txt", columns.toUtf8()), "any", 9, file);
    QCOMPARE(finished, (QList<QVariantList>{{"any", 9U, file}}));
    QCOMPARE(TestProject::values(file, sql), expected);
}

void tst_store::typedRecords()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    const QString columns = project.file("any.txt", "id t time t lng d is_uploaded i speed d alt d");
    Recorder recorder(file);
    QSignalSpy finished(recorder.op.get(), SIGNAL(WriteDBFinished(QString, uint, QString)));
    emit recorder.host.positions({}, columns, Mission);
    emit recorder.host.positions({QJsonObject{{"id", "p1"}, {"lng", 116.5}, {"unknown", 1}},
                                  QJsonObject{{"lng", -0.25}, {"time", ""}}},
                                 columns, Mission);
    QCOMPARE(finished, (QList<QVariantList>{{Mission, 2U, file}}));
    emit recorder.host.record(QJsonObject{{"id", 7}, {"lng", 1.5}, {"alt", true}}, columns, "pos_data");
    QCOMPARE(TestProject::values(file, "SELECT lng || typeof(lng) || is_uploaded || typeof(speed) || "
                                       "typeof(time) || length(id) || ifnull(alt, '') FROM pos_data ORDER BY "
                                       "rowid"),
             (QVariantList{"116.5real0nullnull2", "-0.25real0nulltext32", "1.5real0nullnull11.0"}));
}

void tst_store::damagedDescriptions_data()
{
    QTest::addColumn<QByteArray>("columns");
    QTest::newRow("missing") << QByteArray();
    QTest::newRow("odd number of tokens") << QByteArray("id t name");
    QTest::newRow("no such column") << QByteArray("id t nosuch t");
    QTest::newRow("no SQL") << QByteArray("id t ) t");
    QTest::newRow("binary") << QByteArray("\x00\xff\xfe id \x01", 8);
}

void tst_store::damagedDescriptions()
{
    QFETCH(QByteArray, columns);
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    const QString description =
        columns.isNull() ? project.path("missing.txt") : project.file("pos_data.txt", columns);
    Recorder recorder(file);
    QSignalSpy finished(recorder.op.get(), SIGNAL(WriteDBFinished(QString, uint, QString)));
    recorder.write(3);
    const QJsonArray records{QJsonObject{{"id", "1"}}};
    recorder.op->slotParseJson(records, description, Mission, 1, file);
    emit recorder.host.positions(records, description, Mission);
    emit recorder.host.record({{"id", "1"}}, description, "pos_data");
    QCOMPARE(finished.count(), 2);
    QCOMPARE(count(file, "pos_data"), 0);
    QCOMPARE(count(file, Log), 3);
}

void tst_store::oneValue_data()
{
    QTest::addColumn<QVariant>("cmd");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("message");
    QTest::addColumn<int>("expected");
    const QString success = "----------------sql ====success  ";
    QTest::newRow("number") << QVariant(1) << QVariant(0) << success << 0;
    QTest::newRow("numbers as text") << QVariant("1") << QVariant("7") << success << 7;
    QTest::newRow("no number") << QVariant(1) << QVariant("abc") << success << 0;
    QTest::newRow("other command") << QVariant(2) << QVariant(0) << "" << 1;
}

void tst_store::oneValue()
{
    QFETCH(QVariant, cmd);
    QFETCH(QVariant, value);
    QFETCH(QString, message);
    QFETCH(int, expected);
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    QVERIFY(TestProject::run(file, {"INSERT INTO flight_mission(id, is_uploaded) VALUES('m1', 1)"}));
    Recorder recorder(file);
    if (!message.isEmpty()) {
        QTest::ignoreMessage(QtDebugMsg, qPrintable(message));
    }
    recorder.op->slotUpdateGeneralOneValue(cmd, "is_uploaded", value, "m1");
    QCOMPARE(TestProject::value(file, "SELECT is_uploaded FROM flight_mission").toInt(), expected);
    QTest::ignoreMessage(QtDebugMsg, "----------------sql ====fail  ");
    recorder.op->slotUpdateGeneralOneValue(1, "is_uploaded", 1, "it's");
}

void tst_store::breakpoints_data()
{
    QTest::addColumn<QVariant>("document"); // as stored before
    QTest::addColumn<QString>("after");     // null: the row stays as it was
    QTest::addColumn<QVariantList>("answers");
    const QVariantList yes{true};
    const QString degree = "    \"circula_task_completion_degree\": 62.5";
    QTest::newRow("added") << QVariant("{\"a\":1}") << "{\n    \"a\": 1,\n" + degree + "\n}\n" << yes;
    QTest::newRow("replaced") << QVariant("{\"circula_task_completion_degree\":\"x\"}")
                              << "{\n" + degree + "\n}\n"
                              << yes;
    QTest::newRow("array") << QVariant("[1]") << "{\n" + degree + "\n}\n" << yes;
    QTest::newRow("no JSON") << QVariant("{\"a\"") << "" << yes;
    QTest::newRow("nothing") << QVariant(QVariant::String) << "" << yes;
    const QString megabyte(1000000, 'm');
    QTest::newRow("1 MB") << QVariant("{\"a\":\"" + megabyte + "\"}")
                          << "{\n    \"a\": \"" + megabyte + "\",\n" + degree + "\n}\n"
                          << yes;
    QTest::newRow("marker of the id")
        << QVariant("{\"a\":\"%5\"}") << "{\n    \"a\": \"m1\",\n" + degree + "\n}\n"
        << yes;
    QTest::newRow("earlier marker takes the id") << QVariant("{\"a\":\"%1\"}") << QString() << yes;
    QTest::newRow("single quote") << QVariant("{\"a\":\"it's\"}") << QString() << QVariantList();
}

void tst_store::breakpoints()
{
    QFETCH(QVariant, document);
    QFETCH(QString, after);
    QFETCH(QVariantList, answers);
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    CKvDataBase database(file);
    QVERIFY(database.open());
    QSqlQuery insert(*database.DBInstance());
    insert.prepare("INSERT INTO flight_mission(id, flight_mission_data, is_uploaded) VALUES('m1', ?, 1)");
    insert.addBindValue(document);
    QVERIFY(insert.exec());
    insert.finish();
    Recorder recorder(file);
    QSignalSpy answered(recorder.op.get(), SIGNAL(RecBreakPointRet(bool)));
    emit recorder.host.breakpoint(12, 116.4, -0.5, Mission, 62.5);
    QCOMPARE(answered, (answers.isEmpty() ? QList<QVariantList>() : QList<QVariantList>{answers}));
    const QString point =
        "SELECT is_uploaded || ' ' || last_waypoint_index || ' ' || break_point_lng || ' ' || "
        "break_point_lat FROM flight_mission";
    QCOMPARE(TestProject::value(file, point).toString(),
             after.isNull() ? QString() : "0 12 116.400000 -0.500000");
    QCOMPARE(TestProject::value(file, "SELECT flight_mission_data FROM flight_mission").toString(),
             after.isNull() ? document.toString() : after);
    recorder.op->slotParseJson({}, {}, {}, 0, {}); // the lock is free again
}

void tst_store::breakpointLines()
{
    const TestProject project;
    Recorder recorder(project.missionFile("m1/flight.kv"));
    QStringList lines;
    Logger::instance().setListener([&lines](Level, const QString& line) { lines.append(line); });
    Logger::instance().setLoggingLevel(Level::Info);
    emit recorder.host.breakpoint(1, 2, 3, "none", 4.5);
    emit recorder.host.breakpoint(1, 2, 3, "it's", 4.5);
    Logger::instance().setLoggingLevel(Level::Warn);
    Logger::instance().setListener({});
    const QString method = "CKvFlightDataDbOperator::slotUpdateBreakpoint ";
    const QString sql =
        "UPDATE flight_mission SET is_uploaded = 0,last_waypoint_index = '1', break_point_lng = "
        "'2.000000', break_point_lat = '3.000000', flight_mission_data = '' WHERE id = '";
    QCOMPARE(lines.mid(0, 4),
             (QStringList{method + "403 ------record break point slot in none 4.5",
                          method + "405 ------record break point slot start",
                          method + "447 ------record break point slot sql== " + sql + "none'",
                          method + "451 record break point is ok"}));
    QCOMPARE(lines.size(), 8);
    QVERIFY(lines[7].startsWith(method + "454 record break point fail sql string== " + sql +
                                "it's' sql error=="));
}

void tst_store::videoTables()
{
    const TestProject project;
    const QString easy = project.path("easy.db");
    const QString upper = project.path("easy.DB");
    Recorder recorder(easy);
    QCOMPARE(TestProject::values(easy, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY 1"),
             (QVariantList{Log, "flight_video_mission", "uas_status"}));
    recorder.op->SetFlightMissionFilePath(upper);
    QCOMPARE(count(upper, "sqlite_master"), 0);
}

QTEST_GUILESS_MAIN(tst_store)
#include "tst_store.moc"
