// SPDX-License-Identifier: MIT
#include "support/Foreign.h"
#include "support/ScriptedServer.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <random>

#include <sys/prctl.h>

namespace
{
constexpr int Wait = 100; // milliseconds that a connection waits for a lock here
constexpr int LocksInRound = 20;

/// Gets in the way at random, and says how often.
int lockAtRandom(const QString& file, int seed)
{
    std::mt19937 random(static_cast<unsigned>(seed));
    for (int i = 0; i < LocksInRound; ++i) {
        static const char* const kinds[] = {"exclusive", "reserved", "reader", "idle WAL"};
        const Foreign foreign(kinds[random() % 4], file);
        QThread::msleep(random() % (random() % 4 == 0 ? 2 * Wait : 20));
    }
    return LocksInRound;
}

/// Records batch after batch while somebody gets in the way; the messages, or -2 if one call waited too long.
int record(const QString& file, int)
{
    control()->SetProjectDirPath(QFileInfo(file).dir().filePath(".."));
    CKvDataBase::SetLockWait(Wait);
    Recorder recorder(file);
    int longest = 0;
    for (int batch = 0; batch < LocksInRound * 6; ++batch) {
        longest = qMax(longest, waited([&recorder] { recorder.write(10); }));
        QThread::msleep(5);
    }
    takeLock(recorder);
    const auto stored = [&recorder, &file] {
        recorder.op.SetFlightMissionFilePath(file); // a pause would do as well
        return TestProject::text(file, "SELECT count(*) FROM flight_monitor_detail_log").toInt() ==
               recorder.written;
    };
    return QTest::qWaitFor(stored, 20000) && longest < Wait * 3 / 2 ? recorder.written : -2;
}

/// What a function returned on a thread of its own, or a process printed; -1 before its end.
std::function<int()> runThread(const std::function<int()>& function)
{
    const auto result = std::make_shared<std::atomic<int>>(-1);
    const std::shared_ptr<QThread> thread(QThread::create([=] { *result = function(); }), [](QThread* ended) {
        ended->wait();
        delete ended;
    });
    thread->start();
    return [result, thread] { return result->load(); };
}

std::function<int()> runProcess(const QStringList& arguments)
{
    const auto process = std::make_shared<QProcess>();
    const auto printed = std::make_shared<QByteArray>();
    process->start(QCoreApplication::applicationFilePath(), arguments);
    return [process, printed] {
        if (process->state() != QProcess::NotRunning) {
            return -1;
        }
        *printed += process->readAllStandardOutput();
        return printed->toInt();
    };
}
} // namespace

/// Foreign users at random beside a recorder and an uploader. KV_LOCKS sets how many.
class tst_locks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { CKvDataBase::SetLockWait(Wait); }

    /// In threads and in processes.
    void soak()
    {
        const int locks = qMax(40, qEnvironmentVariableIntValue("KV_LOCKS"));
        for (int seed = 0; seed * LocksInRound < locks; ++seed) {
            const bool processes = seed % 2 == 1;
            const FlightProject project(0, 0, 0);
            const ScriptedServer server;
            const auto start = [&](const char* what, int (*function)(const QString&, int)) {
                return processes
                           ? runProcess({what, project.db, QString::number(seed)})
                           : runThread([function, seed, file = project.db] { return function(file, seed); });
            };
            const auto foreign = start("--lock", lockAtRandom);
            const auto recorder = start("--record", record);
            ArmedHost uploader(EUploadEnv::OncePerRequest, project.db);
            int longest = 0;
            const auto pass = [&] {
                longest = qMax(longest, waited([&] {
                                   uploader.rearm(project.db);
                                   Q_EMIT uploader.slotStartUpload();
                               }));
            };
            connect(&uploader.op, &CKvFlightDataDbOperator::UploadFinished, &uploader, pass,
                    Qt::QueuedConnection);
            pass();
            QTimer supervisor; // a pass may end without a word where it meets a lock
            connect(&supervisor, &QTimer::timeout, &uploader, pass);
            supervisor.start(1000);
            QTRY_VERIFY_WITH_TIMEOUT(foreign() != -1 && recorder() != -1, 120000);
            QVERIFY2(recorder() > 0, QByteArray::number(seed));
            QStringList expected;
            for (int i = 0; i < recorder(); ++i) {
                expected.append(QString::number(i));
            }
            QString stored;
            const auto complete = [&] {
                stored = project.text("SELECT message FROM flight_monitor_detail_log ORDER BY rowid");
                return stored == expected.join(' ') && TestProject::waiting(project.db) == 0;
            };
            QVERIFY2(QTest::qWaitFor(complete, 20000),
                     qPrintable(QString("seed %1: %2").arg(seed).arg(stored)));
            QCOMPARE(server.stored.size(), recorder() + 1);
            QVERIFY2(longest < Wait * 3 / 2, QByteArray::number(longest));
        }
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    countSleeps();
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == "--lock" || arguments.value(1) == "--record") {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const auto function = arguments[1] == "--lock" ? lockAtRandom : record;
        printf("%d", function(arguments[2], arguments[3].toInt()));
        return 0;
    }
    tst_locks test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_locks.moc"
