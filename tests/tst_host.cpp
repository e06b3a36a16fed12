// SPDX-License-Identifier: MIT
#include "support/Rows.h"
#include "support/TestProject.h"

#include <QtSql/QSqlError>

#include <atomic>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{
constexpr uid_t Nobody = 65534;
const uid_t User = getuid();

std::atomic<qint64> secondsAhead{0}; ///< the system's clock, as this process sees it

/// The part of a stamped id that tells the time, in milliseconds since 1970.
qint64 timeOf(const QString& id)
{
    return QString(id).remove(u'-').left(12).toLongLong(nullptr, 16);
}

QString freshId()
{
    return UidToString(QUuid::createUuid());
}
} // namespace

/// Takes the place of the C library's clock, so that a test can set it back.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    time->tv_sec += clock == CLOCK_REALTIME ? secondsAhead.load() : 0;
    return result;
}

class tst_host : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void serverAddress_data() { addRows(); }
    void serverAddress()
    {
        const bool good = cell("result") != "refused"_l1;
        QVERIFY(SetServerIP("http://before.example"));
        QCOMPARE(SetServerIP(cell("address").toLatin1()), good);
        QCOMPARE(QString::fromUtf8(GetServerIP()), good ? cell("result") : "http://before.example"_l1);
    }

    void refusedSettings()
    {
        const QStringList lines = loggedBy(Level::Warn, [] {
            SKvUserInfo user;
            user.m_strToken = "good"_l1;
            QVERIFY(SetCurUserInfo(user));
            user.m_strToken = "secret\r\nx: y"_l1;
            QVERIFY(!SetCurUserInfo(user));
            QVERIFY(!SetServerIP("") && !SetServerIP("\xff\xfe"));
            QVERIFY(SetHomeDir("/some/home"_l1));
            QVERIFY(!SetHomeDir("relative"_l1));
            QVERIFY(!Logger::instance().setLogFile(""_l1, 1024, 1));
            QVERIFY(!Logger::instance().setLogFile("/proc/no/such.log"_l1, 1024, 1));
        });
        QCOMPARE(GetCurUserInfo().m_strToken, "good"_l1);
        QCOMPARE(GetHomeDir(), "/some/home/"_l1);
        QCOMPARE(lines.size(), 6);
        QVERIFY(!lines.join(u' ').contains("secret"_l1));
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
        CKvDataBase database(":memory:"_l1);
        QVERIFY(database.open());
        QSqlQuery query = database.exec("SELECT "_l1 + cell("literal") +
                                        " AS v, 0 AS is_uploaded, 'text' AS message, 'm1' AS "
                                        "flight_mission_id"_l1);
        QVERIFY(query.next());
        const auto compact = [](const QJsonObject& o) {
            return QJsonDocument(o).toJson(QJsonDocument::Compact);
        };
        const QByteArray json = R"("v":)" + cell("json").toUtf8() + '}';
        for (const auto& single : {FlightMissionComboJsonInfo, FlightVideoMissionComboJsonInfo}) {
            QCOMPARE(compact(single(&query)), R"({"flight_mission_id":"m1","message":"text",)" + json);
        }
        const QByteArray ofBatch = cell("value") == "null"_l1 ? QByteArray("}") : ',' + json;
        QCOMPARE(compact(PosDataComboJsonInfo(&query)), R"({"message":"text")" + ofBatch);
        QCOMPARE(compact(UasStatusComboJsonInfo(&query)), R"({"message":"text")" + ofBatch);
        QCOMPARE(compact(FlightLogComboJsonInfo(&query)), R"({"message":"dGV4dA")" + ofBatch);
        QVERIFY(!query.next());
    }

    /// Only what is random is stamped.
    void fixedIds()
    {
        const QUuid random("c232ab00-9414-4ec8-b3c8-68bdeced9f5a");
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        const QString stamped = UidToString(random);
        static const QRegularExpression form("^[0-9a-f]{8}-[0-9a-f]{4}-7ec8-b3c8-68bdeced9f5a$"_l1);
        QVERIFY2(form.match(stamped).hasMatch(), qPrintable(stamped));
        QVERIFY(timeOf(stamped) >= before);
        for (const QString& text :
             QStringList{stamped, "886313e1-3b8a-5372-9b90-0c9aee199e5d"_l1,
                         "00000000-0000-0000-0000-000000000000"_l1, "c232ab00-9414-11ec-b3c8-9f68bdeced84"_l1,
                         "c232ab00-9414-4ec8-d3c8-68bdeced9f5a"_l1}) { // not of RFC 9562
            QCOMPARE(UidToString(QUuid(text)), text);
        }
    }

    /// Ids made one after the other sort by time, on all threads, while the clock is set ahead and back.
    void idsSortByTime()
    {
        constexpr int Ids = 50000;
        const auto make = [](int seconds) {
            QStringList ids;
            for (int i = 0; i < Ids; ++i) {
                secondsAhead = i * 5 / Ids % 2 == 1 ? seconds : -seconds;
                ids.append(freshId());
            }
            return ids;
        };
        QStringList others;
        const std::unique_ptr<QThread> thread(QThread::create([&] { others = make(7200); }));
        thread->start();
        const QStringList mine = make(3600);
        QVERIFY(thread->wait());
        secondsAhead = 0;
        const auto earlier = [](const QString& a, const QString& b) { return timeOf(a) < timeOf(b); };
        for (const QStringList& ids : {mine, others}) {
            QVERIFY(std::is_sorted(ids.cbegin(), ids.cend(), earlier));
        }
        QStringList all = mine + others;
        QCOMPARE(all.removeDuplicates(), 0);
        QTRY_VERIFY(earlier(mine.constLast(), freshId())); // the time goes on although the clock is back
    }

    void showsNeitherSecretsNorControlCharacters()
    {
        Logger& logger = Logger::instance();
        logger.addSecret("sixsix"_l1);
        logger.addSecret("six"_l1); // found within many a word
        QCOMPARE(logger.printable("is sixsix six\x1b[2J"_l1 + QChar(0x9b)), R"(is *** six\x1b[2J\x9b)"_l1);
        logger.addSecret("a/b %1+"_l1 + QChar(0xe9));
        QCOMPARE(logger.printable("/%73i%78six/a%2fb%20%251%2b%c3%a9/a%2Fb%20%251%2B%E9?100%"_l1),
                 "/***/***/***?100%"_l1);
        const QString token = QStringLiteral("t%").repeated(50000);
        logger.addSecret(token);
        QCOMPARE(logger.printable(token + " %74%25"_l1 + token.mid(2).replace(u'%', "%25"_l1) + "%7"_l1),
                 "*** ***%7"_l1);
    }

    void logLines()
    {
        const auto write = [] {
            LogHelper(Level::Info).stream << "text"
                                          << R"q(a "b")q"_l1 << QByteArray("c\r\nd") << 7 << true;
        };
        const QString line = R"(2 text a "b" c\x0d\x0ad 7 true)"_l1;
        QCOMPARE(loggedBy(Level::Trace, write), QStringList{line});
        QCOMPARE(loggedBy(Level::Info, write), QStringList{line});
        QCOMPARE(loggedBy(Level::Warn, write), QStringList());

        const TestProject project;
        QVERIFY(Logger::instance().setLogFile(project.path("logs/host.log"_l1), 2000, 2));
        loggedBy(Level::Info, [&write] {
            for (int i = 0; i < 500; ++i) {
                write();
            }
        });
        QVERIFY(
            TestProject::contents(project.path("logs/host.log"_l1)).contains(line.mid(2).toLatin1() + '\n'));
        QCOMPARE(QDir(project.path("logs"_l1)).entryList(QDir::Files).size(), 3); // it rotates
    }

    /// What no waiting mends: said once, with the path and the reason, and nothing is held or made.
    void openRefuses()
    {
        const FlightProject project;
        QVERIFY(QFile::link(project.path("m1/nowhere"_l1), project.path("m1/broken.kv"_l1)));
        const QList<QPair<QString, QString>> refused = {
            {QString(), "no file is named"_l1},
            {project.path("missing/flight.kv"_l1), "its folder does not exist"_l1},
            {project.path("m1"_l1), "it is a folder"_l1},
            {"/dev/null"_l1, "it is a device"_l1},
            {project.path("m1/broken.kv"_l1), "it is a link that leads nowhere"_l1},
            {project.file("g.kv"_l1, QByteArray(5000, 'g')), "file is not a database"_l1},
            {project.file("short.kv"_l1, "garbage"), "file is not a database"_l1},
            {project.file("secret.kv"_l1), "unable to open database file"_l1}};
        QVERIFY(QFile::setPermissions(project.path("secret.kv"_l1), {}));
        QVERIFY(QFile::setPermissions(project.path(""_l1),
                                      QFile::ExeGroup | QFile::ReadUser | QFile::WriteUser | QFile::ExeUser));
        for (const auto& [path, reason] : refused) {
            CKvDataBase database(path);
            const QStringList lines = loggedBy(Level::Error, [&database] {
                syscall(SYS_setresuid, Nobody, Nobody, -1); // nothing is refused to root
                for (int i = 0; i < 3; ++i) {
                    QVERIFY(!database.open() && !database.isOpen());
                }
                syscall(SYS_setresuid, User, User, -1);
            });
            QCOMPARE(lines, QStringList{"4 "_l1 + path + ": cannot be opened: "_l1 + reason});
            database.close();
            database.DBInstance()->setDatabaseName(project.db);
            QVERIFY(database.open()); // stays usable
            QCOMPARE(database.databaseName(), project.db);
        }
        QVERIFY(!QFile::exists(project.path("m1/nowhere"_l1)));
    }

    /// Somebody else's lock passes: the file is open, and what has to be set up is set up once it can be.
    void openBesideOthers()
    {
        for (const QString& foreign :
             {QStringLiteral("BEGIN EXCLUSIVE"), QStringLiteral("PRAGMA journal_mode=WAL")}) {
            const FlightProject project;
            CKvDataBase other(project.db);
            QVERIFY(other.open() && !other.exec(foreign).lastError().isValid());
            other.exec("SELECT id FROM pos_data"_l1).next();
            CKvDataBase database(project.db);
            QVERIFY(database.open());
            const auto pragma = [&database](const char* name) {
                QSqlQuery query = database.exec("PRAGMA "_l1 + QLatin1String(name));
                return query.next() ? query.value(0).toString() : "none"_l1;
            };
            if (foreign.contains("WAL"_l1)) {
                QVERIFY(database.transaction() && database.commit());
                QCOMPARE(pragma("journal_mode"), "wal"_l1);
                QCOMPARE(pragma("synchronous"), "3"_l1);
            } else {
                QVERIFY(!database.transaction());
            }
            other.close();
            QVERIFY(database.transaction() && database.commit());
            QCOMPARE(pragma("journal_mode"), "delete"_l1);
            QCOMPARE(pragma("synchronous"), "3"_l1);
        }
    }

    void openKeepsStatements()
    {
        const FlightProject project;
        const QString other = project.missionFile("m1/b.kv"_l1);
        CKvDataBase database(project.db);
        QVERIFY(database.open());
        QSqlQuery insert(*database.DBInstance());
        QVERIFY(insert.prepare("INSERT INTO pos_data(id) VALUES('x')"_l1));
        QVERIFY(database.open() && insert.exec());
        database.DBInstance()->setDatabaseName(other);
        QVERIFY(database.open());
        database.exec("INSERT INTO pos_data(id) VALUES('y')"_l1);
        QCOMPARE(project.text("SELECT id FROM pos_data"_l1), "x"_l1);
        QCOMPARE(TestProject::text(other, "SELECT id FROM pos_data"_l1), "y"_l1);
    }

    void transactionsLeaveNoTrace()
    {
        const FlightProject project;
        CKvDataBase reader(project.db);
        QVERIFY(reader.open() && project.run("INSERT INTO pos_data(id) VALUES(1), (2)"));
        QSqlQuery open = reader.exec("SELECT id FROM pos_data"_l1); // stands on a row: a shared lock
        QVERIFY(open.next());
        CKvDataBase writer(project.db);
        QVERIFY(writer.open() && writer.transaction());
        writer.exec("INSERT INTO pos_data(id) VALUES(3)"_l1);
        QVERIFY(!writer.commit());
        open.finish();
        QVERIFY(reader.transaction() && reader.commit());
        QCOMPARE(TestProject::value(project.db, "SELECT count(*) FROM pos_data"_l1), QVariant(2));
        QCoreApplication::processEvents();    // visits wait anew
        QSqlQuery wait(*reader.DBInstance()); // statements of the caller's own wait as well
        QVERIFY(wait.exec("PRAGMA busy_timeout"_l1) && wait.next() && wait.value(0).toInt() >= 1000);
    }

    void tablesOfOldFiles()
    {
        const TestProject project;
        const QString file = project.file("m1/a.kv"_l1);
        QVERIFY(TestProject::run(file, {"CREATE TABLE pos_data(id, flight_mission_id, is_uploaded)"_l1,
                                        "INSERT INTO pos_data VALUES(1, 2, 3)"_l1,
                                        "CREATE TABLE uas_status(id)"_l1}));
        CKvDataBase database(file);
        QVERIFY(database.open());
        for (int round = 0; round < 2; ++round) {
            QVERIFY(CreateTable("pos_data"_l1, GetPosDataTableContents(), database.DBInstance()));
            QVERIFY(CreateTable("uas_status"_l1, GetUasStatusTableContents(), database.DBInstance()));
        }
        QVERIFY(!CreateTable("no table"_l1, "x"_l1, database.DBInstance()));
        QCOMPARE(TestProject::values(file, "SELECT name FROM sqlite_master ORDER BY name"_l1),
                 (QVariantList{"pos_data"_l1, "pos_data_waiting"_l1, "uas_status"_l1}));
        QCOMPARE(TestProject::value(file, "SELECT is_uploaded FROM pos_data"_l1), QVariant(3));
    }
};

QTEST_GUILESS_MAIN(tst_host)
#include "tst_host.moc"
