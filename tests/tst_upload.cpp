// SPDX-License-Identifier: MIT
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
        const QString second = project.missionFile("m2/flight.kv");
        TestProject::addMission(second, "m2", 0, 0, 1);
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
        QVERIFY(uploader.uploading.contains({"project-m1", "m1"}));

        QString sent;
        for (const PostedRequest& request : qAsConst(m_server->requests)) {
            QCOMPARE(request.headers.value("token"), QByteArray("token"));
            if (request.body.contains("m1")) {
                sent += QString(" %1 %2").arg(QString(request.path)).arg(request.records().size());
                const bool single = request.path == "/flight/upload";
                QCOMPARE(request.field("flight_mission_id"), QByteArray(single ? "" : "m1"));
                QVERIFY(request.body.startsWith(single ? "data={" : "flight_mission_id=m1&data=[{"));
            }
        }
        QCOMPARE(sent,
                 QString(" /flight/upload 1 /flight/posupload 1200 /flight/uasstatusupload 3"
                         " /flight/detailupload 1000 /flight/detailupload 1000 /flight/detailupload 500"));
    }

    /// What a text column holds is what the server reads, whatever it is.
    void exactValues()
    {
        const FlightProject project;
        const QString nasty =
            QString::fromUtf8("%41&data=x;+ \"\\\r\n\t/'飞行 🚁 \u2028\x7f\xc2\xa0") + QString(3000, '%');
        const QStringList columns[] = {{"project_id", "name", "aircraft", "started_at", "flight_mission_data",
                                        "last_waypoint_index", "break_point_lng", "created_at"},
                                       {"time", "created_at"},
                                       {"mission_id", "time", "flight_mode", "created_at"},
                                       {"created_at"}};
        const QByteArray bytes = QByteArray::fromHex("00ff25262b3d0a") + QByteArray(500, '\xfb');
        const QString value = " = '" + QString(nasty).replace("'", "''") + '\'';
        for (int i = 0; i < Tables.size(); ++i) {
            const QString insert = i == 0 ? "(id) VALUES('m1')" : "(id, flight_mission_id) VALUES('1', 'm1')";
            QVERIFY(project.run("INSERT INTO " + Tables[i] + insert,
                                "UPDATE " + Tables[i] + " SET " + columns[i].join(value + ',') + value));
        }
        QVERIFY(project.run("UPDATE " + Log + " SET message = x'" + bytes.toHex() + "'"));
        ArmedHost uploader(EUploadEnv::OncePerRequest, project.db);
        Q_EMIT uploader.slotStartUpload();
        QTRY_COMPARE(m_server->requests.size(), 4);
        for (int i = 0; i < Tables.size(); ++i) {
            const QJsonObject record = m_server->requests[i].records().at(0).toObject();
            QVERIFY(!record.contains("is_uploaded"));
            for (const QString& column : columns[i]) {
                QCOMPARE(record[column].toString(), nasty);
            }
        }
        const QString message = m_server->requests[3].records().at(0)["message"].toString();
        QCOMPARE(QByteArray::fromBase64(message.toLatin1(), QByteArray::Base64UrlEncoding), bytes);
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
            TestProject::addMission(project.db, "a", 1, 1, 1);
            TestProject::addMission(project.db, "b", 1, 0, 0);
            TestProject::addMission(project.db, "done", 0, 0, 0);
            TestProject::addMission(project.missionFile("m2/flight.kv"), "c", 0, 1, 0);
            QVERIFY(project.run("UPDATE flight_mission SET is_uploaded = 1 WHERE id IN('b', 'done')"));
            ArmedHost uploader(static_cast<EUploadEnv>(c.env), project.db);
            uploader.op.SetFilghtMissionID(c.current);
            Q_EMIT uploader.slotStartUpload();
            QTRY_COMPARE(m_server->requests.size(), c.requests);
            m_server->settle();
            QCOMPARE(m_server->requests.size(), c.requests);
            QStringList seen;
            for (const PostedRequest& request : qAsConst(m_server->requests)) {
                const QByteArray id = request.field("flight_mission_id");
                seen.append(id.isEmpty() ? request.ids().value(0) : id);
            }
            seen.removeDuplicates();
            seen.sort();
            QCOMPARE(seen.join(' '), QString(c.missions));
            if (c.env == 3) {
                QCOMPARE(uploader.finished, (QList<QVariantList>{{"", "b"}}));
                uploader.rearm(project.db); // the timer is stopped and its signals are blocked as well
                QTRY_COMPARE(uploader.finished.count(), 2);
                QCOMPARE(uploader.finished.constLast(), (QVariantList{"", ""}));
            }
        }
    }

    void rowsWithoutIdOrMark()
    {
        const FlightProject project(0, 0, 0);
        const auto time = [](const QString& id) { return id.left(13); };
        const QString before = time(UidToString(QUuid::createUuid()));
        for (const QString& table : Tables.mid(1)) {
            QVERIFY(project.run("INSERT INTO " + table + "(flight_mission_id) VALUES('m1'), ('m1')",
                                "INSERT INTO " + table +
                                    "(id, flight_mission_id, is_uploaded) VALUES(NULL, 'm1', NULL), "
                                    "(7, 'm1', '0'), ('8.50', 'm1', 0.0)"));
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
            static const QRegularExpression form("^.{14}7[0-9a-f]{3}-8[0-9a-f]{3}-[0-9a-f]{12}$");
            QVERIFY2(form.match(id).hasMatch(), qPrintable(id));
        }
        QVERIFY(ids.contains("7") && ids.contains("8.50"));
    }

    /// Beside the chain, which reads the mission from the video table in easy-fly mode but marks the mission
    /// table: last words of the paths asked for at the first tick and, with one more status row, at a second.
    void video()
    {
        const QString chain = "detailupload uasstatusupload upload";
        const std::tuple<bool, QString, QString, QString> cases[] = {
            {true, "m1", chain + " upload4video", "uasstatusupload"},
            {false, "m1", chain, ""},
            {true, "", "", ""}};
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
                return list.replaceInStrings("/flight/", "").join(' ');
            };
            Q_EMIT uploader.slotStartUpload();
            QTRY_COMPARE(paths(), first);
            const int idle = first.isEmpty() ? 1 : 0;
            QTRY_COMPARE(project.waiting("flight_video_mission"), first.contains("video") ? 0 : 1);
            QTRY_COMPARE(project.waiting("flight_mission"), idle);
            QTRY_COMPARE(project.waiting(Log), idle);
            QVERIFY(project.run("INSERT INTO uas_status(id, flight_mission_id) VALUES('late', 'm1')"));
            m_server->requests.clear();
            Q_EMIT uploader.slotStartUpload();
            QTRY_COMPARE(paths(), second);
            QTRY_COMPARE(project.waiting("uas_status"), idle + (second.isEmpty() ? 1 : 0));
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
        TestProject::addMission(project.db, "m2", 0, 0, 1);
        QVERIFY(project.run("UPDATE flight_mission SET is_uploaded = 1"));
        ArmedHost uploader(EUploadEnv::WholeProject, project.db);
        connect(&uploader.op, &CKvFlightDataDbOperator::UpLoading, this, [&] {
            uploader.op.SetFilghtMissionID("m2");
            if (uploader.uploading.count() == 2) {
                Q_EMIT uploader.slotStartUpload();
            }
        });
        QSignalSpy last(&uploader.op, SIGNAL(UpLoading(QString, QString)));
        Q_EMIT uploader.slotStartUpload();
        QTRY_VERIFY(uploader.uploading.contains({"project-m2", "m2"}));
        QCOMPARE(last.count(), uploader.uploading.count());
        for (const QVariantList& arguments : qAsConst(last)) {
            QVERIFY(uploader.uploading.removeOne(arguments));
        }
    }

    /// Ten thousand files without anything to send.
    void finishedFiles()
    {
        const FlightProject project;
        QVERIFY(QDir().mkpath(project.path("many")));
        for (int i = 0; i < 10000; ++i) {
            QVERIFY(QFile::link(project.db, project.path(QString("many/%1.kv").arg(i))));
        }
        const auto openFiles = [] {
            return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System).size();
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
            project.run("UPDATE flight_mission SET is_uploaded = 1 WHERE id <> '" + request.ids().value(0) +
                        "'");
            return ScriptedServer::reply("200 {\"status\":5}");
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
            QSqlQuery plan = database.exec("EXPLAIN QUERY PLAN SELECT * FROM " + table +
                                           " WHERE is_uploaded = 0 AND flight_mission_id = 'm1'");
            QVERIFY(plan.next() && plan.value("detail").toString().contains(table + "_waiting"));
        }
    }

    void logThreshold()
    {
        const FlightProject project;
        const auto upload = [&project] {
            QVERIFY(project.run("DELETE FROM flight_mission", "DELETE FROM pos_data"));
            TestProject::addMission(project.db, "m1", 2, 0, 0);
            ArmedHost uploader(EUploadEnv::OncePerRequest, project.db);
            Q_EMIT uploader.slotStartUpload();
            QTRY_COMPARE(uploader.finished.count(), 1);
            uploader.op.slotResetUploadFlow();
            QMetaObject::invokeMethod(&uploader.op, "slotUasStatusUpLoadfailed");
        };
        QCOMPARE(loggedBy(Level::Warn, upload), QStringList());
        QString lines = loggedBy(Level::Info, upload).join('\n') + '\n';
        static const QRegularExpression body(R"(\{.*\})");
        lines.replace(body, "{}");
        QCOMPARE(lines.split('\n'), QString(TestProject::contents(":/rows/logThreshold.txt")).split('\n'));
    }
};

QTEST_GUILESS_MAIN(tst_upload)
#include "tst_upload.moc"
