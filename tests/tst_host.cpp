// SPDX-License-Identifier: MIT
#include "support/Rows.h"
#include "support/TestProject.h"

#include <QtSql/QSqlError>

class tst_host : public QObject
{
    Q_OBJECT

private slots:
    void serverAddress_data() { addRows(); }
    void serverAddress()
    {
        const bool good = cell("result") != "refused";
        QVERIFY(SetServerIP("http://before.example"));
        QCOMPARE(SetServerIP(cell("address").toLatin1()), good);
        QCOMPARE(QString(GetServerIP()), good ? cell("result") : "http://before.example");
    }

    void refusedSettings()
    {
        const QStringList lines = loggedBy(Level::Warn, [] {
            SKvUserInfo user;
            user.m_strToken = "good";
            QVERIFY(SetCurUserInfo(user));
            user.m_strToken = "secret\r\nx: y";
            QVERIFY(!SetCurUserInfo(user));
            QVERIFY(!SetServerIP("") && !SetServerIP("\xff\xfe"));
            QVERIFY(SetHomeDir("/some/home"));
            QVERIFY(!SetHomeDir("relative"));
            QVERIFY(!Logger::instance().setLogFile("", 1024, 1));
            QVERIFY(!Logger::instance().setLogFile("/proc/no/such.log", 1024, 1));
        });
        QCOMPARE(GetCurUserInfo().m_strToken, QString("good"));
        QCOMPARE(GetHomeDir(), QString("/some/home/"));
        QCOMPARE(lines.size(), 6);
        QVERIFY(!lines.join(' ').contains("secret"));
    }

    void network()
    {
        QVERIFY(SetServerIP("http://127.0.0.1:1") && control()->IsNetWorkConnected());
        QVERIFY(SetServerIP("http://localhost:1") && control()->IsNetWorkConnected());
        control()->SetNetWorkConnected(false);
        QVERIFY(!control()->IsNetWorkConnected());
    }

    void jsonValues_data() { addRows(); }
    void jsonValues()
    {
        CKvDataBase database(":memory:");
        QVERIFY(database.open());
        QSqlQuery query =
            database.exec("SELECT " + cell("literal") + " AS v, 0 AS is_uploaded, 'text' AS message");
        QVERIFY(query.next());
        const auto compact = [](const QJsonObject& o) {
            return QJsonDocument(o).toJson(QJsonDocument::Compact);
        };
        const QByteArray json = cell("json").toUtf8();
        QCOMPARE(compact(PosDataComboJsonInfo(&query)), R"({"message":"text","v":)" + json + '}');
        QCOMPARE(compact(FlightLogComboJsonInfo(&query)), R"({"message":"dGV4dA","v":)" + json + '}');
        QVERIFY(!query.next());
    }

    void logLines()
    {
        const auto write = [] {
            LogHelper(Level::Info).stream << "text" << QString("a \"b\"") << QByteArray("c\r\nd") << 7
                                          << true;
        };
        const QString line = R"(2 text a "b" c\x0d\x0ad 7 true)";
        QCOMPARE(loggedBy(Level::Trace, write), QStringList{line});
        QCOMPARE(loggedBy(Level::Info, write), QStringList{line});
        QCOMPARE(loggedBy(Level::Warn, write), QStringList());

        const TestProject project;
        QVERIFY(Logger::instance().setLogFile(project.path("logs/host.log"), 2000, 2));
        loggedBy(Level::Info, [&write] {
            for (int i = 0; i < 500; ++i) {
                write();
            }
        });
        QVERIFY(TestProject::contents(project.path("logs/host.log")).contains(line.mid(2).toLatin1() + '\n'));
        QCOMPARE(QDir(project.path("logs")).entryList(QDir::Files).size(), 3); // it rotates
    }

    void openRefuses()
    {
        const FlightProject project;
        const QString locked = project.missionFile("m1/locked.kv");
        CKvDataBase foreign(locked);
        QVERIFY(foreign.open() && !foreign.exec("BEGIN EXCLUSIVE").lastError().isValid());
        for (const QString& path :
             {QString(), project.path("missing/flight.kv"), project.path("m1"), locked,
              project.file("g.kv", QByteArray(5000, 'g')), project.file("short.kv", "garbage")}) {
            CKvDataBase database(path);
            QVERIFY2(!database.open() && !database.isOpen(), qPrintable(path));
            database.close();
            database.DBInstance()->setDatabaseName(project.db);
            QVERIFY(database.open()); // stays usable
            QCOMPARE(database.databaseName(), project.db);
        }
    }

    void openKeepsStatements()
    {
        const FlightProject project;
        const QString other = project.missionFile("m1/b.kv");
        CKvDataBase database(project.db);
        QVERIFY(database.open());
        QSqlQuery insert(*database.DBInstance());
        QVERIFY(insert.prepare("INSERT INTO pos_data(id) VALUES('x')"));
        QVERIFY(database.open() && insert.exec());
        database.DBInstance()->setDatabaseName(other);
        QVERIFY(database.open());
        database.exec("INSERT INTO pos_data(id) VALUES('y')");
        QCOMPARE(TestProject::values(project.db, "SELECT id FROM pos_data"), QVariantList{"x"});
        QCOMPARE(TestProject::values(other, "SELECT id FROM pos_data"), QVariantList{"y"});
    }

    void durabilityPragmas()
    {
        const FlightProject project;
        CKvDataBase foreign(project.db);
        QVERIFY(foreign.open());
        foreign.exec("PRAGMA journal_mode=WAL");
        foreign.close();
        QCOMPARE(TestProject::value(project.db, "PRAGMA journal_mode"), QVariant("delete"));
        QCOMPARE(TestProject::value(project.db, "PRAGMA synchronous"), QVariant(3));
    }

    void transactionsLeaveNoTrace()
    {
        const FlightProject project;
        CKvDataBase reader(project.db);
        QVERIFY(reader.open() && project.run("INSERT INTO pos_data(id) VALUES(1), (2)"));
        QSqlQuery open = reader.exec("SELECT id FROM pos_data"); // stands on a row: a shared lock
        QVERIFY(open.next());
        CKvDataBase writer(project.db);
        QVERIFY(writer.open() && writer.transaction());
        writer.exec("INSERT INTO pos_data(id) VALUES(3)");
        QVERIFY(!writer.commit());
        open.finish();
        QVERIFY(reader.transaction() && reader.commit());
        QCOMPARE(TestProject::value(project.db, "SELECT count(*) FROM pos_data"), QVariant(2));
        QSqlQuery wait = reader.exec("PRAGMA busy_timeout"); // statements without a transaction wait as well
        QVERIFY(wait.next() && wait.value(0).toInt() >= 1000);
    }

    void tablesOfOldFiles()
    {
        const TestProject project;
        const QString file = project.file("m1/a.kv");
        QVERIFY(
            TestProject::run(file, {"CREATE TABLE pos_data(id, flight_mission_id, is_uploaded)",
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
        QCOMPARE(TestProject::value(file, "SELECT is_uploaded FROM pos_data"), QVariant(3));
    }
};

QTEST_GUILESS_MAIN(tst_host)
#include "tst_host.moc"
