// SPDX-License-Identifier: MIT
#include "support/ScriptedServer.h"
#include "support/TestProject.h"

#include <sqlite3.h>

#include <atomic>
#include <memory>

namespace
{
constexpr qint64 TickMs = 20;
constexpr int MessagesInTick = 10;

std::atomic<int> g_busy;

/// Counts the statements that ended with a lock; the operator asks for the write lock itself, many times.
void noteError(void*, int code, const char* text)
{
    const bool asks = QByteArray(text).contains("BEGIN IMMEDIATE");
    g_busy += (code & 0xff) == SQLITE_BUSY && !asks ? 1 : 0;
}

const int g_noting = sqlite3_config(SQLITE_CONFIG_LOG, noteError, nullptr);

qint64 seconds()
{
    return qMax(3, qEnvironmentVariableIntValue("KV_SECONDS"));
}

/// Records 500 messages a second, and a position now and then; returns the rows.
int record(const QString& file)
{
    const QDir folder = QFileInfo(file).dir();
    control()->SetProjectDirPath(folder.filePath(".."));
    Host recorder(EUploadEnv::None, file);
    recorder.op.SetFilghtMissionID("m1");
    const QString columns = folder.filePath("pos_data.txt");
    QElapsedTimer time;
    time.start();
    int rows = 0;
    for (int tick = 0; time.elapsed() < seconds() * 1000; ++tick) {
        for (int i = 0; i < MessagesInTick; ++i, ++rows) {
            Q_EMIT recorder.slotWriteFlightMonitor("message");
        }
        if (tick % 10 == 0) {
            const QJsonObject position{{"id", QString::number(++rows)}, {"flight_mission_id", "m1"}};
            Q_EMIT recorder.slotParseJson({position}, columns, "m1");
        }
        QThread::msleep(static_cast<unsigned long>(qMax<qint64>(0, (tick + 1) * TickMs - time.elapsed())));
    }
    return rows;
}
} // namespace

/// A recorder and an uploader on one file. KV_SECONDS sets for how long.
class tst_together : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recordAndUpload_data()
    {
        QTest::addColumn<bool>("processes");
        QTest::newRow("two threads") << false;
        QTest::newRow("two processes") << true;
    }
    void recordAndUpload()
    {
        QFETCH(bool, processes);
        QCOMPARE(g_noting, SQLITE_OK);
        const FlightProject project(0, 0, 0);
        project.file("m1/pos_data.txt", "id TEXT flight_mission_id TEXT");
        QSet<QString> accepted;
        int again = 0;
        ScriptedServer server;
        server.script = [&](const SRequest& request) {
            for (const QString& id : request.ids()) {
                again += accepted.contains(id) ? 1 : 0;
                accepted.insert(id);
            }
            return ScriptedServer::accepted();
        };
        SetServerIP(server.url());
        control()->SetNetWorkConnected(true);

        std::atomic<int> rows = 0;
        QProcess process;
        const std::unique_ptr<QThread> thread(QThread::create([&] { rows = record(project.db); }));
        if (processes) {
            process.start(QCoreApplication::applicationFilePath(), {"--record", project.db});
        } else {
            thread->start();
        }
        ArmedHost uploader(EUploadEnv::OncePerRequest, project.db);
        const auto pass = [&] {
            uploader.rearm(project.db);
            Q_EMIT uploader.slotStartUpload();
        };
        connect(&uploader.op, &CKvFlightDataDbOperator::UploadFinished, &uploader, pass,
                Qt::QueuedConnection); // one pass after the other
        pass();
        const auto ended = [&] {
            return processes ? process.state() == QProcess::NotRunning : thread->isFinished();
        };
        QVERIFY(QTest::qWaitFor(ended, static_cast<int>(1000 * seconds()) + 20000));
        if (processes) {
            const QList<QByteArray> counts = process.readAllStandardOutput().split(' ');
            rows = counts[0].toInt();
            g_busy += counts.value(1, "1").toInt();
        }
        QVERIFY(rows > 100 * seconds());
        QTRY_COMPARE_WITH_TIMEOUT(TestProject::waiting(project.db), 0, 20000);
        QCOMPARE(accepted.size(), rows + 1); // and the mission
        QCOMPARE(again, 0);
        QCOMPARE(g_busy.load(), 0);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && QByteArray(argv[1]) == "--record") {
        const int rows = record(argv[2]);
        printf("%d %d", rows, g_busy.load());
        return 0;
    }
    tst_together test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_together.moc"
