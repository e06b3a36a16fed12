// SPDX-License-Identifier: MIT
#include "support/Foreign.h"
#include "support/Mistakes.h"
#include "support/ScriptedServer.h"

#include <memory>
#include <vector>

namespace
{
const char* const Child = "KV_MISTAKE";

/// What is told of a mistake.
QStringList told(const QString& mistake)
{
    const FlightProject project;
    return loggedBy(Level::Warn, [&] { Mistakes[mistake](project); });
}

/// Those that end the process, or need a folder of programs of their own.
bool needsProcess(const QString& mistake)
{
    static const QRegularExpression names("program|folder for|thread|log file|connection"_l1);
    return mistake.contains(names);
}

/// What a copy of this program writes to its standard error while it makes a mistake.
QStringList linesOfChild(const QString& mistake)
{
    const QTemporaryDir folder;
    QDir(folder.path()).mkdir("bin"_l1);
    const QString copy = folder.filePath("bin/child"_l1);
    QFile::copy(QCoreApplication::applicationFilePath(), copy);
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QLatin1String(Child), mistake);
    child.setProcessEnvironment(environment);
    child.start(copy, QStringList());
    child.waitForFinished();
    return QString::fromUtf8(child.readAllStandardError()).split(u'\n');
}

QRegularExpression pattern(const QString& line)
{
    static const QRegularExpression names("FILE|URL|SERVER|PATH|HOST"_l1);
    QString text = QRegularExpression::escape(line);
    text.replace(QRegularExpression::escape(QStringLiteral("…")), ".*"_l1).replace(names, "[^ ]+"_l1);
    return QRegularExpression(text + u'$');
}
} // namespace

