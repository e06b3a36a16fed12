// SPDX-License-Identifier: MIT
// Other programs that have the file open, or take it away.
#include "support/Foreign.h"
#include "support/ScriptedServer.h"

#include <map>
#include <memory>
#include <vector>

namespace
{
constexpr int Wait = 100; // milliseconds that a connection waits for a lock here
const QString Mission = QStringLiteral("m1");
const QString MessagesSql = QStringLiteral("SELECT message FROM flight_monitor_detail_log ORDER BY rowid");

/// What Qt's critical output says.
QStringList g_criticals;
QtMessageHandler g_testHandler;

void noteCritical(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtCriticalMsg) {
        g_criticals.append(text);
    } else {
        g_testHandler(type, context, text);
    }
}

/// A recorder with three messages in the file and three that wait, and what it does.
struct Scene {
    const FlightProject project{0, 0, 0};
    const QString columns = project.file("pos_data.txt"_l1, "id TEXT flight_mission_id TEXT");
    const QString other = project.missionFile("m2/flight.kv"_l1);
    const QString video = project.file("m1/easy.db"_l1);
    QString file = project.db;
    std::unique_ptr<Recorder> recorder;

    static QJsonArray records(const char* first, const char* second)
    {
        return {QJsonObject{{"id"_l1, QLatin1String(first)}, {"flight_mission_id"_l1, "m1"_l1}},
                QJsonObject{{"id"_l1, QLatin1String(second)}, {"flight_mission_id"_l1, "m1"_l1}}};
    }
    void begin(const QString& action)
    {
        if (action == "video file"_l1) {
            file = video;
            TestProject::run(
                video, {"CREATE TABLE flight_mission(id)"_l1, "INSERT INTO flight_mission VALUES('m1')"_l1});
        }
        recorder = std::make_unique<Recorder>(project.db);
        recorder->write(3);
        recorder->op.SetFlightMissionFilePath(project.db);
        recorder->write(3);
    }
    QString contents() const
    {
        QString text;
        for (const QString& sql :
             {MessagesSql, QStringLiteral("SELECT id FROM pos_data ORDER BY rowid"),
              QStringLiteral("SELECT is_uploaded || ifnull(last_waypoint_index, '-') FROM flight_mission")}) {
            text += TestProject::text(file, sql) + u'\n';
        }
        return text + TestProject::text(project.db, MessagesSql);
    }
};

/// Messages in a file.
int stored(const QString& file)
{
    return TestProject::value(file, "SELECT count(*) FROM flight_monitor_detail_log"_l1).toInt();
}

using Action = std::function<void(Scene&)>;

const std::map<QString, Action>& actions()
{
    static const std::map<QString, Action> all = {
        {"message"_l1, [](Scene& s) { s.recorder->write(1); }},
        {"fiftieth message"_l1, [](Scene& s) { s.recorder->write(47); }},
        {"messages in turns"_l1,
         [](Scene& s) {
             s.recorder->op.SetFlightMissionFilePath(s.file);
             for (int i = 0; i < 20; ++i) {
                 QCoreApplication::processEvents();
                 s.recorder->write(1);
             }
         }},
        {"five arguments"_l1,
         [](Scene& s) {
             s.recorder->op.slotParseJson(Scene::records("p1", "p2"), s.columns, Mission, 1, s.file);
         }},
        {"three arguments"_l1,
         [](Scene& s) { Q_EMIT s.recorder->slotParseJson(Scene::records("p1", "p2"), s.columns, Mission); }},
        {"single record"_l1,
         [](Scene& s) {
             Q_EMIT s.recorder->slotParseSingleJson(Scene::records("p1", "")[0].toObject(), s.columns,
                                                    "pos_data"_l1);
         }},
        {"one value"_l1,
         [](Scene& s) { s.recorder->op.slotUpdateGeneralOneValue(1, "last_waypoint_index"_l1, 7, Mission); }},
        {"breakpoint"_l1, [](Scene& s) { Q_EMIT s.recorder->slotUpdateBreakpoint(7, 1, 2, Mission, 3); }},
        {"same file"_l1, [](Scene& s) { s.recorder->op.SetFlightMissionFilePath(s.file); }},
        {"other file"_l1, [](Scene& s) { s.recorder->op.SetFlightMissionFilePath(s.other); }},
        {"video file"_l1, [](Scene& s) { s.recorder->op.SetFlightMissionFilePath(s.video); }},
        {"pause"_l1, [](Scene& s) { Q_EMIT s.recorder->slotStartUploadTimer(false); }},
        {"construction"_l1, [](Scene&) { const CKvFlightDataDbOperator op(nullptr, EUploadEnv::None); }},
        {"end, 3 messages"_l1, [](Scene& s) { s.recorder.reset(); }},
        {"end, 49 messages"_l1,
         [](Scene& s) {
             s.recorder->write(46);
             s.recorder.reset();
         }},
    };
    return all;
}

