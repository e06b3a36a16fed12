// SPDX-License-Identifier: MIT
#include "KvProjectDbOperator/CKvDownLoadObject.h"
#include "KvProjectDbOperator/CKvDownLoadObjectEX.h"
#include "support/FaultVfs.h"
#include "support/Foreign.h"
#include "support/ScriptedServer.h"
#include "support/Upload.h"

#include <QtNetwork/QSslCertificate>
#include <QtNetwork/QSslKey>
#include <QtNetwork/QSslSocket>

#include <memory>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
const char* const Child = "KV_MISTAKE";
const QByteArray Token = QByteArray("t0k3n").repeated(1000);

thread_local qint64 secondsAhead =
    0; ///< of the clock that timers go by, but not the one that watches the test

/// Posts to a server until the outcome is there.
void post(const QByteArray& server, const QByteArray& path = "/flight/upload")
{
    Upload upload(server + path + "?key=" + Token);
    upload.setRawHeader("token", Token);
    upload.PostNetWorkReplyMessage();
    QTRY_VERIFY_WITH_TIMEOUT(!upload.outcomes.isEmpty(), 30000);
}

void answered(const char* reply)
{
    post(ScriptedServer(ScriptedServer::reply(reply)).url());
}

/// A server with a certificate that it has signed itself.
class TlsServer : public QTcpServer
{
protected:
    void incomingConnection(qintptr handle) override
    {
        const QByteArray pem = TestProject::contents(":/untrusted.pem");
        auto* const socket = new QSslSocket(this);
        socket->setSocketDescriptor(handle);
        socket->setPrivateKey(QSslKey(pem, QSsl::Ec));
        socket->setLocalCertificate(QSslCertificate(pem));
        socket->startServerEncryption();
    }
};

/// Posts to /one, which may be overdue then, and to /two before some of them are answered.
void postTwice(bool overdue, const QByteArrayList& answered)
{
    ScriptedServer server(ScriptedServer::reply("silence"));
    Upload upload(server.url());
    const auto send = [&](const QByteArray& path) {
        upload.SetUrl(server.url() + path);
        upload.PostNetWorkReplyMessage();
        QTRY_COMPARE(server.paths().value(server.requests.size() - 1), QString(path));
    };
    send("/one");
    secondsAhead += overdue ? 21 : 0;
    QTRY_COMPARE(upload.outcomes.size(), overdue ? 1 : 0);
    upload.outcomes.clear();
    send("/two");
    for (const QByteArray& path : answered) {
        server.sendMore(path, ScriptedServer::accepted().wire);
        QTRY_VERIFY(path == "/one" || upload.outcomes.size() == 1);
    }
    QTRY_COMPARE(upload.outcomes.count("error"), 1);
}

/// Looks once for what to upload.
void look(EUploadEnv env, const QString& file = {})
{
    ArmedHost host(env, file, Token);
    Q_EMIT host.slotStartUpload();
}

template<class Download>
void download(const QByteArray& url, int requests = 1)
{
    Download download;
    QSignalSpy failed(&download, SIGNAL(NetWorkError()));
    download.SetUrl(url);
    for (int i = 0; i < requests; ++i) {
        download.slotRequestData();
    }
    QTRY_VERIFY(!failed.isEmpty());
}

using P = const FlightProject&;

/// Writes one record into a mission file.
void write(P p, const QByteArray& columns, const QString& file, const QString& table = "flight_mission",
           const QJsonObject& record = {{"colour", "red"}})
{
    Host(EUploadEnv::None).op.slotParseJson({record}, p.file(table + ".txt", columns), "m1", 1, file);
}

/// The same by the call that knows no file.
void writeSingle(P p, Host&& host)
{
    Q_EMIT host.slotParseSingleJson({{"id", "m1"}}, p.file("x.txt", "id TEXT"), "flight_mission");
}

void update(P p, const QString& column, const QString& mission)
{
    Host(EUploadEnv::None, p.db).op.slotUpdateGeneralOneValue(1, column, 1, mission);
}

