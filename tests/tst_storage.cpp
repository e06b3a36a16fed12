// SPDX-License-Identifier: MIT
#include "support/FaultVfs.h"
#include "support/Foreign.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"

#include <memory>
#include <vector>

namespace
{
FaultVfs& disk = FaultVfs::install();
const QString Mission = QStringLiteral("flight_mission/m1");

/// A flight that is recorded step by step, by one operator as long as that will do.
class Flight
{
public:
    explicit Flight(const TestProject& project) : file(project.file("m1/flight.kv"_l1)), m_project(project)
    {
        disk.mount(QFileInfo(file).path());
    }

    struct FlightStep {
        void (*run)(Flight&);
        int rows; ///< written by one transaction
    };
    static const QList<FlightStep> Steps;

    void run(const FlightStep& step)
    {
        step.run(*this);
        Q_EMIT m_host->slotStartUploadTimer(false); // writes the messages that wait
    }

    void end() { m_host.reset(); }
    const QString file;

private:
    void start()
    {
        m_host = std::make_unique<Host>(EUploadEnv::None, file);
        m_host->op.SetFilghtMissionID("m1"_l1);
    }
    void messages(int count)
    {
        for (int i = 0; i < count; ++i) {
            Q_EMIT m_host->slotWriteFlightMonitor("message");
        }
    }
    static QJsonArray records(const QString& id, int count)
    {
        QJsonArray array;
        while (array.size() < count) {
            array.append(QJsonObject{{"id"_l1, id + QString::number(array.size() + 1)},
                                     {"flight_mission_id"_l1, "m1"_l1},
                                     {"flight_mission_data"_l1, R"({"waypoints":4})"_l1}});
        }
        return array;
    }
    QString columns(const QString& table)
    {
        const QByteArray column = table == Tables[0] ? "flight_mission_data" : "flight_mission_id";
        return m_project.file(table + ".txt"_l1, "id TEXT " + column + " TEXT");
    }
    void write(const QString& table, const QJsonArray& array)
    {
        const QSignalSpy written(&m_host->op, SIGNAL(WriteDBFinished(QString, uint, QString)));
        m_host->op.slotParseJson(array, columns(table), "m1"_l1, 1, file);
        if (written.isEmpty()) { // the file did not open, which locks the operator for good
            static auto& locked = *new std::vector<std::unique_ptr<Host>>; // whose destructors would wait
            locked.push_back(std::move(m_host));
            start();
        }
    }

    const TestProject& m_project;
    std::unique_ptr<Host> m_host;
};

const QList<Flight::FlightStep> Flight::Steps = {
    {[](Flight& f) { f.start(); }, 0},
    {[](Flight& f) { f.write("flight_mission"_l1, records("m"_l1, 1)); }, 1},
    {[](Flight& f) { f.messages(50); }, 50},
    {[](Flight& f) { f.messages(3); }, 3},
    {[](Flight& f) { Q_EMIT f.m_host->slotParseJson(records("p"_l1, 3), f.columns("pos_data"_l1), "m1"_l1); },
     3},
    {[](Flight& f) {
         const QJsonObject status = records("s"_l1, 1).at(0).toObject();
         Q_EMIT f.m_host->slotParseSingleJson(status, f.columns("uas_status"_l1), "uas_status"_l1);
     },
     1},
    {[](Flight& f) { f.write("uas_status"_l1, records("t"_l1, 3)); }, 3},
    {[](Flight& f) { Q_EMIT f.m_host->slotUpdateBreakpoint(3, 8.5, 47.25, "m1"_l1, 0.5); }, 0},
};
} // namespace