struct Outcome {
    QString before;
    QString after;
    bool oneFile = true; ///< whatever another one has switched it to meanwhile
    QStringList errors;
    int waited = 0;
};

/// Plays a scene beside a foreign user who goes while the action waits for him ("in time"), after it
/// ("late"), or after the recorder ("never"). Users of other processes are in tst_locks.
Outcome play(const QString& name, const QString& kind, const QString& goes)
{
    const Action& action = actions().at(name);
    Scene scene;
    scene.begin(name);
    Outcome outcome;
    outcome.before = scene.contents();
    auto foreign = std::make_unique<Foreign>(kind, scene.file);
    outcome.errors = loggedBy(Level::Error, [&] {
        if (goes == "in time"_l1) {
            t_whileWaiting = [&foreign] { foreign.reset(); };
        }
        outcome.waited = waited([&] { action(scene); });
        t_whileWaiting = nullptr;
        if (scene.recorder) {
            takeLock(*scene.recorder);
        }
        if (goes != "never"_l1) {
            foreign.reset();
        }
        if (scene.recorder && goes != "never"_l1) {
            if (name == "other file"_l1) {
                scene.recorder->op.SetFlightMissionFilePath(scene.file);
            }
            scene.recorder->write(50);
            if (!scene.recorder->stored || name == "one value"_l1) {
                scene.recorder->op.SetFlightMissionFilePath(scene.file);
                action(scene);
            }
        }
        scene.recorder.reset();
    });
    foreign.reset();
    outcome.oneFile = TestProject::contents(scene.file).mid(18, 1) == "\x01"; // a byte of the header
    outcome.after = scene.contents();
    return outcome;
}

/// What is in the file in the end where nobody is in the way.
QString undisturbed(const QString& action, bool usedAgain)
{
    static std::map<QString, QString> known;
    QString& text = known[action + (usedAgain ? ""_l1 : ", once"_l1)];
    if (text.isEmpty()) {
        text = play(action, "none"_l1, QLatin1String(usedAgain ? "in time" : "never")).after;
    }
    return text;
}
} // namespace