class tst_silence : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { CKvDataBase::SetLockWait(10); }

    void everyMistakeIsTold_data()
    {
        QTest::addColumn<QString>("line");
        const QString page =
            QString::fromUtf8(TestProject::contents(QFINDTESTDATA("../docs/troubleshooting.md")));
        static const QRegularExpression mistake(R"(\n\| (.+?) \| (?:`([^\n]+?)`|nothing, as [^|]+) \|)"_l1);
        auto row = mistake.globalMatch(page);
        int rows = 0;
        for (; row.hasNext(); ++rows) {
            const QRegularExpressionMatch match = row.next();
            QTest::newRow(match.captured(1).toUtf8().constData()) << match.captured(2);
        }
        QCOMPARE(rows, Mistakes.size());
    }
    void everyMistakeIsTold()
    {
        QFETCH(QString, line);
        const QString mistake = QLatin1String(QTest::currentDataTag());
        QVERIFY(Mistakes.contains(mistake));
#ifdef QT_NO_DEBUG
        const auto others = "debug builds"_l1;
#else
        const auto others = "release builds"_l1;
#endif
        if (mistake.contains(others)) {
            return;
        }
        const QStringList lines = needsProcess(mistake) ? linesOfChild(mistake) : told(mistake);
        const QString all = lines.join(u'\n');
        QVERIFY2(line.isEmpty() ? all.isEmpty() : !lines.filter(pattern(line)).isEmpty(),
                 all.toUtf8().constData());
        QVERIFY2(!all.contains(QString::fromUtf8(Token.left(5))), all.toUtf8().constData());
    }

    /// Four endpoints refuse, now with these words and now with others, and some requests go well.
    void anHourOfOutageIsFewLines()
    {
        ScriptedServer server;
        server.script = [&server](const PostedRequest& request) {
            const int n = server.requests.size();
            const QString refusal = R"(500 {"status":%1,"message":"%2 %3"})"_l1;
            return n % 5 == 0 ? ScriptedServer::accepted()
                              : ScriptedServer::reply(
                                    refusal.arg(400 + n % 7)
                                        .arg(QString::fromUtf8(request.path), QString::fromUtf8(Token)));
        };
        const QStringList lines = loggedBy(Level::Warn, [&server] {
            for (int minute = 0; minute < 60; ++minute) {
                for (const char* kind : {"upload", "posupload", "uasstatusupload", "detailupload"}) {
                    post(server.url(), QByteArray("/flight/") + kind);
                }
                secondsAhead += 60;
            }
        });
        QVERIFY2(!lines.isEmpty() && lines.size() < 10, lines.join(u'\n').toUtf8().constData());
        QVERIFY(!lines.join(u'\n').contains(QString::fromUtf8(Token.left(5))));
    }

    /// The end of what was wrong is told once, and what comes then is news; so is what was away for long.
    void whatIsOverIsTold()
    {
        ScriptedServer server;
        const auto toldAfter = [&server](int minutes, const QString& reply) {
            secondsAhead += 60LL * minutes;
            server.script = [reply](const PostedRequest&) { return ScriptedServer::reply(reply); };
            return loggedBy(Level::Warn, [&server] { post(server.url()); })
                .join(u'\n')
                .remove(QString::fromUtf8(server.url()));
        };
        const QString disk = R"(200 {"status":500,"message":"disk"})"_l1;
        const QString told = R"(3 /flight/upload: the server refuses the rows: status 500, "disk")"_l1;
        const QString well = R"(200 {"status":0})"_l1;
        QCOMPARE(toldAfter(0, disk), told);
        QCOMPARE(toldAfter(12, disk), QString());
        QCOMPARE(toldAfter(1, well), "3 : answers well again, after 13 min"_l1);
        QCOMPARE(toldAfter(0, well), QString());
        QCOMPARE(toldAfter(0, disk), told);
        QCOMPARE(toldAfter(61, disk), told); // not seen for so long
    }

    void aLateAnswerIsToldOfItsOwnUrl()
    {
        const QString lines = loggedBy(Level::Warn, [] { postTwice(true, {"/one"}); }).join(u'\n');
        QVERIFY2(lines.contains("/one: the answer came"_l1) && !lines.contains("/two: "_l1),
                 lines.toUtf8().constData());
    }

    /// Operators that are armed before the first flight, record only, and record and then upload.
    void nothingLostIsSilent()
    {
        const FlightProject project(1, 0, 0);
        ScriptedServer server;
        const QStringList lines = loggedBy(Level::Warn, [&] {
            look(EUploadEnv::CurrentMissionLog);
            look(EUploadEnv::CurrentMissionLog, project.db);
            ArmedHost uploader(EUploadEnv::OncePerRequest, project.db, Token);
            Q_EMIT uploader.slotStartUpload();
            QTRY_COMPARE(uploader.finished.size(), 1);
            Q_EMIT Host(EUploadEnv::WholeProject, project.missionFile("m3/flight.kv"_l1))
                .slotParseSingleJson({{"id"_l1, "m3"_l1}}, project.file("x.txt"_l1, "id TEXT"),
                                     "flight_mission"_l1);
            ArmedHost host(EUploadEnv::WholeProject, project.missionFile("m2/flight.kv"_l1), Token);
            host.op.SetFilghtMissionID("m2"_l1);
            Q_EMIT host.slotWriteFlightMonitor("x");
            host.op.SetFilghtMissionID(QString());
            Q_EMIT host.slotWriteFlightMonitor("x");
            Q_EMIT host.slotStartUploadTimer(false);
            Q_EMIT host.slotStartUpload();
        });
        QCOMPARE(lines, QStringList());
    }

    void twoRequestsAtATimeAreNoNews()
    {
        QCOMPARE(loggedBy(Level::Warn, [] { postTwice(false, {"/one"}); }), QStringList());
        QCOMPARE(loggedBy(Level::Warn, [] { postTwice(false, {"/two", "/one"}); }), QStringList());
    }

    /// Where the log file takes nothing, each warning is shown, and the reason once.
    void aFullDiskLosesNoWarning()
    {
        const QStringList lines = linesOfChild("a log file on a full disk"_l1);
        QCOMPARE(lines.filter("takes no lines"_l1).size(), 1);
        QCOMPARE(lines.filter(QRegularExpression("(first|second) warning$"_l1)).size(), 2);
    }

    /// As long as nothing of its is under way.
    void anOperatorMayMove()
    {
        const FlightProject project;
        QThread thread;
        thread.start();
        auto* const host = new Host(EUploadEnv::None);
        host->op.moveToThread(&thread);
        QMetaObject::invokeMethod(&host->op, [&] {
            host->op.SetFlightMissionFilePath(project.db);
            host->op.SetFilghtMissionID("m1"_l1);
            Q_EMIT host->slotWriteFlightMonitor("x");
            delete host;
            thread.quit();
        });
        QVERIFY(thread.wait(10000));
        QCOMPARE(project.waiting("flight_monitor_detail_log"_l1), 1);
    }

    /// What goes for each file of a large project is few lines, and so is its end.
    void manyFilesAreFewLines_data()
    {
        QTest::addColumn<QString>("sql"); // run on each file
        QTest::addColumn<QString>("mended");
        QTest::addColumn<int>("files");
        QTest::addColumn<QString>("news");
        QTest::newRow("locked") << ""
                                << "" << 12 << ": can be read again, after 60 min";
        QTest::newRow("orphans") << "INSERT INTO flight_monitor_detail_log(flight_mission_id) VALUES('gone')"
                                 << "DELETE FROM flight_monitor_detail_log" << 1050
                                 << ": keeps no messages without a row";
        QTest::newRow("no column") << "ALTER TABLE flight_mission RENAME COLUMN is_uploaded TO x"
                                   << "ALTER TABLE flight_mission RENAME COLUMN x TO is_uploaded" << 100
                                   << ": SQLite takes ";
    }
    void manyFilesAreFewLines()
    {
        QFETCH(QString, sql);
        QFETCH(QString, mended);
        QFETCH(int, files);
        QFETCH(QString, news);
        const FlightProject project;
        project.run(sql);
        const ScriptedServer server;
        std::vector<std::unique_ptr<Foreign>> foreign;
        for (int i = 1; i < files; ++i) {
            const QString copy = project.path(QStringLiteral("m1/%1.kv").arg(i));
            QVERIFY(QFile::copy(project.db, copy));
            if (sql.isEmpty()) {
                foreign.push_back(std::make_unique<Foreign>("exclusive"_l1, copy));
            }
        }
        const QStringList lines = loggedBy(Level::Warn, [] {
            for (int pass = 0; pass < 12; ++pass) { // an hour
                look(EUploadEnv::WholeProject);
                secondsAhead += 300;
            }
        });
        QVERIFY2(!lines.isEmpty() && lines.size() < 10, qPrintable(lines.join(u'\n')));
        QCOMPARE(lines.filter("(as 9 other files"_l1).size(), 1);
        foreign.clear();
        for (const QString& file : project.missionFiles()) {
            TestProject::run(file, {mended});
        }
        const QStringList ends = loggedBy(Level::Warn, [] { look(EUploadEnv::WholeProject); });
        QVERIFY2(ends.filter(news).size() == ends.size() && ends.size() < 10, qPrintable(ends.join(u'\n')));
        QVERIFY2(ends.constLast().contains("(the last of "_l1), qPrintable(ends.join(u'\n')));
    }

    /// Records that wait for files are written in the end, or lost; the last of the files says so.
    void theEndOfManyIsTold_data()
    {
        QTest::addColumn<bool>("mended");
        QTest::addColumn<QString>("news");
        QTest::addColumn<QString>("last");
        QTest::newRow("written") << true << "takes records again"
                                 << "(the last of 12 files)";
        QTest::newRow("lost") << false << "lost"
                              << "11.kv: 12 records of 12 files are lost in all";
    }
    void theEndOfManyIsTold()
    {
        QFETCH(bool, mended);
        QFETCH(QString, news);
        QFETCH(QString, last);
        const TestProject project;
        const QString columns = project.file("flight_mission.txt"_l1, "id TEXT");
        QStringList files;
        const QStringList lines = loggedBy(Level::Warn, [&] {
            Host host(EUploadEnv::None);
            for (int i = 0; i < 12; ++i) {
                files.append(project.file(QStringLiteral("m1/%1.kv").arg(i)));
                host.op.slotParseJson({QJsonObject{{"id"_l1, "m1"_l1}}}, columns, "m1"_l1, 1,
                                      files.constLast());
            }
            for (const QString& file : mended ? files : QStringList()) {
                CreateMissionFile(file);
            }
            Q_EMIT host.slotStartUploadTimer(false);
        });
        QCOMPARE(lines.filter("has no tables"_l1).size(), 5);
        QCOMPARE(lines.filter(news).size(), 6);
        QVERIFY2(lines.constLast().endsWith(last), qPrintable(lines.join(u'\n')));
    }

    void oneMistakeIsOneLine()
    {
        for (const char* const mistake :
             {"no description file", "an empty description file", "a column without a type"}) {
            secondsAhead += 1201; // other tests make them too
            const QStringList lines = told(QLatin1String(mistake));
            QVERIFY2(lines.size() == 1, lines.join(u'\n').toUtf8().constData());
        }
    }

    /// Nor does Qt write a line for each record.
    void aFileThatCannotBeOpenedIsFewLines()
    {
        const TestProject project;
        const QString description = project.file("flight_mission.txt"_l1, "id TEXT");
        QLoggingCategory::defaultCategory()->setEnabled(QtWarningMsg, true);
        Logger& logger = Logger::instance(); // whose own handler comes back in the end
        const QtMessageHandler before = qInstallMessageHandler(nullptr);
        logger.captureQtMessages();
        const QStringList lines = loggedBy(Level::Warn, [&description] {
            Host host(EUploadEnv::None, "/nowhere/few.kv"_l1);
            host.op.SetFilghtMissionID("m1"_l1);
            for (int i = 0; i < 60; ++i) {
                Q_EMIT host.slotWriteFlightMonitor("x");
                Q_EMIT host.slotParseSingleJson({{"id"_l1, "m1"_l1}}, description, "flight_mission"_l1);
                Q_EMIT host.slotUpdateBreakpoint(1, 2, 3, "m1"_l1, 4);
                host.op.slotUpdateGeneralOneValue(1, "is_uploaded"_l1, 1, "m1"_l1);
            }
        });
        qInstallMessageHandler(before);
        QCOMPARE(lines.filter("120 records were not stored and are lost"_l1).size(), 1);
        QCOMPARE(lines.filter("is lost"_l1).size(), 2); // the breakpoint, the value
        QVERIFY2(lines.size() == 4, lines.join(u'\n').toUtf8().constData());
    }
};

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    if (qEnvironmentVariableIsSet(Child)) {
        Mistakes[qEnvironmentVariable(Child)](FlightProject());
        return 0;
    }
    tst_silence test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_silence.moc"
