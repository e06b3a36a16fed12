// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"
#include "KvData.h"
#include "KvLog.h"
#include "support/TestProject.h"

#include <QtCore/QDir>
#include <QtCore/QJsonDocument>
#include <QtCore/QUuid>
#include <QtSql/QSqlError>
#include <QtTest/QTest>

class tst_host : public QObject
{
    Q_OBJECT

private slots:
    void serverAddress_data();
    void serverAddress();
    void refusedSettings();
    void network();
    void jsonValues_data();
    void jsonValues();
    void logLines();
    void logFileRotates();
    void openRefuses_data();
    void openRefuses();
    void openKeepsStatements();
    void durabilityPragmas();
    void failedCommitLeavesNoLock();
    void tablesOfOldFiles();
};

void tst_host::serverAddress_data()
{
    QTest::addColumn<QByteArray>("address");
    QTest::addColumn<QByteArray>("result"); // empty: refused
    QTest::newRow("http") << QByteArray("http://fly.example:8080") << QByteArray("http://fly.example:8080");
    QTest::newRow("path, slashes") << QByteArray("https://fly.example/a//")
                                   << QByteArray("https://fly.example/a");
    QTest::newRow("IPv6") << QByteArray("http://[::1]:80/") << QByteArray("http://[::1]:80");
    for (const char* bad : {"", "fly.example", "ftp://fly.example", "http://", "http:///x", "//fly.example",
                            "http://a:b@fly.example", "http://fly.example?x=1", "http://fly.example#x",
                            "http://fly example", "http://fly.example:99999", "\xff\xfe"}) {
        QTest::newRow(bad) << QByteArray(bad) << QByteArray();
    }
}

void tst_host::serverAddress()
{
    QFETCH(QByteArray, address);
    QFETCH(QByteArray, result);
    QVERIFY(SetServerIP("http://before.example"));
    QCOMPARE(SetServerIP(address), !result.isEmpty());
    QCOMPARE(GetServerIP(), result.isEmpty() ? QByteArray("http://before.example") : result);
}

void tst_host::refusedSettings()
{
    QStringList lines;
    Logger::instance().setListener([&lines](Level, const QString& line) { lines.append(line); });
    SKvUserInfo user;
    user.m_strToken = "good";
    QVERIFY(SetCurUserInfo(user));
    user.m_strToken = "secret\r\nx: y";
    QVERIFY(!SetCurUserInfo(user));
    QCOMPARE(GetCurUserInfo().m_strToken, QString("good"));
    QVERIFY(SetHomeDir("/some/home"));
    QVERIFY(!SetHomeDir("relative"));
    QCOMPARE(GetHomeDir(), QString("/some/home/"));
    QVERIFY(!Logger::instance().setLogFile("", 1024, 1));
    QVERIFY(!Logger::instance().setLogFile("/proc/no/such.log", 1024, 1));
    Logger::instance().setListener({});
    QCOMPARE(lines.size(), 4);
    QVERIFY(!lines.join(' ').contains("secret"));
}

void tst_host::network()
{
    CKvControl* const control = CKvControl::GetInstance(false, EPlaneType::Multirotor);
    QVERIFY(SetServerIP("http://127.0.0.1:1"));
    QVERIFY(control->IsNetWorkConnected());
    QVERIFY(SetServerIP("http://localhost:1"));
    QVERIFY(control->IsNetWorkConnected());
    control->SetNetWorkConnected(false);
    QVERIFY(!control->IsNetWorkConnected());
}