class tst_foreign : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        countSleeps();
        CKvDataBase::SetLockWait(Wait);
        Logger::instance(); // takes messages itself where no handler comes later
        g_testHandler = qInstallMessageHandler(noteCritical);
    }
    void init() { g_criticals.clear(); }

    void everyCell_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("goes");
        const std::map<QString, QStringList> kinds = {
            {"exclusive"_l1, {"in time"_l1, "late"_l1, "never"_l1}},
            {"reserved"_l1, {"in time"_l1, "late"_l1, "never"_l1}},
            {"reader"_l1, {"in time"_l1, "late"_l1, "never"_l1}},
            {"idle WAL"_l1, {"late"_l1, "never"_l1}},
            {"replaced"_l1, {"late"_l1}},
            {"replaced in WAL mode"_l1, {"late"_l1}},
            {"replaced, held"_l1, {"in time"_l1, "late"_l1, "never"_l1}},
            {"moved away"_l1, {"late"_l1, "never"_l1}},
            {"deleted"_l1, {"late"_l1, "never"_l1}}};
        for (const auto& [action, function] : actions()) {
            for (const auto& [kind, times] : kinds) {
                for (const QString& goes : times) {
                    // What is made in a file's place gets the tables; and the messages go to another file.
                    const bool other =
                        action == "video file"_l1 &&
                        (goes == "never"_l1 || kind == "moved away"_l1 || kind == "deleted"_l1);
                    // An update is not kept, unlike the messages, which the new file takes.
                    const bool update = (action == "one value"_l1 || action == "breakpoint"_l1) &&
                                        kind == "replaced, held"_l1 && goes == "never"_l1;
                    if (other || update) {
                        continue;
                    }
                    QTest::addRow("%s, %s, %s", qPrintable(action), qPrintable(kind), qPrintable(goes))
                        << action << kind << goes;
                }
            }
        }
    }
    void everyCell()
    {
        QFETCH(QString, action);
        QFETCH(QString, kind);
        QFETCH(QString, goes);
        const Outcome outcome = play(action, kind, goes);
        QVERIFY2(outcome.waited < Wait * 3 / 2, QByteArray::number(outcome.waited).constData());
        // A second file in its place, a second line
        const bool gone = kind == "moved away"_l1 || kind == "deleted"_l1 || kind == "replaced, held"_l1;
        QVERIFY2(outcome.errors.size() <= (gone ? 2 : 1), qPrintable(outcome.errors.join(u'\n')));
        const QString all = undisturbed(action, goes != "never"_l1);
        // What is kept to the end and not taken there is lost, and that is said.
        const bool lost = kind != "idle WAL"_l1 && !kind.startsWith("replaced"_l1) &&
                          (goes == "never"_l1 || (goes == "late"_l1 && action.startsWith("end"_l1)));
        QCOMPARE(g_criticals.size(), lost ? 1 : 0);
        QCOMPARE(outcome.after, lost ? outcome.before : all);
        QVERIFY(outcome.oneFile || goes == "never"_l1 || action.startsWith("end"_l1));
    }

    /// A chain whose n-th request finds the foreign user there, with ticks until everything is marked.
    void upload()
    {
        for (const auto& [who, inTime] : {std::pair("exclusive", true),
                                          {"exclusive", false},
                                          {"reserved", true},
                                          {"reserved", false},
                                          {"reader", true},
                                          {"reader", false},
                                          {"idle WAL", false}}) {
            const QString kind = QLatin1String(who);
            for (int request = 0; request <= 4; ++request) {
                const FlightProject project(3, 2, 4);
                std::unique_ptr<Foreign> foreign;
                int longest = 0;
                ScriptedServer server;
                server.script = [&](const PostedRequest&) {
                    longest = qMax(longest, static_cast<int>(std::exchange(t_slept, 0) / 1000));
                    foreign.reset(); // a mark that fails has the rows sent again
                    if (server.requests.size() == request) {
                        foreign = std::make_unique<Foreign>(kind, project.db);
                    }
                    return ScriptedServer::accepted();
                };
                ArmedHost uploader(EUploadEnv::OncePerRequest, project.db);
                if (inTime) {
                    t_whileWaiting = [&foreign] { foreign.reset(); };
                }
                if (request == 0) {
                    foreign = std::make_unique<Foreign>(kind, project.db);
                }
                t_slept = 0;
                Q_EMIT uploader.slotStartUpload();
                QTRY_COMPARE(uploader.finished.count(), 1);
                t_whileWaiting = nullptr;
                QVERIFY2(qMax(longest, static_cast<int>(t_slept / 1000)) < Wait * 3 / 2,
                         QByteArray::number(request).constData());
                foreign.reset();
                for (int pass = 2; TestProject::waiting(project.db) > 0 && pass < 9; ++pass) {
                    uploader.rearm(project.db);
                    Q_EMIT uploader.slotStartUpload();
                    QTRY_COMPARE(uploader.finished.count(), pass);
                }
                QCOMPARE(TestProject::waiting(project.db), 0);
                QCOMPARE(server.stored.size(), 10);
            }
        }
    }

    /// Locked files cost the start-up one short wait, however many they are and however long records would be
    /// waited for; the tables that it could not make are made once a file is free.
    void startUp()
    {
        for (const char* kind : {"exclusive", "reserved"}) {
            const FlightProject project;
            QStringList files;
            std::vector<std::unique_ptr<Foreign>> foreign;
            for (const char* name : {"m2/flight.kv", "m3/flight.kv", "m4/flight.kv"}) {
                files.append(project.file(QLatin1String(name)));
                TestProject::run(files.constLast(), {"CREATE TABLE other(id)"_l1});
                foreign.push_back(std::make_unique<Foreign>(QLatin1String(kind), files.constLast()));
            }
            CKvDataBase::SetLockWait(1500);
            QCoreApplication::processEvents();
            std::unique_ptr<Recorder> recorder;
            const QStringList lines = loggedBy(Level::Error, [&] {
                const int slept = waited([&] { recorder = std::make_unique<Recorder>(project.db); });
                CKvDataBase::SetLockWait(Wait);
                QVERIFY2(slept > 100 && slept < 1300, QByteArray::number(slept).constData());
                recorder->op.SetFlightMissionFilePath(files[0]);
                recorder->write(50);
            });
            QCOMPARE(lines.filter(files[0]),
                     QStringList("4 "_l1 + files[0] + ": cannot be written: database is locked"_l1));
            foreign.clear();
            recorder->write(50);
            QCOMPARE(stored(files[0]), 100);
        }
    }

    /// Long work is no wait, and a wait on one thread does not use up that of the next.
    void waitsAnew()
    {
        const FlightProject project;
        CKvDataBase database(QString{});
        database.DBInstance()->setDatabaseName(project.db);
        QVERIFY(database.open());
        const auto read = [&database] { database.exec("SELECT count(*) FROM pos_data"_l1); };
        database.exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1000000) "
                      "SELECT count(*) FROM n"_l1);
        const Foreign foreign("exclusive"_l1, project.db);
        QVERIFY(waited(read) > Wait / 20);
        int slept = 0;
        database.close(); // an open one stays on its thread
        const std::unique_ptr<QThread> thread(QThread::create([&] {
            database.open();
            read();
            QCoreApplication::processEvents();
            slept = waited(read);
        }));
        thread->start();
        QVERIFY(thread->wait() && slept > Wait / 20);
    }

    /// An operator ends that has messages for two files, both of them locked.
    void endWithTwoFiles()
    {
        const FlightProject project;
        const QString other = project.missionFile("m2/flight.kv"_l1);
        auto recorder = std::make_unique<Recorder>(project.db);
        const Foreign first("exclusive"_l1, project.db);
        const Foreign second("exclusive"_l1, other);
        recorder->write(50);
        recorder->op.SetFlightMissionFilePath(other);
        recorder->write(50);
        QCoreApplication::processEvents(); // a wait for the end
        const int slept = waited([&recorder] { recorder.reset(); });
        QVERIFY2(slept > Wait / 4 && slept < Wait * 3 / 2, QByteArray::number(slept).constData());
        QCOMPARE(g_criticals.size(), 2);
    }

    /// A file that is named in another way is still the one that batches wait for, so they keep their order.
    void twoPaths()
    {
        for (const char* path : {"m1/./flight.kv", "link/flight.kv"}) {
            const FlightProject project;
            QVERIFY(QFile::link(project.path("m1"_l1), project.path("link"_l1)));
            Recorder recorder(project.db);
            auto foreign = std::make_unique<Foreign>("exclusive"_l1, project.db);
            recorder.write(50);
            recorder.op.SetFlightMissionFilePath(project.path(QLatin1String(path)));
            QCoreApplication::processEvents();
            const std::function<void()> leave = [&leave, &foreign] { // once short visits have waited
                if (t_slept < 50000) {
                    t_whileWaiting = leave;
                } else {
                    foreign.reset();
                }
            };
            t_whileWaiting = leave;
            waited([&recorder] { recorder.write(50); });
            t_whileWaiting = nullptr;
            foreign.reset();
            recorder.write(50);
            QCOMPARE(project.text("SELECT group_concat(CAST(message AS INTEGER) = rowid - 1, '') FROM "
                                  "flight_monitor_detail_log"_l1),
                     QStringLiteral("1").repeated(150));
        }
    }

    /// A batch beyond SQLite's own memory waits for a reader once, as a small one does.
    void largeBatchBesideReader()
    {
        const FlightProject project(5, 0, 0);
        Recorder recorder(project.db);
        auto reader = std::make_unique<Foreign>("reader"_l1, project.db);
        const int slept = waited([&recorder] {
            for (int i = 0; i < 50; ++i) {
                Q_EMIT recorder.slotWriteFlightMonitor(QByteArray(100000, 'x'));
            }
        });
        QVERIFY2(slept > Wait / 20 && slept < Wait * 3 / 2, QByteArray::number(slept).constData());
        reader.reset();
        recorder.write(50);
        QCOMPARE(stored(project.db), 100);
    }

    /// A video mission's file that is made anew gets its tables before what waited for it, and before the
    /// rest.
    void videoFileAnew()
    {
        for (const bool isPointedAtAgain : {true, false}) {
            const FlightProject project;
            const QString video = project.path("away/easy.db"_l1);
            Recorder recorder(video);
            recorder.write(53); // its folder is not there yet
            QVERIFY(project.file("away/easy.db"_l1).size() > 0);
            if (isPointedAtAgain) {
                recorder.op.SetFlightMissionFilePath(video);
            }
            recorder.write(50);
            const int gone = stored(video);
            QVERIFY(QFile::remove(video));
            recorder.write(47);
            recorder.op.SetFlightMissionFilePath(video);
            recorder.write(50);
            QCOMPARE(stored(video), recorder.written - gone);
        }
    }

    /// A file is put back with rows in its log, whose name belonged to an empty one that the operator has
    /// open: that is read no more, as SQLite finds the log by its name and would delete it.
    void putBackWithItsLog()
    {
        for (const EUploadEnv env : {EUploadEnv::None, EUploadEnv::OncePerRequest}) {
            const FlightProject project(0, 0, 0);
            const QString away = project.path("away"_l1);
            {
                const Foreign wal("idle WAL"_l1, project.db);
                TestProject::addMission(project.db, "m2"_l1, 0, 0, 500);
                QVERIFY(QFile::copy(project.db, away) &&
                        QFile::copy(project.db + "-wal"_l1, away + "-wal"_l1));
            }
            Recorder recorder(project.db, env);
            QVERIFY(QFile::remove(project.db));
            recorder.op.SetFlightMissionFilePath(project.db);
            QVERIFY(QFile::remove(project.db) && QFile::rename(away + "-wal"_l1, project.db + "-wal"_l1) &&
                    QFile::rename(away, project.db));
            recorder.write(env == EUploadEnv::None ? 50 : 0);
            Q_EMIT recorder.slotCheckNewData();
            Q_EMIT recorder.slotStartUpload();
            QCOMPARE(stored(project.db), 500 + recorder.written);
        }
    }

    /// A pass comes to a file that was deleted since it began: that is not made anew.
    void goneInMidPass()
    {
        const FlightProject project(1, 1, 1);
        const QString other = project.missionFile("m2/flight.kv"_l1);
        TestProject::addMission(other, "m2"_l1, 1, 1, 1);
        QString gone;
        ScriptedServer server;
        ArmedHost host(EUploadEnv::WholeProject);
        connect(&host.op, &CKvFlightDataDbOperator::UpLoading, this,
                [&](const QString&, const QString& mission) {
                    if (gone.isEmpty()) {
                        gone = mission == Mission ? other : project.db;
                        QFile::remove(gone);
                    }
                });
        Q_EMIT host.slotStartUpload();
        QTRY_VERIFY(!gone.isEmpty() && TestProject::waiting(gone == other ? project.db : other) == 0);
        Q_EMIT host.slotStartUpload(); // the file that is left
        QVERIFY(!QFile::exists(gone));
    }

    /// An operator ends whose call before has used up the wait for a lock.
    void endAfterWait()
    {
        const FlightProject project;
        CKvDataBase::SetLockWait(10 * Wait); // far longer than a visit
        auto recorder = std::make_unique<Recorder>(project.db);
        recorder->write(49);
        const Foreign foreign("exclusive"_l1, project.db);
        Q_EMIT recorder->slotUpdateBreakpoint(7, 1, 2, Mission, 3);
        const int slept = waited([&recorder] { recorder.reset(); });
        CKvDataBase::SetLockWait(Wait);
        QVERIFY2(slept > Wait / 2 && slept < 15 * Wait, QByteArray::number(slept).constData());
        QCOMPARE(g_criticals, QStringList(project.db + ": 49 records were not stored and are lost"_l1));
    }

    /// A folder is away for some records of each kind, and comes back or does not.
    void folderIsAway()
    {
        for (const bool comesBack : {true, false}) {
            Scene scene;
            scene.begin({});
            const auto rename = [&scene](const char* from, const char* to) {
                return QDir().rename(scene.project.path(QLatin1String(from)),
                                     scene.project.path(QLatin1String(to)));
            };
            QVERIFY(rename("m1", "away"));
            scene.recorder->op.SetFlightMissionFilePath(scene.file);
            scene.recorder->write(30);
            actions().at("three arguments"_l1)(scene);
            actions().at("single record"_l1)(scene);
            QVERIFY(rename(comesBack ? "away" : "m1", comesBack ? "m1" : "away") == comesBack);
            scene.recorder->write(comesBack ? 3 : 0);
            scene.recorder.reset();
            QVERIFY(comesBack || rename("away", "m1"));
            QCOMPARE(stored(scene.project.db), comesBack ? 39 : 3);
            QCOMPARE(g_criticals,
                     comesBack ? QStringList()
                               : QStringList(scene.file + ": 36 records were not stored and are lost"_l1));
        }
    }

    /// A read that finds a file locked is told, and its end, and neither again for the locks that follow.
    void lockedReads()
    {
        const FlightProject project;
        CKvDataBase database(project.db);
        QVERIFY(database.open());
        QCOMPARE(loggedBy(Level::Warn,
                          [&] {
                              for (int i = 0; i < 3; ++i) {
                                  const Foreign foreign("exclusive"_l1, project.db);
                                  database.exec("SELECT count(*) FROM pos_data"_l1);
                              }
                              database.exec("SELECT count(*) FROM pos_data"_l1);
                              const Foreign foreign("exclusive"_l1, project.db);
                              database.exec("SELECT count(*) FROM pos_data"_l1);
                          }),
                 QStringList({"3 "_l1 + project.db + ": cannot be read now: database is locked"_l1,
                              "3 "_l1 + project.db + ": can be read again, after 0 s"_l1}));
    }

    /// Records for a file without their table wait for it, whatever else the file has got meanwhile.
    void noTables()
    {
        for (const auto& tried : {std::pair("", ""),
                                  {"breakpoint", ""},
                                  {"one value", ""},
                                  {"", "CREATE TABLE other(id)"},
                                  {"", "CREATE TABLE flight_mission(id)"}}) {
            const QString action = QLatin1String(tried.first), sql = QLatin1String(tried.second);
            Scene scene;
            scene.recorder = std::make_unique<Recorder>(scene.project.db);
            const QString bare = scene.project.file("bare/flight.kv"_l1);
            scene.recorder->op.SetFlightMissionFilePath(bare);
            const QStringList lines = loggedBy(Level::Warn, [&] {
                if (!action.isEmpty()) {
                    actions().at(action)(scene);
                }
                scene.recorder->write(50);
                TestProject::run(bare, {sql});
                scene.recorder->write(50);
            });
            const CKvFlightDataDbOperator makesTables(nullptr, EUploadEnv::None);
            scene.recorder->write(50);
            QStringList expected{"3 "_l1 + bare + ": has no tables; records wait in memory for them"_l1};
            if (!sql.isEmpty()) {
                expected.append("3 "_l1 + bare +
                                ": has no table \"flight_monitor_detail_log\"; its records wait in "
                                "memory for it"_l1);
            }
            QCOMPARE(lines.filter("wait in memory"_l1), expected);
            QCOMPARE(stored(bare), 150);
        }
    }

    /// Messages for a table that the connection has not seen wait for a lock with their batch, not one by
    /// one.
    void unknownTable()
    {
        const FlightProject project;
        Recorder recorder(project.db);
        project.run("DROP TABLE flight_monitor_detail_log");
        recorder.op.SetFlightMissionFilePath(project.db);
        auto foreign = std::make_unique<Foreign>("exclusive"_l1, project.db);
        const int slept = waited([&recorder] {
            for (int i = 0; i < 50; ++i) {
                QCoreApplication::processEvents();
                recorder.write(1);
            }
        });
        QVERIFY2(slept > Wait / 20 && slept < Wait * 3 / 2, QByteArray::number(slept).constData());
        foreign.reset();
        QVERIFY(CreateMissionFile(project.db));
        recorder.write(50);
        QCOMPARE(stored(project.db), 100);
    }

    /// A file that is moved away in a pause can be put back, as nothing has taken its name.
    void movedAwayInPause()
    {
        const FlightProject project;
        Recorder recorder(project.db);
        recorder.write(10);
        Q_EMIT recorder.slotStartUploadTimer(false);
        QVERIFY(QFile::rename(project.db, project.db + ".away"_l1));
        recorder.write(10);
        Q_EMIT recorder.slotStartUploadTimer(false);
        QVERIFY(QFile::rename(project.db + ".away"_l1, project.db));
        recorder.write(50);
        QCOMPARE(stored(project.db), 70);
    }

    /// A record that waits for its table holds up none of another table, nor an update.
    void oneTableIsMissing()
    {
        Scene scene;
        scene.recorder = std::make_unique<Recorder>(scene.project.db);
        scene.project.run("DROP TABLE pos_data");
        actions().at("single record"_l1)(scene);
        scene.recorder->write(50);
        actions().at("one value"_l1)(scene);
        QCOMPARE(scene.project.text("SELECT last_waypoint_index || ' ' || (SELECT count(*) FROM "
                                    "flight_monitor_detail_log) FROM flight_mission"_l1),
                 "7 50"_l1);
        QVERIFY(CreateMissionFile(scene.project.db));
        scene.recorder.reset();
        QCOMPARE(scene.project.text("SELECT id FROM pos_data"_l1), "p1"_l1);
    }

    /// What cannot be stored is kept up to a limit; that it is reached is said once.
    void limit()
    {
        const FlightProject project;
        auto foreign = std::make_unique<Foreign>("exclusive"_l1, project.db);
        Recorder recorder(project.db);
        const QByteArray megabyte(1 << 20, 'm');
        for (int i = 0; i < 150; ++i) {
            Q_EMIT recorder.slotWriteFlightMonitor(QByteArray::number(i) + megabyte);
        }
        QCOMPARE(g_criticals,
                 QStringList(project.db + ": too much waits in memory; records are lost from now on"_l1));
        foreign.reset();
        recorder.write(50);
        QCOMPARE(
            project.text("SELECT group_concat(length(message) > 1000) FROM flight_monitor_detail_log"_l1),
            QStringLiteral("1,").repeated(50) + QStringLiteral("0,").repeated(50).chopped(1));
    }

    /// A host's own connection answers well again once the lock is gone.
    void tablesOnPlainConnection()
    {
        const FlightProject project;
        {
            QSqlDatabase plain = QSqlDatabase::addDatabase("QSQLITE"_l1, "plain"_l1);
            plain.setDatabaseName(project.db);
            plain.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(Wait));
            QVERIFY(plain.open());
            const auto create = [&plain](const char* table) {
                return CreateTable(QLatin1String(table), GetPosDataTableContents(), &plain);
            };
            auto foreign = std::make_unique<Foreign>("exclusive"_l1, project.db);
            const int slept = waited([&] {
                for (const char* table : {"one", "two", "three"}) {
                    QVERIFY(!create(table));
                }
            });
            QVERIFY2(slept < Wait * 3 / 2, QByteArray::number(slept).constData());
            foreign.reset();
            QVERIFY(create("one") && create("two") && create("pos_data"));
            QSqlQuery timeout("PRAGMA busy_timeout"_l1, plain);
            QVERIFY(timeout.next() && timeout.value(0) == Wait);
        }
        QSqlDatabase::removeDatabase("plain"_l1);
    }

    /// SQLite leaves the mode without a look at what others have written since it read its pages last.
    void writesOfOthersBesideWriteAheadLog()
    {
        const FlightProject project(0, 0, 0);
        auto foreign = std::make_unique<Foreign>("idle WAL"_l1, project.db);
        CKvDataBase database(project.db);
        CKvDataBase other(project.db);
        QVERIFY(database.open() && other.open());
        for (const char* row : {"1", "2", "3"}) {
            QVERIFY(other.transaction());
            other.exec(QStringLiteral("INSERT INTO pos_data(id) VALUES('%1')").arg(QLatin1String(row)));
            QVERIFY(other.commit());
            QVERIFY(*row == '3' || database.exec("SELECT * FROM pos_data"_l1).next());
        }
        other.close();
        foreign.reset();
        QVERIFY(database.transaction());
        database.exec("UPDATE pos_data SET is_uploaded = 1"_l1);
        QVERIFY(database.commit());
        QCOMPARE(project.text("SELECT id FROM pos_data WHERE is_uploaded = 1 ORDER BY rowid"_l1), "1 2 3"_l1);
        QCOMPARE(project.text("PRAGMA integrity_check"_l1), "ok"_l1);
    }
};

QTEST_GUILESS_MAIN(tst_foreign)
#include "tst_foreign.moc"