/// A program that does as it is told; none at all where it is told nothing.
void external(const QByteArray& script, const char* folder, int requests = 1)
{
    const TestProject home;
    SetHomeDir(home.path(""));
    home.file(folder + QString("/x"));
    QFile program(QCoreApplication::applicationDirPath() + "/../Talverinde/grabdownloader.exe");
    QDir().mkpath(QFileInfo(program).path());
    if (!script.isEmpty() && program.open(QIODevice::WriteOnly)) {
        program.write("#!/bin/sh\n" + script + '\n');
        program.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
        program.close();
    }
    download<CKvDownLoadObjectEX>("http://us:" + Token + "@127.0.0.1/a.zip?key=" + Token, requests);
}

/// Every mistake of docs/troubleshooting.md under its name there, made beside a project with one mission
/// file.
const QMap<QString, std::function<void(P)>> Mistakes = {
    {"no server address",
     [](P) {
         control()->ResetNetWorkConnected();
         look(EUploadEnv::WholeProject);
         control()->SetNetWorkConnected(true);
     }},
    {"an address without a scheme", [](P) { SetServerIP("fly.example"); }},
    {"no project folder at construction",
     [](P) {
         control()->SetProjectDirPath("/nowhere");
         const Host host(EUploadEnv::None);
     }},
    {"no current mission", [](P p) { Q_EMIT Host(EUploadEnv::None, p.db).slotWriteFlightMonitor("x"); }},
    {"no mission file for a record", [](P p) { writeSingle(p, Host(EUploadEnv::None)); }},
    {"`CurrentMissionLog` without a mission",
     [](P p) {
         p.run("INSERT INTO flight_monitor_detail_log(flight_mission_id) VALUES('m1')");
         look(EUploadEnv::CurrentMissionLog, p.db);
     }},
    {"an uploader that is not armed",
     [](P) {
         signIn(Token);
         const Host host(EUploadEnv::WholeProject);
     }},
    {"a tick before the uploader is armed",
     [](P) { Q_EMIT Host(EUploadEnv::WholeProject).slotStartUpload(); }},
    {"mission files in the project folder itself",
     [](P p) {
         QFile::rename(p.db, p.path("flight.kv"));
         look(EUploadEnv::WholeProject);
     }},
    {"no mission file for an upload", [](P) { look(EUploadEnv::OncePerRequest); }},
    {"an upload with `EUploadEnv::None`", [](P) { look(EUploadEnv::None); }},
    {"the mission's folder is missing", [](P) { CreateMissionFile("/nowhere/m1.kv"); }},
    {"a mission file without tables", [](P p) { write(p, "id TEXT", p.file("empty.kv")); }},
    {"a mission file that is moved or deleted",
     [](P p) {
         Host host(EUploadEnv::None, p.db);
         QFile::remove(p.db);
         writeSingle(p, std::move(host));
     }},
    {"records that no file took until the end", [](P p) { write(p, "colour TEXT", p.file("empty.kv")); }},
    {"too much that waits",
     [](P p) {
         Host host(EUploadEnv::None);
         host.op.SetFlightMissionFilePath(p.file("m1/empty.kv"));
         host.op.SetFilghtMissionID("m1");
         for (int i = 0; i < 100; ++i) {
             Q_EMIT host.slotWriteFlightMonitor(QByteArray(1 << 20, 'm'));
         }
     }},
    {"a mission file that is replaced",
     [](P p) {
         Host host(EUploadEnv::None, p.db);
         const Foreign foreign("replaced", p.db);
         writeSingle(p, std::move(host));
     }},
    {"a mission file that lacks a table",
     [](P p) {
         Host host(EUploadEnv::None, p.db);
         p.run("DROP TABLE flight_mission");
         writeSingle(p, std::move(host));
     }},
    {"an upload of a folder", [](P p) { look(EUploadEnv::OncePerRequest, p.path("")); }},
    {"no database", [](P p) { CreateMissionFile(p.file("m1/text.kv", QByteArray(5000, 'x'))); }},
    {"no description file",
     [](P p) { Host(EUploadEnv::None).op.slotParseJson({QJsonObject()}, ":/nowhere.txt", "m1", 1, p.db); }},
    {"an empty description file", [](P p) { write(p, "", p.db); }},
    {"a column without a type", [](P p) { write(p, "id TEXT colour", p.db); }},
    {"a misspelt key",
     [](P p) {
         write(p, "colour TEXT", p.db, "flight_mission", QJsonObject{{"color", "red"}});
     }},
    {"a number for the five-argument `slotParseJson`",
     [](P p) {
         write(p, "alt TEXT", p.db, "pos_data", QJsonObject{{"alt", 7}});
     }},
    {"a column that the table lacks", [](P p) { write(p, "id TEXT colour TEXT", p.db); }},
    {"a table that the file lacks", [](P p) { write(p, "id TEXT", p.db, "flights"); }},
    {"a value for a column that is not there", [](P p) { update(p, "colour", "m1"); }},
    {"a breakpoint of an unknown mission",
     [](P p) { Q_EMIT Host(EUploadEnv::None, p.db).slotUpdateBreakpoint(1, 2, 3, "nobody", 4); }},
    {"an update of a file that cannot be opened",
     [](P) {
         Host(EUploadEnv::None, "/nowhere/m1.kv").op.slotUpdateGeneralOneValue(1, "is_uploaded", 1, "m1");
     }},
    {"a breakpoint in a `*.db` file",
     [](P p) { Q_EMIT Host(EUploadEnv::None, p.path("v.db")).slotUpdateBreakpoint(1, 2, 3, "m1", 4); }},
    {"messages of a mission without a row",
     [](P p) {
         const ScriptedServer server;
         p.run("INSERT INTO flight_monitor_detail_log(flight_mission_id) VALUES('nobody')");
         look(EUploadEnv::WholeProject);
     }},
    {"a quote in a mission's id", [](P p) { update(p, "is_uploaded", "it's"); }},
    {"an id that is there already",
     [](P p) {
         TestProject::addMission(p.db, "m1", 0, 0, 0);
         writeSingle(p, Host(EUploadEnv::None, p.db));
     }},
    {"a locked file",
     [](P p) {
         const Foreign foreign("exclusive", p.db);
         write(p, "id TEXT", p.db);
     }},
    {"a mission file made beside a lock",
     [](P p) {
         const Foreign foreign("reserved", p.file("m2/flight.kv"));
         CreateMissionFile(p.path("m2/flight.kv"));
     }},
    {"a file that is locked while an upload looks for rows",
     [](P p) {
         const Foreign foreign("exclusive", p.db);
         look(EUploadEnv::WholeProject);
     }},
    {"a full disk",
     [](P p) {
         FaultVfs::install().failAt(FaultVfs::Write, 1, 13, true);
         write(p, "id TEXT", p.db);
         FaultVfs::install().clear();
     }},
    {"one operator for both roles",
     [](P p) {
         const ScriptedServer server;
         TestProject::addMission(p.db, "m1", 1, 0, 0);
         ArmedHost host(EUploadEnv::WholeProject, p.missionFile("m2/flight.kv"), Token);
         host.op.SetFilghtMissionID("m2");
         Q_EMIT host.slotStartUpload();
         Q_EMIT host.slotWriteFlightMonitor("x");
         QTRY_VERIFY(!host.missions.isEmpty());
     }},
    {"nothing listens at the address", [](P) { post("http://127.0.0.1:9"); }},
    {"an unknown host", [](P) { post("http://nowhere.invalid"); }},
    {"a certificate that is not trusted",
     [](P) {
         TlsServer server;
         server.listen(QHostAddress::LocalHost);
         post("https://127.0.0.1:" + QByteArray::number(server.serverPort()));
     }},
    {"an answer after 20 s", [](P) { postTwice(true, {"/one"}); }},
    {"TLS against a plain port",
     [](P) {
         QTcpServer server;
         server.listen(QHostAddress::LocalHost);
         QObject::connect(&server, &QTcpServer::newConnection, &server, [&server] {
             QTcpSocket* const socket = server.nextPendingConnection();
             socket->write("HTTP/1.0 400 Bad Request\r\n\r\n");
             socket->disconnectFromHost();
         });
         post("https://127.0.0.1:" + QByteArray::number(server.serverPort()));
     }},
    {"another server's address", [](P) { answered("404 nothing here"); }},
    {"a server that moved", [](P) { answered("301 https://elsewhere/flight/upload"); }},
    {"a server that says nothing", [](P) { answered("silence"); }},
    {"a token that the server refuses", [](P) { answered(R"(401 {"status":401,"message":"sign in"})"); }},
    {"rows that the server refuses", [](P) { answered(R"(500 {"status":500,"message":"disk"})"); }},
    {"a token that no header can carry", [](P) { signIn(QString(4, QChar(0x20ac))); }},
    {"a download that is not there",
     [](P) {
         const ScriptedServer server(ScriptedServer::reply("404 nothing here"));
         download<CKvDownLoadObject>(server.url() + "/file?key=" + Token);
     }},
    {"a download without a scheme", [](P) { download<CKvDownLoadObject>("elsewhere/file"); }},
    {"a download that stands still",
     [](P) {
         const ScriptedServer server(ScriptedServer::reply("silence"));
         CKvDownLoadObject download;
         QSignalSpy failed(&download, SIGNAL(NetWorkError()));
         download.SetUrl(server.url());
         download.slotRequestData();
         QTRY_VERIFY(!server.requests.isEmpty());
         secondsAhead += 61;
         QTRY_VERIFY(!failed.isEmpty());
     }},
    {"no program for downloads", [](P) { external("", "TmpData"); }},
    {"no folder for downloads", [](P) { external("exit 1", "elsewhere"); }},
    {"a program that fails", [](P) { external("echo gone $1 >&2", "TmpData"); }},
    {"a program that fails without a word", [](P) { external("exit 3", "TmpData"); }},
    {"a program that is killed", [](P) { external("kill -9 $$", "TmpData"); }},
    {"a second download while the program runs", [](P) { external("read line", "TmpData", 2); }},
    {"a log file on a full disk",
     [](P) {
         Logger::instance().setLogFile("/dev/full");
         Logger::instance().write(Level::Warn, "first warning");
         Logger::instance().write(Level::Warn, "second warning");
     }},
    {"a file that another thread has open (debug builds)",
     [](P p) {
         CKvDataBase database(p.db);
         QVERIFY(database.open());
         std::thread([&database] { database.exec("SELECT 1"); }).join();
     }},
    {"another thread (debug builds)",
     [](P) {
         Host host(EUploadEnv::None);
         std::thread([&host] { host.op.SetFilghtMissionID("m1"); }).join();
     }},
};