class tst_storage : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ScriptedServer> m_server;

    /// A server that knows nothing of what the operators before have still under way.
    void startServer()
    {
        m_server = std::make_unique<ScriptedServer>();
        m_server->script = [this](const PostedRequest& request) {
            if (m_server->paths().count("/flight/posupload"_l1) == 1 && request.path == "/flight/posupload") {
                ScriptedServer::Reply refused = ScriptedServer::reply(R"(200 {"status":2})"_l1);
                refused.close = true; // a second request on the connection would wait for a late ACK
                return refused;
            }
            return ScriptedServer::accepted();
        };
    }

    /// A pass until its end, or until nothing has happened for so long.
    void pass(ArmedHost& uploader, int patience)
    {
        QEventLoop loop;
        QTimer quiet;
        connect(&uploader.op, &CKvFlightDataDbOperator::UploadFinished, &loop, &QEventLoop::quit);
        connect(&quiet, &QTimer::timeout, &loop, &QEventLoop::quit);
        connect(m_server.get(), &QTcpServer::newConnection, &quiet, [&quiet] { quiet.start(); });
        Q_EMIT uploader.slotStartUpload();
        quiet.start(patience);
        loop.exec();
    }

    /// Uploads; all is sent within two passes once the disk is well again.
    void upload(const QString& file)
    {
        ArmedHost uploader(EUploadEnv::OncePerRequest, file);
        pass(uploader, 30);
        {
            const FaultVfs::Pause pause;
            QVERIFY(m_server->stored.contains(TestProject::rows(file, "is_uploaded = 1"_l1)));
        }
        disk.clear();
        for (int cycle = 0; cycle < 2 && TestProject::waiting(file) != 0; ++cycle) {
            uploader.rearm(file);
            pass(uploader, 10000);
        }
        QCOMPARE(TestProject::waiting(file), 0);
        QCOMPARE(m_server->stored, TestProject::rows(file));
        QCOMPARE(TestProject::text(file, "PRAGMA integrity_check"_l1), "ok"_l1);
    }

