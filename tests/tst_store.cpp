// SPDX-License-Identifier: MIT
#include "support/Rows.h"
#include "support/TestProject.h"

#include <map>
#include <memory>
#include <QtSql/QSqlError>

#include <sys/wait.h>
#include <unistd.h>

namespace
{
const QString Log = QStringLiteral("flight_monitor_detail_log");
const QString Mission = QStringLiteral("m1");

int count(const QString& file, const QString& table)
{
    return TestProject::value(file, "SELECT count(*) FROM "_l1 + table).toInt();
}

QString tables(const QString& file)
{
    return TestProject::text(file, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name"_l1);
}
} // namespace

class tst_store : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// Hosts connect by these texts.
    void metaObject()
    {
        QString actual;
        const QMetaObject& meta = CKvFlightDataDbOperator::staticMetaObject;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            const QMetaMethod method = meta.method(i);
            QStringList arguments;
            for (int a = 0; a < method.parameterCount(); ++a) {
                arguments.append(
                    QString::fromUtf8(method.parameterTypes().at(a) + ' ' + method.parameterNames().at(a)));
            }
            actual += QLatin1String(method.access() == QMetaMethod::Private ? "private " : "public ");
            actual += QLatin1String(method.methodType() == QMetaMethod::Signal ? "signal " : "slot ");
            actual += QString::fromUtf8(method.name() + '(') + arguments.join(u',') + ")\n"_l1;
        }
        QCOMPARE(actual.split(u'\n'),
                 QString::fromUtf8(TestProject::contents(":/rows/metaObject.txt"_l1)).split(u'\n'));
    }

    void initialisation()
    {
        const TestProject project;
        const QStringList empty = {project.file("m1/x.kv"_l1), project.file("m1/y.kv"_l1)};
        const QString garbage = project.file("m2/g.kv"_l1, QByteArray(5000, 'g'));
        const QString locked = project.file("m2/locked.kv"_l1);
        const QStringList untouched = {project.file("top.kv"_l1), project.file("m1/deep/z.kv"_l1),
                                       project.file("m2/a.db"_l1), locked};
        CKvDataBase foreign(locked);
        QVERIFY(foreign.open() && foreign.transaction());
        const CKvFlightDataDbOperator first(nullptr, EUploadEnv::None);
        for (const QString& file : empty) {
            QCOMPARE(tables(file), "flight_complete flight_mission "_l1 + Log + " pos_data uas_status"_l1);
        }
        QCOMPARE(TestProject::contents(garbage), QByteArray(5000, 'g'));
        for (const QString& file : untouched) {
            QCOMPARE(TestProject::contents(file), QByteArray());
        }
        const QByteArray before = TestProject::contents(empty[0]);
        const CKvFlightDataDbOperator again(nullptr, EUploadEnv::None);
        QCOMPARE(TestProject::contents(empty[0]), before);
    }

    /// With no project where a call needs one, or none that a file can be opened in.
    void lockStaysHeld()
    {
        const QJsonArray one{QJsonObject{{"id"_l1, "1"_l1}}};
        const auto value = [](Host& h) { h.op.slotUpdateGeneralOneValue(1, "is_uploaded"_l1, 0, Mission); };
        const auto records = [one](Host& h) {
            h.op.slotParseJson(one, "pos_data.txt"_l1, Mission, 1, "/missing/x.kv"_l1);
        };
        const std::tuple<bool, bool, std::function<void(Host&)>> cases[] = {
            {false, true, value},
            {true, false, value},
            {false, false, [](Host& h) { h.op.slotUpdateGeneralOneValue(2, "is_uploaded"_l1, 0, Mission); }},
            {false, true, records},
            {true, true, records},
            {false, false,
             [](Host& h) { h.op.slotParseJson({}, "x.txt"_l1, Mission, 1, "/missing/x.kv"_l1); }},
            {false, true,
             [](Host& h) {
                 Q_EMIT h.slotParseSingleJson({{"id"_l1, "1"_l1}}, "missing"_l1, "pos_data"_l1);
             }},
            {false, true, [](Host& h) { Q_EMIT h.slotUpdateBreakpoint(1, 2, 3, Mission, 4); }}};
        for (const auto& [project, held, call] : cases) {
            const TestProject current;
            control()->SetProjectDirPath(current.path(QLatin1String(project ? "" : "missing")));
            const pid_t child = fork();
            if (child == 0) {
                Host host(EUploadEnv::None);
                call(host);
                alarm(1);
                host.op.slotParseJson({}, {}, {}, 0, {}); // takes the lock and does nothing else
                _exit(0);
            }
            int status = 0;
            QCOMPARE(waitpid(child, &status, 0), child);
            QCOMPARE(status, held ? SIGALRM : 0); // killed by the alarm, or exited with 0
        }
    }

    void monitorBatches()
    {
        const FlightProject project;
        {
            Recorder recorder(project.db);
            recorder.op.SetFilghtMissionID({});
            recorder.write(60);
            recorder.op.SetFilghtMissionID(Mission);
            recorder.write(49);
            QCOMPARE(count(project.db, Log), 0);
            recorder.write(1);
            QCOMPARE(count(project.db, Log), 50);
            recorder.write(7);
            QCOMPARE(count(project.db, Log), 50);
        }
        QCOMPARE(count(project.db, Log), 57);
        QCOMPARE(project.text("SELECT count(DISTINCT id) FROM "_l1 + Log +
                              " WHERE flight_mission_id = 'm1' AND is_uploaded = 0 AND "
                              "created_at LIKE '____-__-__ __:__:__.___' AND length(id) = 36"_l1),
                 "57"_l1);
        QCOMPARE(project.text("SELECT count(DISTINCT message) FROM "_l1 + Log), "57"_l1);
    }

    void waitingMessagesReachTheirFile()
    {
        const FlightProject project;
        const QString other = project.missionFile("m2/flight.kv"_l1);
        const auto record = [&](Recorder& r, const QString& file) {
            r.op.slotParseJson({QJsonObject{{"id"_l1, "p1"_l1}}}, project.file("pos_data.txt"_l1, "id TEXT"),
                               Mission, 1, file);
        };
        const std::map<const char*, std::function<void(Recorder&)>> events = {
            {"other file", [&](Recorder& r) { r.op.SetFlightMissionFilePath(other); }},
            {"no such file", [&](Recorder& r) { r.op.SetFlightMissionFilePath("/missing/folder/x.kv"_l1); }},
            {"records, same file", [&](Recorder& r) { record(r, project.db); }},
            {"records, other file", [&](Recorder& r) { record(r, other); }},
            {"receiver of WriteDBFinished",
             [&](Recorder& r) {
                 connect(&r.op, &CKvFlightDataDbOperator::WriteDBFinished, &r.op, [&] {
                     r.write(30);
                     r.op.SetFlightMissionFilePath(other);
                 });
                 record(r, project.db);
             }},
            {"pause", [](Recorder& r) { Q_EMIT r.slotStartUploadTimer(false); }},
            {"end of pass", [](Recorder& r) { Q_EMIT r.slotStartUpload(); }},
            {"scan", [](Recorder& r) { Q_EMIT r.slotStartUpload(); }},
        };
        control()->SetNetWorkConnected(true);
        for (const auto& [name, event] : events) {
            QVERIFY(project.run("DELETE FROM "_l1 + Log));
            Recorder recorder(project.db, name == QByteArray("scan") ? EUploadEnv::WholeProject
                                                                     : EUploadEnv::OncePerRequest);
            recorder.write(30);
            QCOMPARE(count(project.db, Log), 0);
            event(recorder);
            QVERIFY2(count(project.db, Log) == recorder.written, name);
            QCOMPARE(count(other, Log), 0);
        }
    }

    /// "shown" is an expression for each row in the table at last, the one that was there before included.
    void fiveArguments_data() { addRows(); }
    void fiveArguments()
    {
        const FlightProject project;
        QVERIFY(project.run("ALTER TABLE flight_mission ADD COLUMN message",
                            "ALTER TABLE flight_mission ADD COLUMN x_log_count",
                            "ALTER TABLE flight_mission ADD COLUMN message_log_count",
                            "INSERT INTO flight_mission(id, name) VALUES('old', 'old')"));
        Recorder recorder(project.db);
        recorder.op.slotParseJson(QJsonDocument::fromJson(cell("records").toUtf8()).array(),
                                  project.file("flight_mission.v1.txt"_l1, cell("columns").toUtf8()),
                                  "any"_l1, 9, project.db);
        QCOMPARE(recorder.finished, (QList<QVariantList>{{"any"_l1, 9U, project.db}}));
        const QString shown = cell("shown").replace(u'+', "||"_l1);
        QCOMPARE(project.text("SELECT "_l1 + shown + " FROM flight_mission ORDER BY rowid"_l1).trimmed(),
                 cell("rows"));
    }

    /// Tables of other makers: a record is skipped where its id, as a literal, finds a row, whatever that
    /// takes.
    void knownIdsOfForeignTables()
    {
        // The number stands for the empty text.
        const QString texts =
            QString::fromUtf8("|7|07| 7|7.0|7e0|x1|X1|x1 |y|a:b|?|ü|a'b|y' OR '1'='1|7' --|7") + QChar(0) +
            "|7"_l1 + QChar(0xd83d);
        QJsonArray ids = QJsonArray::fromStringList(texts.split(u'|'));
        ids.append(5);
        for (const char* const type : {"", "TEXT", "TEXT COLLATE NOCASE", "TEXT COLLATE RTRIM UNIQUE",
                                       "INTEGER", "INTEGER PRIMARY KEY", "REAL", "NUMERIC UNIQUE", "BLOB"}) {
            const FlightProject project;
            QVERIFY(project.run("CREATE TABLE foreign_rows(id "_l1 + QLatin1String(type) + ", name)"_l1));
            for (const char* const stored :
                 {"7", "7.5", "'7'", "'7.0'", "'x1'", "''", "'a:b'", "x'37'", "'ü'", "NULL"}) {
                project.run("INSERT INTO foreign_rows(id) VALUES("_l1 + QLatin1String(stored) +
                            ")"_l1); // not all fit everywhere
            }
            const QString columns = project.file("foreign_rows.txt"_l1, "name t");
            Recorder recorder(project.db);
            for (const QJsonValue& value : qAsConst(ids)) {
                const QString id = value.toString();
                const QString found =
                    project.text("SELECT count(*) > 0 FROM foreign_rows WHERE id = '"_l1 + id + "'"_l1);
                recorder.op.slotParseJson({QJsonObject{{"id"_l1, value}, {"name"_l1, u'n' + id}}}, columns,
                                          Mission, 1, project.db);
                const QString written =
                    project.text("SELECT count(*) FROM foreign_rows WHERE name IS NOT NULL"_l1);
                QVERIFY2((found == "1"_l1) == (written == "0"_l1),
                         qPrintable(QLatin1String(type) + " '"_l1 + id + "' "_l1 + found + written));
                QVERIFY(project.run("DELETE FROM foreign_rows WHERE name IS NOT NULL"));
            }
        }
    }

    void typedRecords()
    {
        const FlightProject project;
        const QString columns = project.file("any.txt"_l1, "id t time t lng d is_uploaded i speed d alt d");
        Recorder recorder(project.db);
        Q_EMIT recorder.slotParseJson({}, columns, Mission);
        Q_EMIT recorder.slotParseJson({QJsonObject{{"id"_l1, "p1"_l1}, {"lng"_l1, 116.5}, {"unknown"_l1, 1}},
                                       QJsonObject{{"lng"_l1, -0.25}, {"time"_l1, ""_l1}}},
                                      columns, Mission);
        QCOMPARE(recorder.finished, (QList<QVariantList>{{Mission, 2U, project.db}}));
        Q_EMIT recorder.slotParseSingleJson(QJsonObject{{"id"_l1, 7}, {"lng"_l1, 1.5}, {"alt"_l1, true}},
                                            columns, "pos_data"_l1);
        QCOMPARE(project.text("SELECT lng || typeof(lng) || is_uploaded || typeof(speed) || typeof(time) || "
                              "length(id) || ifnull(alt, '') FROM pos_data ORDER BY rowid"_l1),
                 "116.5real0nullnull2 -0.25real0nulltext36 1.5real0nullnull11.0"_l1);
    }

    void damagedDescriptions()
    {
        for (const QByteArray& columns :
             {QByteArray("missing"), QByteArray("id t name"), QByteArray("id t nosuch t"),
              QByteArray("id t ) t"), QByteArray("\x00\xff\xfe id \x01", 8)}) {
            const FlightProject project;
            const QString description = columns == "missing" ? project.path(QString::fromUtf8(columns))
                                                             : project.file("pos_data.txt"_l1, columns);
            Recorder recorder(project.db);
            recorder.write(3);
            const QJsonObject record{{"id"_l1, "1"_l1}};
            recorder.op.slotParseJson({record}, description, Mission, 1, project.db);
            Q_EMIT recorder.slotParseJson({record}, description, Mission);
            Q_EMIT recorder.slotParseSingleJson(record, description, "pos_data"_l1);
            QCOMPARE(recorder.finished.count(), 2);
            QVERIFY2(count(project.db, "pos_data"_l1) == 0 && count(project.db, Log) == 3,
                     columns.constData());
        }
    }

    void oneValue()
    {
        const std::tuple<QVariant, QVariant, int> cases[] = {
            {1, 0, 0}, {"1"_l1, "7"_l1, 7}, {1, "abc"_l1, 0}, {2, 0, 1}};
        for (const auto& [command, value, expected] : cases) {
            const FlightProject project(0, 0, 0);
            QVERIFY(project.run("UPDATE flight_mission SET is_uploaded = 1"));
            Recorder recorder(project.db);
            if (command != 2) {
                QTest::ignoreMessage(QtDebugMsg, "----------------sql ====success  ");
            }
            recorder.op.slotUpdateGeneralOneValue(command, "is_uploaded"_l1, value, Mission);
            QCOMPARE(TestProject::value(project.db, "SELECT is_uploaded FROM flight_mission"_l1),
                     QVariant(expected));
            QTest::ignoreMessage(QtDebugMsg, "----------------sql ====fail  ");
            recorder.op.slotUpdateGeneralOneValue(1, "is_uploaded"_l1, 1, "it's"_l1);
        }
    }

    /// The mission's document before and after; DEGREE is the member that is written, MB a long text.
    void breakpoints_data() { addRows(); }
    void breakpoints()
    {
        const QString megabyte(1000000, u'm');
        QString before = u'\'' + cell("before").replace("MB"_l1, megabyte) + u'\'';
        QString after = cell("after").replace(R"(\n)"_l1, "\n"_l1).replace("MB"_l1, megabyte);
        after.replace("DEGREE"_l1, R"("circula_task_completion_degree": 62.5)"_l1);
        const bool changed = after != "unchanged"_l1;
        const FlightProject project(0, 0, 0);
        QVERIFY(project.run("UPDATE flight_mission SET is_uploaded = 1, flight_mission_data = nullif("_l1 +
                            before + ", 'NULL')"_l1));
        const char* const document = "SELECT flight_mission_data FROM flight_mission";
        const QVariant stored = TestProject::value(project.db, QLatin1String(document));
        Recorder recorder(project.db);
        QSignalSpy answered(&recorder.op, SIGNAL(RecBreakPointRet(bool)));
        Q_EMIT recorder.slotUpdateBreakpoint(12, 116.4, -0.5, Mission, 62.5);
        QCOMPARE(answered.count(QVariantList{true}), cell("answers").toInt());
        QCOMPARE(answered.count(), cell("answers").toInt());
        QCOMPARE(project.text("SELECT is_uploaded || ' ' || last_waypoint_index || ' ' || "
                              "break_point_lng || ' ' || break_point_lat FROM flight_mission"_l1),
                 changed ? "0 12 116.400000 -0.500000"_l1 : QString());
        QCOMPARE(project.text(QLatin1String(document)), changed ? after : stored.toString());
        recorder.op.slotParseJson({}, {}, {}, 0, {}); // the lock is free again
    }

    void breakpointLines()
    {
        const FlightProject project;
        Recorder recorder(project.db);
        const QStringList lines = loggedBy(Level::Info, [&recorder] {
                                      Q_EMIT recorder.slotUpdateBreakpoint(1, 2, 3, "none"_l1, 4.5);
                                      Q_EMIT recorder.slotUpdateBreakpoint(1, 2, 3, "it's"_l1, 4.5);
                                  }).filter(QRegularExpression("^2 "_l1)); // without the warnings
        const QString expected = QString::fromUtf8(TestProject::contents(":/rows/breakpointLines.txt"_l1));
        QVERIFY2((lines.join(u'\n') + u'\n').startsWith(expected.trimmed()), qPrintable(lines.join(u'\n')));
        QCOMPARE(lines.size(), 8);
    }

    void videoTables()
    {
        const TestProject project;
        const QString easy = project.path("easy.db"_l1);
        const QString upper = project.path("easy.DB"_l1);
        Recorder recorder(easy);
        QCOMPARE(tables(easy), Log + " flight_video_mission uas_status"_l1);
        recorder.op.SetFlightMissionFilePath(upper);
        QCOMPARE(count(upper, "sqlite_master"_l1), 0);
    }
};

QTEST_GUILESS_MAIN(tst_store)
#include "tst_store.moc"