/// What is told of a mistake.
QStringList told(const QString& mistake)
{
    const FlightProject project;
    return loggedBy(Level::Warn, [&] { Mistakes[mistake](project); });
}

/// Those that end the process, or need a folder of programs of their own.
bool needsProcess(const QString& mistake)
{
    static const QRegularExpression names("program|folder for|thread|log file");
    return mistake.contains(names);
}

/// What a copy of this program writes to its standard error while it makes a mistake.
QStringList linesOfChild(const QString& mistake)
{
    const QTemporaryDir folder;
    QDir(folder.path()).mkdir("bin");
    const QString copy = folder.filePath("bin/child");
    QFile::copy(QCoreApplication::applicationFilePath(), copy);
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(Child, mistake);
    child.setProcessEnvironment(environment);
    child.start(copy, QStringList());
    child.waitForFinished();
    return QString::fromUtf8(child.readAllStandardError()).split('\n');
}

QRegularExpression pattern(const QString& line)
{
    static const QRegularExpression names("FILE|URL|SERVER|PATH");
    QString text = QRegularExpression::escape(line);
    text.replace(QRegularExpression::escape("…"), ".*").replace(names, "\\S+");
    return QRegularExpression(text + '$');
}
} // namespace

/// Takes the place of the C library's clock, so that an hour passes at once.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    time->tv_sec += clock == CLOCK_MONOTONIC ? secondsAhead : 0;
    return result;
}

