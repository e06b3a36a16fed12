// SPDX-License-Identifier: MIT
#include "support/Rows.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"

#include <functional>
#include <memory>

namespace
{
const QString Log = QStringLiteral("flight_monitor_detail_log");

/// Runs a function on a thread whose stack holds no ten thousand nested calls.
void onSmallStack(const std::function<void()>& function)
{
    const std::unique_ptr<QThread> thread(QThread::create(function));
    thread->setStackSize(512 * 1024);
    thread->start();
    QTRY_VERIFY_WITH_TIMEOUT(thread->isFinished(), 240000);
}
} // namespace

class tst_upload : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ScriptedServer> m_server;

private Q_SLOTS:
    void init() { m_server = std::make_unique<ScriptedServer>(); }

    void chain()
    {
        const FlightProject project(1200, 3, 2500);
        const QString second = project.missionFile("m2/flight.kv"_l1);
        TestProject::addMission(second, "m2"_l1, 0, 0, 1);
        ArmedHost uploader(EUploadEnv::WholeProject);
        control()->SetNetWorkConnected(false);
        Q_EMIT uploader.slotStartUpload();
        m_server->settle();
        QCOMPARE(m_server->requests.size(), 0);
        control()->SetNetWorkConnected(true);
        Q_EMIT uploader.slotStartUpload();
        QTRY_COMPARE_WITH_TIMEOUT(TestProject::waiting(project.db) + TestProject::waiting(second), 0, 20000);
        QCOMPARE(uploader.missions.count(), 2);
        QCOMPARE(uploader.uploading.count(), 4);
        QVERIFY(uploader.uploading.contains({"project-m1"_l1, "m1"_l1}));

        QString sent;
        for (const PostedRequest& request : qAsConst(m_server->requests)) {
            QCOMPARE(request.headers.value("token"), QByteArray("token"));
            if (request.body.contains("m1")) {
                sent += QStringLiteral(" %1 %2")
                            .arg(QString::fromUtf8(request.path))
                            .arg(request.records().size());
                const bool single = request.path == "/flight/upload";
                QCOMPARE(request.field("flight_mission_id"), QByteArray(single ? "" : "m1"));
                QVERIFY(request.body.startsWith(single ? "data={" : "flight_mission_id=m1&data=[{"));
            }
        }
        QCOMPARE(sent, " /flight/upload 1 /flight/posupload 1200 /flight/uasstatusupload 3"
                       " /flight/detailupload 1000 /flight/detailupload 1000 /flight/detailupload 500"_l1);
    }

    /// What a text column holds is what the server reads, whatever it is.
    void exactValues()
    {
        const FlightProject project;
        const QString nasty =
            QString::fromUtf8("%41&data=x;+ \"\\\r\n\t/'飞行 🚁 \u2028\x7f\xc2\xa0") + QString(3000, u'%');
        const QStringList columns[] = {{"project_id"_l1, "name"_l1, "aircraft"_l1, "started_at"_l1,
                                        "flight_mission_data"_l1, "last_waypoint_index"_l1,
                                        "break_point_lng"_l1, "created_at"_l1},
                                       {"time"_l1, "created_at"_l1},
                                       {"mission_id"_l1, "time"_l1, "flight_mode"_l1, "created_at"_l1},
                                       {"created_at"_l1}};
        const QByteArray bytes = QByteArray::fromHex("00ff25262b3d0a") + QByteArray(500, '\xfb');
        const QString value = " = '"_l1 + QString(nasty).replace("'"_l1, "''"_l1) + u'\'';
        for (int i = 0; i < Tables.size(); ++i) {
            const QString insert =
                QLatin1String(i == 0 ? "(id) VALUES('m1')" : "(id, flight_mission_id) VALUES('1', 'm1')");
            QVERIFY(
                project.run("INSERT INTO "_l1 + Tables[i] + insert,
                            "UPDATE "_l1 + Tables[i] + " SET "_l1 + columns[i].join(value + u',') + value));
        }
        QVERIFY(project.run("UPDATE "_l1 + Log + " SET message = x'"_l1 + QString::fromUtf8(bytes.toHex()) +
                            "'"_l1));
        ArmedHost uploader(EUploadEnv::OncePerRequest, project.db);
        Q_EMIT uploader.slotStartUpload();
        QTRY_COMPARE(m_server->requests.size(), 4);
        for (int i = 0; i < Tables.size(); ++i) {
            const QJsonObject record = m_server->requests[i].records().at(0).toObject();
            QVERIFY(!record.contains("is_uploaded"_l1));
            for (const QString& column : columns[i]) {
                QCOMPARE(record[column].toString(), nasty);
            }
        }
        const QString message = m_server->requests[3].records().at(0)["message"_l1].toString();
        QCOMPARE(QByteArray::fromBase64(message.toLatin1(), QByteArray::Base64UrlEncoding), bytes);
    }

    /// What is stored and sent for a value hangs neither on the Qt that recorded it nor on the one that
    /// uploads it: the lines that are compared with are the same for both.
    void eitherQt_data() { addRows(); }
    void eitherQt()
    {
        const FlightProject project;
        const auto described = [&project](const QString& table, const QByteArray& columns) {
            return project.file(table + ".txt"_l1, columns);
        };
        const QByteArray record =
            R"({"id":"1","flight_mission_id":"m1","time":V,"roll":V,"armed":V,"lng":V})";
        const QByteArray literal = cell("json").toUtf8();
        const QJsonObject object = QJsonDocument::fromJson(QByteArray(record).replace("V", literal)).object();
        const QString uas = "uas_status"_l1;
        const QString pos = "pos_data"_l1;
        {
            Host host(EUploadEnv::None, project.db);
            const QString file = described(uas, "id TEXT mission_id TEXT flight_mission_id TEXT "
                                                "time TEXT roll REAL armed INTEGER flight_mode TEXT");
            Q_EMIT host.slotParseSingleJson(object, file, uas);
            host.op.slotParseJson(
                {object},
                described(pos, "id TEXT speed REAL flight_mission_id TEXT time TEXT lng REAL alt REAL"),
                "m1"_l1, 1, project.db);
        }
        QVERIFY(project.run("UPDATE uas_status SET created_at = 'now'",
                            "UPDATE pos_data SET created_at = 'now'",
                            "INSERT INTO flight_mission(id) VALUES('m1')"));
        QStringList stored;
        for (const char* column : {"mission_id", "time", "roll", "armed", "flight_mode"}) {
            stored += project.text("SELECT quote("_l1 + QLatin1String(column) + ") FROM uas_status"_l1);
        }
        for (const char* column : {"speed", "time", "lng", "alt"}) {
            stored += project.text("SELECT quote("_l1 + QLatin1String(column) + ") FROM pos_data"_l1);
        }
        QCOMPARE(stored.join(u' '), cell("stored"));

        ArmedHost uploader(EUploadEnv::OncePerRequest, project.db);
        Q_EMIT uploader.slotStartUpload();
        QTRY_COMPARE(m_server->requests.size(), 3);
        const auto body = [](const char* column) {
            return "flight_mission_id=m1&data=[" + cell(column).toUtf8() + ']';
        };
        QCOMPARE(m_server->requests[1].body, body("as text"));
        QCOMPARE(m_server->requests[2].body, body("as it is"));
    }

    /// Missions that reach the server, of three: "a" has rows of all kinds, "b" a position in the same file,
    /// "c" a status row in another file.
    void environments()
    {
        struct Case {
            int env;
            const char* current;
            const char* missions;
            int requests;
        };
        for (const Case& c : {Case{0, "a", "", 0}, Case{77, "a", "", 0}, Case{1, "a", "a", 4},
                              Case{1, "b", "", 0}, Case{2, "", "a b c", 7}, Case{3, "a", "a b", 5}}) {
            init();
            const FlightProject project;
            TestProject::addMission(project.db, "a"_l1, 1, 1, 1);
            TestProject::addMission(project.db, "b"_l1, 1, 0, 0);
            TestProject::addMission(project.db, "done"_l1, 0, 0, 0);
            TestProject::addMission(project.missionFile("m2/flight.kv"_l1), "c"_l1, 0, 1, 0);
            QVERIFY(project.run("UPDATE flight_mission SET is_uploaded = 1 WHERE id IN('b', 'done')"));
            ArmedHost uploader(static_cast<EUploadEnv>(c.env), project.db);
            uploader.op.SetFilghtMissionID(QLatin1String(c.current));
            Q_EMIT uploader.slotStartUpload();
            QTRY_COMPARE(m_server->requests.size(), c.requests);
            m_server->settle();
            QCOMPARE(m_server->requests.size(), c.requests);
            QStringList seen;
            for (const PostedRequest& request : qAsConst(m_server->requests)) {
                const QByteArray id = request.field("flight_mission_id");
                seen.append(id.isEmpty() ? request.ids().value(0) : QString::fromUtf8(id));
            }
            seen.removeDuplicates();
            seen.sort();
            QCOMPARE(seen.join(u' '), QLatin1String(c.missions));
            if (c.env == 3) {
                QCOMPARE(uploader.finished, (QList<QVariantList>{{""_l1, "b"_l1}}));
                uploader.rearm(project.db); // the timer is stopped and its signals are blocked as well
                QTRY_COMPARE(uploader.finished.count(), 2);
                QCOMPARE(uploader.finished.constLast(), (QVariantList{""_l1, ""_l1}));
            }
        }
    }

    void rowsWithoutIdOrMark()
    {
        const FlightProject project(0, 0, 0);
        const auto time = [](const QString& id) { return id.left(13); };
        const QString before = time(UidToString(QUuid::createUuid()));
        for (const QString& table : Tables.mid(1)) {
            QVERIFY(project.run("INSERT INTO "_l1 + table + "(flight_mission_id) VALUES('m1'), ('m1')"_l1,
                                "INSERT INTO "_l1 + table +
                                    "(id, flight_mission_id, is_uploaded) VALUES(NULL, 'm1', NULL), "
                                    "(7, 'm1', '0'), ('8.50', 'm1', 0.0)"_l1));
        }
        ArmedHost uploader(EUploadEnv::OncePerRequest, project.db);
        Q_EMIT uploader.slotStartUpload();
        QTRY_COMPARE(uploader.finished.count(), 1);
        QCOMPARE(TestProject::waiting(project.db), 0);
        QCOMPARE(m_server->requests.size(), 4);
        QStringList ids = m_server->requests[3].ids();
        QCOMPARE(ids.size(), 5);
        QCOMPARE(ids.removeDuplicates(), 0);
        for (const QString& id : ids.mid(0, 3)) {
            QVERIFY(time(id) >= before && time(id) <= time(UidToString(QUuid::createUuid())));
            static const QRegularExpression form("^.{14}7[0-9a-f]{3}-8[0-9a-f]{3}-[0-9a-f]{12}$"_l1);
            QVERIFY2(form.match(id).hasMatch(), qPrintable(id));
        }
        QVERIFY(ids.contains("7"_l1) && ids.contains("8.50"_l1));
    }

    /// Beside the chain, which reads the mission from the video table in easy-fly mode but marks the mission
    /// table: last words of the paths asked for at the first tick and, with one more status row, at a second.
    void video()
    {
        const QString chain = "detailupload uasstatusupload upload"_l1;
        const std::tuple<bool, QString, QString, QString> cases[] = {
            {true, "m1"_l1, chain + " upload4video"_l1, "uasstatusupload"_l1},
            {false, "m1"_l1, chain, ""_l1},
            {true, ""_l1, ""_l1, ""_l1}};
        for (const auto& [easyFly, current, first, second] : cases) {
            init();
            const FlightProject project(0, 1, 1);
            QVERIFY(project.run("INSERT INTO flight_video_mission(id, name) VALUES('m1', 'a+b')"));
            ArmedHost uploader(EUploadEnv::CurrentMissionLog, project.db);
            uploader.op.SetFlightModeEasyFly(easyFly);
            uploader.op.SetFilghtMissionID(current);
            const auto paths = [this] {
                QStringList list = m_server->paths();
                list.sort();
                return list.replaceInStrings("/flight/"_l1, ""_l1).join(u' ');
            };
            Q_EMIT uploader.slotStartUpload();
            QTRY_COMPARE(paths(), first);
            const int idle = first.isEmpty() ? 1 : 0;
            QTRY_COMPARE(project.waiting("flight_video_mission"_l1), first.contains("video"_l1) ? 0 : 1);
            QTRY_COMPARE(project.waiting("flight_mission"_l1), idle);
            QTRY_COMPARE(project.waiting(Log), idle);
            QVERIFY(project.run("INSERT INTO uas_status(id, flight_mission_id) VALUES('late', 'm1')"));
            m_server->requests.clear();
            Q_EMIT uploader.slotStartUpload();
            QTRY_COMPARE(paths(), second);
            QTRY_COMPARE(project.waiting("uas_status"_l1), idle + (second.isEmpty() ? 1 : 0));
        }
    }

    void resetFlow()
    {
        const FlightProject project(0, 0, 2500);
        ArmedHost uploader(EUploadEnv::WholeProject);
        connect(&uploader.op, &CKvFlightDataDbOperator::UpLoading, this, [&] {
            if (uploader.uploading.count() == 1) {
                uploader.op.slotResetUploadFlow();
            }
        });
        Q_EMIT uploader.slotStartUpload();
        QTRY_COMPARE(project.waiting(Log), 1500);
        m_server->settle();
        QCOMPARE(m_server->requests.size(), 2);
        QTRY_COMPARE_WITH_TIMEOUT(TestProject::waiting(project.db), 0, 4000); // in one cycle
        QCOMPARE(m_server->requests.size(), 4);
    }

    /// The first one causes the post of another mission, and sets another current mission.
    void everyReceiverSeesTheSame()
    {
        const FlightProject project(0, 0, 1500);
        TestProject::addMission(project.db, "m2"_l1, 0, 0, 1);
        QVERIFY(project.run("UPDATE flight_mission SET is_uploaded = 1"));
        ArmedHost uploader(EUploadEnv::WholeProject, project.db);
        connect(&uploader.op, &CKvFlightDataDbOperator::UpLoading, this, [&] {
            uploader.op.SetFilghtMissionID("m2"_l1);
            if (uploader.uploading.count() == 2) {
                Q_EMIT uploader.slotStartUpload();
            }
        });
        QSignalSpy last(&uploader.op, SIGNAL(UpLoading(QString, QString)));
        Q_EMIT uploader.slotStartUpload();
        QTRY_VERIFY(uploader.uploading.contains({"project-m2"_l1, "m2"_l1}));
        QCOMPARE(last.count(), uploader.uploading.count());
        for (const QVariantList& arguments : qAsConst(last)) {
            QVERIFY(uploader.uploading.removeOne(arguments));
        }
    }

    /// Ten thousand files without anything to send.
    void finishedFiles()
    {
        const FlightProject project;
        QVERIFY(QDir().mkpath(project.path("many"_l1)));
        for (int i = 0; i < 10000; ++i) {
            QVERIFY(QFile::link(project.db, project.path(QStringLiteral("many/%1.kv").arg(i))));
        }
        const auto openFiles = [] {
            return QDir("/proc/self/fd"_l1).entryList(QDir::AllEntries | QDir::System).size();
        };
        int before = 0;
        int after = -1;
        onSmallStack([&] {
            ArmedHost uploader(EUploadEnv::WholeProject);
            before = openFiles();
            Q_EMIT uploader.slotStartUpload();
            after = openFiles();
        });
        QCOMPARE(after, before + 1); // the file that the connection names last
    }

    /// Missions that were queued before an outage and have been sent meanwhile: the queue is walked, not
    /// nested.
    void staleQueue()
    {
        const FlightProject project;
        QVERIFY(project.run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE "
                            "i < 20000) INSERT INTO flight_mission(id) SELECT i FROM n"));
        m_server->script = [&](const PostedRequest& request) {
            if (m_server->requests.size() > 1) {
                return ScriptedServer::accepted();
            }
            project.run("UPDATE flight_mission SET is_uploaded = 1 WHERE id <> '"_l1 +
                        request.ids().value(0) + "'"_l1);
            return ScriptedServer::reply(R"(200 {"status":5})"_l1);
        };
        onSmallStack([&] {
            ArmedHost uploader(EUploadEnv::OncePerRequest, project.db);
            QEventLoop loop;
            connect(&uploader.op, &CKvFlightDataDbOperator::UploadFinished, &loop, &QEventLoop::quit);
            Q_EMIT uploader.slotStartUpload();
            loop.exec();
        });
        QCOMPARE(m_server->requests.size(), 2);
        QCOMPARE(TestProject::waiting(project.db), 0);
    }

    /// The cost of a scan must not grow with the rows that are uploaded already.
    void waitingRowsAreIndexed()
    {
        const FlightProject project;
        CKvDataBase database(project.db);
        QVERIFY(database.open());
        for (const QString& table : Tables.mid(1)) {
            QSqlQuery plan = database.exec("EXPLAIN QUERY PLAN SELECT * FROM "_l1 + table +
                                           " WHERE is_uploaded = 0 AND flight_mission_id = 'm1'"_l1);
            QVERIFY(plan.next() && plan.value("detail"_l1).toString().contains(table + "_waiting"_l1));
        }
    }

    void logThreshold()
    {
        const FlightProject project;
        const auto upload = [&project] {
            QVERIFY(project.run("DELETE FROM flight_mission", "DELETE FROM pos_data"));
            TestProject::addMission(project.db, "m1"_l1, 2, 0, 0);
            ArmedHost uploader(EUploadEnv::OncePerRequest, project.db);
            Q_EMIT uploader.slotStartUpload();
            QTRY_COMPARE(uploader.finished.count(), 1);
            uploader.op.slotResetUploadFlow();
            QMetaObject::invokeMethod(&uploader.op, "slotUasStatusUpLoadfailed");
        };
        QCOMPARE(loggedBy(Level::Warn, upload), QStringList());
        QString lines = loggedBy(Level::Info, upload).join(u'\n') + u'\n';
        static const QRegularExpression body(R"(\{.*\})"_l1);
        lines.replace(body, "{}"_l1);
        QCOMPARE(lines.split(u'\n'),
                 QString::fromUtf8(TestProject::contents(":/rows/logThreshold.txt"_l1)).split(u'\n'));
    }
};

QTEST_GUILESS_MAIN(tst_upload)
#include "tst_upload.moc"