private Q_SLOTS:
    void initTestCase()
    {
        Logger::instance().setLoggingLevel(static_cast<Level>(5)); // there will be thousands of errors
        QLoggingCategory::setFilterRules("default.debug=false\ndefault.warning=false"_l1);
    }

    /// Every single step fails once, and everything from a step on: what was stored stays, what was not
    /// accepted is not marked.
    void faults_data()
    {
        QTest::addColumn<int>("step");
        QTest::addColumn<int>("code");
        QTest::addColumn<bool>("forGood");
        // Busy, read-only, input or output, corrupt, full; a write is neither locked out nor of a reader's.
        for (const int code : {5, 8, 10, 11, 13}) {
            for (int step = FaultVfs::Open; step < FaultVfs::Any; ++step) {
                const char* const name = FaultVfs::Names[step];
                if (step != FaultVfs::Write || code >= 10) {
                    QTest::addRow("%s %d", name, code) << step << code << false;
                }
                if (code == (step == FaultVfs::Write  ? 13
                             : step == FaultVfs::Open ? 8
                                                      : 10) &&
                    step != FaultVfs::Lock) {
                    QTest::addRow("%s %d for good", name, code) << step << code << true;
                }
            }
        }
    }
    void faults()
    {
        QFETCH(int, step);
        QFETCH(int, code);
        QFETCH(bool, forGood);
        for (int n = 1, failures = 1; failures > 0; ++n) {
            const TestProject project;
            Flight flight(project);
            startServer();
            QSet<QString> stored;
            int recorded = 0;
            disk.failAt(static_cast<FaultVfs::Step>(step), n, code, forGood);
            for (const Flight::FlightStep& part : Flight::Steps) {
                const int before = disk.failures();
                flight.run(part);
                const FaultVfs::Pause pause;
                const bool failed = disk.failures() > before;
                const QSet<QString> now = TestProject::rows(flight.file);
                QVERIFY2(now.contains(stored), qPrintable(QStringLiteral("lost, %1").arg(n)));
                recorded += part.rows;
                // A batch that the disk did not take may come with the next one.
                QVERIFY2(failed || now.size() >= stored.size() + part.rows,
                         qPrintable(QStringLiteral("not written, %1").arg(n)));
                QVERIFY2(now.size() <= recorded, qPrintable(QStringLiteral("written twice, %1").arg(n)));
                stored = now;
                if (failed && part.rows == 0) {
                    flight.run(Flight::Steps[0]);
                }
            }
            failures = disk.failures();
            if (!stored.contains(Mission)) { // nothing of it is ever sent
                disk.clear();
                flight.run(Flight::Steps[1]);
            }
            upload(flight.file);
            QVERIFY2(!QTest::currentTestFailed(), qPrintable(QString::number(n)));
            QVERIFY(m_server->stored.contains(stored));
        }
    }

    /// No file descriptor is free for a while: what is recorded then is kept, and no lock.
    void noDescriptors()
    {
        const FlightProject project;
        disk.mount(project.path("m1"_l1));
        Recorder recorder(project.db);
        Q_EMIT recorder.slotStartUploadTimer(false);
        disk.failAt(FaultVfs::Open, 1, 14, true);
        recorder.write(1);
        recorder.op.slotParseJson({QJsonObject{{"flight_mission_id"_l1, "m1"_l1}}},
                                  ":/flight_monitor_detail_log.txt"_l1, "m1"_l1, 1, project.db);
        takeLock(recorder);
        recorder.write(1);
        disk.clear();
        recorder.write(50);
        QCOMPARE(project.text("SELECT ifnull(message, '-') FROM flight_monitor_detail_log LIMIT 3"_l1),
                 "0 - 1"_l1);
        QCOMPARE(project.waiting("flight_monitor_detail_log"_l1), 53);
    }

    /// Whichever write finds no room, once: what SQLite undoes comes again, in its order.
    void fullDiskKeepsOrder()
    {
        for (int n = 1, failures = 1; failures > 0; ++n) {
            const FlightProject project;
            disk.mount(project.path("m1"_l1));
            Recorder recorder(project.db);
            recorder.write(50);
            disk.failAt(FaultVfs::Write, n, 13, false);
            recorder.write(50);
            failures = disk.failures();
            disk.clear();
            recorder.write(50);
            QCOMPARE(project.text("SELECT group_concat(CAST(message AS INTEGER) = rowid - 1, '') FROM "
                                  "flight_monitor_detail_log"_l1),
                     QStringLiteral("1").repeated(150));
        }
    }

    /// The power goes while tables are made: a file has none of them then or all.
    void tablesAtOnce_data()
    {
        QTest::addColumn<bool>("byOperator");
        QTest::newRow("CreateMissionFile") << false;
        QTest::newRow("an operator's start") << true;
    }
    void tablesAtOnce()
    {
        QFETCH(bool, byOperator);
        for (int n = 1, failures = 1; failures > 0; ++n) {
            const TestProject project;
            const QString file = project.file("m1/flight.kv"_l1);
            disk.mount(project.path("m1"_l1));
            disk.failAt(FaultVfs::Any, n, 10, true);
            if (byOperator) {
                const CKvFlightDataDbOperator op(nullptr, EUploadEnv::None);
            } else {
                CreateMissionFile(file);
            }
            failures = disk.failures();
            disk.clear();
            disk.losePower(nullptr);
            const QString tables =
                TestProject::text(file, "SELECT count(*) FROM sqlite_master WHERE type = 'table'"_l1);
            QVERIFY2(tables == "5"_l1 || (failures > 0 && tables == "0"_l1), qPrintable(tables));
        }
    }

    /// The power goes at every single step that changes the disk: what was written before is there, and of
    /// what was being written all or nothing.
    void powerCut()
    {
        std::mt19937 coin(1);
        for (int n = 1, failures = 1; failures > 0 || n % 2 == 0; ++n) {
            const bool synced = n % 2 == 1; // only that stays; or of the rest anything may
            const TestProject project;
            Flight flight(project);
            startServer();
            QSet<QString> stored;
            int written = 0;
            disk.failAt(FaultVfs::Any, (n + 1) / 2, 10, true);
            for (const Flight::FlightStep& part : Flight::Steps) {
                flight.run(part);
                if (disk.failures() == 0) {
                    const FaultVfs::Pause pause;
                    stored = TestProject::rows(flight.file);
                    ++written;
                }
            }
            flight.end();
            {
                ArmedHost uploader(EUploadEnv::OncePerRequest, flight.file);
                pass(uploader, 30);
            }
            failures = disk.failures();
            disk.clear();
            disk.losePower(synced ? nullptr : &coin);

            const QSet<QString> left = TestProject::rows(flight.file);
            QVERIFY2(left.contains(stored), qPrintable(QStringLiteral("lost, %1").arg(n)));
            const int more = left.size() - stored.size();
            QVERIFY2(more == 0 || more == Flight::Steps.value(written).rows, qPrintable(QString::number(n)));
            if (written == Flight::Steps.size()) {
                QCOMPARE(TestProject::value(flight.file, "SELECT last_waypoint_index FROM flight_mission"_l1),
                         QVariant("3"_l1));
            }
            QVERIFY(m_server->stored.contains(TestProject::rows(flight.file, "is_uploaded = 1"_l1)));
            if (left.contains(Mission)) {
                upload(flight.file);
            }
            QVERIFY2(!QTest::currentTestFailed(), qPrintable(QString::number(n)));
        }
    }
};

QTEST_GUILESS_MAIN(tst_storage)
#include "tst_storage.moc"