void tst_host::jsonValues_data()
{
    QTest::addColumn<QString>("literal"); // SQL
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("signs of forms") << "'50% & a=b; +1'" << QByteArray(R"("50%25 %26 a%3Db%3B %2B1")");
    QTest::newRow("signs of JSON") << "'\"\\' || char(10) || char(1)" << QByteArray(R"("\"\\\n\u0001")");
    QTest::newRow("other scripts") << QString::fromUtf8("'\u98DE \U0001F681'")
                                   << QByteArray(R"("%E9%A3%9E %F0%9F%9A%81")");
    QTest::newRow("integer") << "-9007199254740992" << QByteArray("-9007199254740992");
    QTest::newRow("large integer") << "9007199254740993" << QByteArray(R"("9007199254740993")");
    QTest::newRow("real") << "-0.1" << QByteArray("-0.1");
    QTest::newRow("small real") << "1e-9" << QByteArray("1e-09");
    QTest::newRow("whole real") << "1000000.0" << QByteArray("1000000");
    QTest::newRow("large real") << "1e20" << QByteArray(R"("1e%2B20")");
    QTest::newRow("infinity") << "1e999" << QByteArray(R"("inf")");
    QTest::newRow("null") << "NULL" << QByteArray("null");
    QTest::newRow("empty text") << "''" << QByteArray(R"("")");
    QTest::newRow("blob") << "x'fbff'" << QByteArray(R"("-_8")");
}

void tst_host::jsonValues()
{
    QFETCH(QString, literal);
    QFETCH(QByteArray, json);
    CKvDataBase database(QStringLiteral(":memory:"));
    QVERIFY(database.open());
    QSqlQuery query = database.exec("SELECT " + literal + " AS v, 0 AS is_uploaded, 'text' AS message");
    QVERIFY(query.next());
    const auto compact = [](const QJsonObject& o) { return QJsonDocument(o).toJson(QJsonDocument::Compact); };
    QCOMPARE(compact(PosDataComboJsonInfo(&query)), R"({"message":"text","v":)" + json + '}');
    QCOMPARE(compact(FlightLogComboJsonInfo(&query)), R"({"message":"dGV4dA","v":)" + json + '}');
    QVERIFY(!query.next());
}

void tst_host::logLines()
{
    QStringList lines;
    Logger& logger = Logger::instance();
    logger.setListener(
        [&lines](Level level, const QString& line) { lines.append(QString::number(int(level)) + line); });
    for (const Level threshold : {Level::Trace, Level::Info, Level::Warn}) {
        logger.setLoggingLevel(threshold);
        LogHelper(Level::Info).stream << "text" << QString("a \"b\"") << QByteArray("c\r\nd") << 7 << true;
    }
    logger.setListener({});
    const QString line = R"(2text a "b" c\x0d\x0ad 7 true)";
    QCOMPARE(lines, (QStringList{line, line}));
}

void tst_host::logFileRotates()
{
    const TestProject project;
    const QString path = project.path("logs/host.log");
    Logger& logger = Logger::instance();
    QVERIFY(logger.setLogFile(path, 2000, 2));
    logger.setLoggingLevel(Level::Info);
    for (int i = 0; i < 100; ++i) {
        logger.write(Level::Info, QString("line %1 ").arg(i) + QString(80, 'x'));
    }
    const QFileInfoList files = QDir(project.path("logs")).entryInfoList(QDir::Files);
    QCOMPARE(files.size(), 3);
    for (const QFileInfo& file : files) {
        QVERIFY(file.size() <= 2000);
    }
    QFile newest(path);
    QVERIFY(newest.open(QIODevice::ReadOnly) && newest.readAll().contains("line 99 "));
}

void tst_host::openRefuses_data()
{
    QTest::addColumn<QString>("kind");
    for (const char* kind : {"empty name", "no folder", "folder", "garbage", "short garbage", "locked"}) {
        QTest::newRow(kind) << kind;
    }
}