class tst_silence : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { CKvDataBase::SetLockWait(10); }

    void everyMistakeIsTold_data()
    {
        QTest::addColumn<QString>("line");
        const QString page = TestProject::contents(QFINDTESTDATA("../docs/troubleshooting.md"));
        static const QRegularExpression mistake(R"(\n\| (.+?) \| `([^\n]+?)` \|)");
        auto row = mistake.globalMatch(page);
        int rows = 0;
        for (; row.hasNext(); ++rows) {
            const QRegularExpressionMatch match = row.next();
            QTest::newRow(match.captured(1).toUtf8()) << match.captured(2);
        }
        QCOMPARE(rows, Mistakes.size());
    }
    void everyMistakeIsTold()
    {
        QFETCH(QString, line);
        const QString mistake = QTest::currentDataTag();
        QVERIFY(Mistakes.contains(mistake));
#ifdef QT_NO_DEBUG
        if (mistake.contains("debug builds")) {
            return;
        }
#endif
        const QStringList lines = needsProcess(mistake) ? linesOfChild(mistake) : told(mistake);
        const QString all = lines.join('\n');
        QVERIFY2(!lines.filter(pattern(line)).isEmpty(), all.toUtf8());
        QVERIFY2(!all.contains(Token.left(5)), all.toUtf8());
    }

    /// Four endpoints refuse, now with these words and now with others, and some requests go well.
    void anHourOfOutageIsFewLines()
    {
        ScriptedServer server;
        server.script = [&server](const PostedRequest& request) {
            const int n = server.requests.size();
            const QString refusal = R"(500 {"status":%1,"message":"%2 %3"})";
            return n % 5 == 0 ? ScriptedServer::accepted()
                              : ScriptedServer::reply(
                                    refusal.arg(400 + n % 7).arg(QString(request.path), QString(Token)));
        };
        const QStringList lines = loggedBy(Level::Warn, [&server] {
            for (int minute = 0; minute < 60; ++minute) {
                for (const char* kind : {"upload", "posupload", "uasstatusupload", "detailupload"}) {
                    post(server.url(), QByteArray("/flight/") + kind);
                }
                secondsAhead += 60;
            }
        });
        QVERIFY2(!lines.isEmpty() && lines.size() < 10, lines.join('\n').toUtf8());
        QVERIFY(!lines.join('\n').contains(Token.left(5)));
    }

    /// The end of what was wrong is told once, and what comes then is news; so is what was away for long.
    void whatIsOverIsTold()
    {
        ScriptedServer server;
        const auto toldAfter = [&server](int minutes, const QString& reply) {
            secondsAhead += 60LL * minutes;
            server.script = [reply](const PostedRequest&) { return ScriptedServer::reply(reply); };
            return loggedBy(Level::Warn, [&server] { post(server.url()); }).join('\n').remove(server.url());
        };
        const QString disk = R"(200 {"status":500,"message":"disk"})";
        const QString told = R"(3 /flight/upload: the server refuses the rows: status 500, "disk")";
        const QString well = R"(200 {"status":0})";
        QCOMPARE(toldAfter(0, disk), told);
        QCOMPARE(toldAfter(12, disk), QString());
        QCOMPARE(toldAfter(1, well), QString("3 : answers well again, after 13 min"));
        QCOMPARE(toldAfter(0, well), QString());
        QCOMPARE(toldAfter(0, disk), told);
        QCOMPARE(toldAfter(61, disk), told); // not seen for so long
    }

    void aLateAnswerIsToldOfItsOwnUrl()
    {
        const QString lines = loggedBy(Level::Warn, [] { postTwice(true, {"/one"}); }).join('\n');
        QVERIFY2(lines.contains("/one: the answer came") && !lines.contains("/two: "), lines.toUtf8());
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
            Q_EMIT Host(EUploadEnv::WholeProject, project.missionFile("m3/flight.kv"))
                .slotParseSingleJson({{"id", "m3"}}, project.file("x.txt", "id TEXT"), "flight_mission");
            ArmedHost host(EUploadEnv::WholeProject, project.missionFile("m2/flight.kv"), Token);
            host.op.SetFilghtMissionID("m2");
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
        const QStringList lines = linesOfChild("a log file on a full disk");
        QCOMPARE(lines.filter("takes no lines").size(), 1);
        QCOMPARE(lines.filter(QRegularExpression("(first|second) warning$")).size(), 2);
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
            host->op.SetFilghtMissionID("m1");
            Q_EMIT host->slotWriteFlightMonitor("x");
            delete host;
            thread.quit();
        });
        QVERIFY(thread.wait(10000));
        QCOMPARE(project.waiting("flight_monitor_detail_log"), 1);
    }

    /// What goes for each file of a large project is few lines, and so is its end.
    void manyFilesAreFewLines_data()
    {
        QTest::addColumn<QString>("sql"); // run on each file
        QTest::addColumn<bool>("locked");
        QTest::addColumn<int>("files");
        QTest::newRow("locked") << "" << true << 12;
        QTest::newRow("orphans") << "INSERT INTO flight_monitor_detail_log(flight_mission_id) VALUES('gone')"
                                 << false << 1050;
        QTest::newRow("no column") << "ALTER TABLE flight_mission RENAME COLUMN is_uploaded TO x" << false
                                   << 100;
    }
    void manyFilesAreFewLines()
    {
        QFETCH(QString, sql);
        QFETCH(bool, locked);
        QFETCH(int, files);
        const FlightProject project;
        project.run(sql);
        const ScriptedServer server;
        std::vector<std::unique_ptr<Foreign>> foreign;
        for (int i = 1; i < files; ++i) {
            const QString copy = project.path(QString("m1/%1.kv").arg(i));
            QVERIFY(QFile::copy(project.db, copy));
            if (locked) {
                foreign.push_back(std::make_unique<Foreign>("exclusive", copy));
            }
        }
        const QStringList lines = loggedBy(Level::Warn, [] {
            for (int pass = 0; pass < 12; ++pass) { // an hour
                look(EUploadEnv::WholeProject);
                secondsAhead += 300;
            }
        });
        QVERIFY2(!lines.isEmpty() && lines.size() < 10, lines.join('\n').toUtf8());
        QCOMPARE(lines.filter("(as 9 other files").size(), 1);
    }

    /// Records that wait for files are written in the end, which the last of the files says.
    void theEndOfManyIsTold()
    {
        const TestProject project;
        const QString columns = project.file("flight_mission.txt", "id TEXT");
        QStringList files;
        const QStringList lines = loggedBy(Level::Warn, [&] {
            Host host(EUploadEnv::None);
            for (int i = 0; i < 12; ++i) {
                files.append(project.file(QString("m1/%1.kv").arg(i)));
                host.op.slotParseJson({QJsonObject{{"id", "m1"}}}, columns, "m1", 1, files.constLast());
            }
            for (const QString& file : qAsConst(files)) {
                CreateMissionFile(file);
            }
            Q_EMIT host.slotStartUploadTimer(false);
        });
        QCOMPARE(lines.filter("has no tables").size(), 5);
        QCOMPARE(lines.filter("takes records again").size(), 4);
        QVERIFY2(lines.constLast().endsWith("(the last of 12 files)"), lines.join('\n').toUtf8());
    }

    void oneMistakeIsOneLine()
    {
        for (const char* const mistake :
             {"no description file", "an empty description file", "a column without a type"}) {
            secondsAhead += 1201; // other tests make them too
            const QStringList lines = told(mistake);
            QVERIFY2(lines.size() == 1, lines.join('\n').toUtf8());
        }
    }

    /// Nor does Qt write a line for each record.
    void aFileThatCannotBeOpenedIsFewLines()
    {
        const TestProject project;
        const QString description = project.file("flight_mission.txt", "id TEXT");
        QLoggingCategory::defaultCategory()->setEnabled(QtWarningMsg, true);
        Logger& logger = Logger::instance(); // whose own handler comes back in the end
        const QtMessageHandler before = qInstallMessageHandler(nullptr);
        logger.captureQtMessages();
        const QStringList lines = loggedBy(Level::Warn, [&description] {
            Host host(EUploadEnv::None, "/nowhere/few.kv");
            host.op.SetFilghtMissionID("m1");
            for (int i = 0; i < 60; ++i) {
                Q_EMIT host.slotWriteFlightMonitor("x");
                Q_EMIT host.slotParseSingleJson({{"id", "m1"}}, description, "flight_mission");
                Q_EMIT host.slotUpdateBreakpoint(1, 2, 3, "m1", 4);
                host.op.slotUpdateGeneralOneValue(1, "is_uploaded", 1, "m1");
            }
        });
        qInstallMessageHandler(before);
        QCOMPARE(lines.filter("120 records were not stored and are lost").size(), 1);
        QCOMPARE(lines.filter("is lost").size(), 2); // the breakpoint, the value
        QVERIFY2(lines.size() == 4, lines.join('\n').toUtf8());
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