void tst_host::openRefuses()
{
    QFETCH(QString, kind);
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    CKvDataBase foreign(file);
    QString path = file;
    if (kind == "empty name") {
        path.clear();
    } else if (kind == "no folder") {
        path = project.path("missing/flight.kv");
    } else if (kind == "folder") {
        path = project.path("m1");
    } else if (kind == "garbage") {
        path = project.file("g.kv", QByteArray(5000, 'g'));
    } else if (kind == "short garbage") {
        path = project.file("g.kv", "garbage");
    } else {
        QVERIFY(foreign.open() && !foreign.exec("BEGIN EXCLUSIVE").lastError().isValid());
    }
    CKvDataBase database(path);
    QVERIFY(!database.open());
    QVERIFY(!database.isOpen());
    database.close();
    foreign.close();
    database.DBInstance()->setDatabaseName(file);
    QVERIFY(database.open()); // stays usable
    QCOMPARE(database.databaseName(), file);
}

void tst_host::openKeepsStatements()
{
    const TestProject project;
    const QString file = project.missionFile("m1/a.kv");
    const QString other = project.missionFile("m1/b.kv");
    CKvDataBase database(file);
    QVERIFY(database.open());
    QSqlQuery insert(*database.DBInstance());
    QVERIFY(insert.prepare("INSERT INTO pos_data(id) VALUES('x')"));
    QVERIFY(database.open());
    QVERIFY(insert.exec());
    database.DBInstance()->setDatabaseName(other);
    QVERIFY(database.open());
    database.exec("INSERT INTO pos_data(id) VALUES('y')");
    QCOMPARE(TestProject::values(file, "SELECT id FROM pos_data"), (QVariantList{"x"}));
    QCOMPARE(TestProject::values(other, "SELECT id FROM pos_data"), (QVariantList{"y"}));
}

void tst_host::durabilityPragmas()
{
    const TestProject project;
    const QString file = project.missionFile("m1/a.kv");
    CKvDataBase foreign(file);
    QVERIFY(foreign.open());
    foreign.exec("PRAGMA journal_mode=WAL");
    foreign.close();
    QCOMPARE(TestProject::value(file, "PRAGMA journal_mode").toString(), QString("delete"));
    QCOMPARE(TestProject::value(file, "PRAGMA synchronous").toInt(), 3);
}

void tst_host::failedCommitLeavesNoLock()
{
    const TestProject project;
    const QString file = project.missionFile("m1/a.kv");
    CKvDataBase reader(file);
    QVERIFY(reader.open() && TestProject::run(file, {"INSERT INTO pos_data(id) VALUES(1), (2)"}));
    QSqlQuery open = reader.exec("SELECT id FROM pos_data"); // stands on a row: a shared lock
    QVERIFY(open.next());
    CKvDataBase writer(file);
    QVERIFY(writer.open() && writer.transaction());
    writer.exec("INSERT INTO pos_data(id) VALUES(3)");
    QVERIFY(!writer.commit());
    open.finish();
    QVERIFY(reader.transaction() && reader.commit());
    QCOMPARE(TestProject::value(file, "SELECT count(*) FROM pos_data").toInt(), 2);
}

void tst_host::tablesOfOldFiles()
{
    const TestProject project;
    const QString file = project.file("m1/a.kv");
    QVERIFY(TestProject::run(file, {"CREATE TABLE pos_data(id, flight_mission_id, is_uploaded)",
                                    "INSERT INTO pos_data VALUES(1, 2, 3)", "CREATE TABLE uas_status(id)"}));
    CKvDataBase database(file);
    QVERIFY(database.open());
    for (int round = 0; round < 2; ++round) {
        QVERIFY(CreateTable("pos_data", GetPosDataTableContents(), database.DBInstance()));
        QVERIFY(CreateTable("uas_status", GetUasStatusTableContents(), database.DBInstance()));
    }
    QVERIFY(!CreateTable("no table", "x", database.DBInstance()));
    QCOMPARE(TestProject::values(file, "SELECT name FROM sqlite_master ORDER BY name"),
             (QVariantList{"pos_data", "pos_data_waiting", "uas_status"}));
    QCOMPARE(TestProject::value(file, "SELECT is_uploaded FROM pos_data").toInt(), 3);
}

QTEST_GUILESS_MAIN(tst_host)
#include "tst_host.moc"
