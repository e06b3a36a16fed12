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

#include <atomic>
#include <cerrno>
#include <memory>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
const char* const Child = "KV_MISTAKE";
const QByteArray Token = QByteArray("t0k3n").repeated(1000);

thread_local qint64 secondsAhead =
    0;                            ///< of the clock that timers go by, but not the one that watches the test
std::atomic<bool> offline{false}; ///< no network interface is found

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
    post(ScriptedServer(ScriptedServer::reply(QLatin1String(reply))).url());
}

/// A server with a certificate that it has signed itself.
class TlsServer : public QTcpServer
{
protected:
    void incomingConnection(qintptr handle) override
    {
        const QByteArray pem = TestProject::contents(":/untrusted.pem"_l1);
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
    ScriptedServer server(ScriptedServer::reply("silence"_l1));
    Upload upload(server.url());
    const auto send = [&](const QByteArray& path) {
        upload.SetUrl(server.url() + path);
        upload.PostNetWorkReplyMessage();
        QTRY_COMPARE(server.paths().value(server.requests.size() - 1), QString::fromUtf8(path));
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
    QTRY_COMPARE(upload.outcomes.count("error"_l1), 1);
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
void write(P p, const QByteArray& columns, const QString& file, const QString& table = "flight_mission"_l1,
           const QJsonObject& record = {{"colour"_l1, "red"_l1}})
{
    Host(EUploadEnv::None).op.slotParseJson({record}, p.file(table + ".txt"_l1, columns), "m1"_l1, 1, file);
}

/// The same by the call that knows no file.
void writeSingle(P p, Host&& host)
{
    Q_EMIT host.slotParseSingleJson({{"id"_l1, "m1"_l1}}, p.file("x.txt"_l1, "id TEXT"), "flight_mission"_l1);
}

void update(P p, const QString& column, const QString& mission)
{
    Host(EUploadEnv::None, p.db).op.slotUpdateGeneralOneValue(1, column, 1, mission);
}

/// A program that does as it is told; none at all where it is told nothing.
void external(const QByteArray& script, const char* folder, int requests = 1)
{
    const TestProject home;
    SetHomeDir(home.path(""_l1));
    home.file(QLatin1String(folder) + "/x"_l1);
    QFile program(QCoreApplication::applicationDirPath() + "/../Talverinde/grabdownloader.exe"_l1);
    QDir().mkpath(QFileInfo(program).path());
    if (!script.isEmpty() && program.open(QIODevice::WriteOnly)) {
        program.write("#!/bin/sh\n" + script + '\n');
        program.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
        program.close();
    }
    download<CKvDownLoadObjectEX>("http://us:" + Token + "@127.0.0.1/a.zip?key=" + Token, requests);
}

void anotherThread(P)
{
    Host host(EUploadEnv::None);
    std::thread([&host] { host.op.SetFilghtMissionID("m1"_l1); }).join();
}

/// Every mistake of docs/troubleshooting.md under its name there, made beside a project with one mission
/// file.
const QMap<QString, std::function<void(P)>> Mistakes = {
    {"no server address"_l1,
     [](P) {
         control()->ResetNetWorkConnected();
         look(EUploadEnv::WholeProject);
         control()->SetNetWorkConnected(true);
     }},
    {"an address without a scheme"_l1, [](P) { SetServerIP("fly.example"); }},
    {"no project folder at construction"_l1,
     [](P) {
         control()->SetProjectDirPath("/nowhere"_l1);
         const Host host(EUploadEnv::None);
     }},
    {"no current mission"_l1, [](P p) { Q_EMIT Host(EUploadEnv::None, p.db).slotWriteFlightMonitor("x"); }},
    {"no mission file for a record"_l1, [](P p) { writeSingle(p, Host(EUploadEnv::None)); }},
    {"`CurrentMissionLog` without a mission"_l1,
     [](P p) {
         p.run("INSERT INTO flight_monitor_detail_log(flight_mission_id) VALUES('m1')");
         look(EUploadEnv::CurrentMissionLog, p.db);
     }},
    {"an uploader that is not armed"_l1,
     [](P) {
         signIn(QString::fromUtf8(Token));
         const Host host(EUploadEnv::WholeProject);
     }},
    {"a tick before the uploader is armed"_l1,
     [](P) { Q_EMIT Host(EUploadEnv::WholeProject).slotStartUpload(); }},
    {"mission files in the project folder itself"_l1,
     [](P p) {
         QFile::rename(p.db, p.path("flight.kv"_l1));
         look(EUploadEnv::WholeProject);
     }},
    {"no mission file for an upload"_l1, [](P) { look(EUploadEnv::OncePerRequest); }},
    {"an upload with `EUploadEnv::None`"_l1, [](P) { look(EUploadEnv::None); }},
    {"the mission's folder is missing"_l1, [](P) { CreateMissionFile("/nowhere/m1.kv"_l1); }},
    {"a mission file without tables"_l1, [](P p) { write(p, "id TEXT", p.file("empty.kv"_l1)); }},
    {"a mission file that is moved or deleted"_l1,
     [](P p) {
         Host host(EUploadEnv::None, p.db);
         QFile::remove(p.db);
         writeSingle(p, std::move(host));
     }},
    {"records that no file took until the end"_l1,
     [](P p) { write(p, "colour TEXT", p.file("empty.kv"_l1)); }},
    {"too much that waits"_l1,
     [](P p) {
         Host host(EUploadEnv::None);
         host.op.SetFlightMissionFilePath(p.file("m1/empty.kv"_l1));
         host.op.SetFilghtMissionID("m1"_l1);
         for (int i = 0; i < 100; ++i) {
             Q_EMIT host.slotWriteFlightMonitor(QByteArray(1 << 20, 'm'));
         }
     }},
    {"a mission file that is replaced"_l1,
     [](P p) {
         Host host(EUploadEnv::None, p.db);
         const Foreign foreign("replaced"_l1, p.db);
         writeSingle(p, std::move(host));
     }},
    {"a mission file that lacks a table"_l1,
     [](P p) {
         Host host(EUploadEnv::None, p.db);
         p.run("DROP TABLE flight_mission");
         writeSingle(p, std::move(host));
     }},
    {"an upload of a folder"_l1, [](P p) { look(EUploadEnv::OncePerRequest, p.path(QString())); }},
    {"no database"_l1, [](P p) { CreateMissionFile(p.file("m1/text.kv"_l1, QByteArray(5000, 'x'))); }},
    {"no description file"_l1,
     [](P p) {
         Host(EUploadEnv::None).op.slotParseJson({QJsonObject()}, ":/nowhere.txt"_l1, "m1"_l1, 1, p.db);
     }},
    {"an empty description file"_l1, [](P p) { write(p, "", p.db); }},
    {"a column without a type"_l1, [](P p) { write(p, "id TEXT colour", p.db); }},
    {"a misspelt key"_l1,
     [](P p) {
         write(p, "colour TEXT", p.db, "flight_mission"_l1, QJsonObject{{"color"_l1, "red"_l1}});
     }},
    {"a number for the five-argument `slotParseJson`"_l1,
     [](P p) {
         write(p, "alt TEXT", p.db, "pos_data"_l1, QJsonObject{{"alt"_l1, 7}});
     }},
    {"a column that the table lacks"_l1, [](P p) { write(p, "id TEXT colour TEXT", p.db); }},
    {"a table that the file lacks"_l1, [](P p) { write(p, "id TEXT", p.db, "flights"_l1); }},
    {"a value for a column that is not there"_l1, [](P p) { update(p, "colour"_l1, "m1"_l1); }},
    {"a breakpoint of an unknown mission"_l1,
     [](P p) { Q_EMIT Host(EUploadEnv::None, p.db).slotUpdateBreakpoint(1, 2, 3, "nobody"_l1, 4); }},
    {"an update of a file that cannot be opened"_l1,
     [](P) {
         Host(EUploadEnv::None, "/nowhere/m1.kv"_l1)
             .op.slotUpdateGeneralOneValue(1, "is_uploaded"_l1, 1, "m1"_l1);
     }},
    {"a breakpoint in a `*.db` file"_l1,
     [](P p) { Q_EMIT Host(EUploadEnv::None, p.path("v.db"_l1)).slotUpdateBreakpoint(1, 2, 3, "m1"_l1, 4); }},
    {"messages of a mission without a row"_l1,
     [](P p) {
         const ScriptedServer server;
         p.run("INSERT INTO flight_monitor_detail_log(flight_mission_id) VALUES('nobody')");
         look(EUploadEnv::WholeProject);
     }},
    {"a quote in a mission's id"_l1, [](P p) { update(p, "is_uploaded"_l1, "it's"_l1); }},
    {"an id that is there already"_l1,
     [](P p) {
         TestProject::addMission(p.db, "m1"_l1, 0, 0, 0);
         writeSingle(p, Host(EUploadEnv::None, p.db));
     }},
    {"a locked file"_l1,
     [](P p) {
         const Foreign foreign("exclusive"_l1, p.db);
         write(p, "id TEXT", p.db);
     }},
    {"a mission file made beside a lock"_l1,
     [](P p) {
         const Foreign foreign("reserved"_l1, p.file("m2/flight.kv"_l1));
         CreateMissionFile(p.path("m2/flight.kv"_l1));
     }},
    {"a file that is locked while an upload looks for rows"_l1,
     [](P p) {
         const Foreign foreign("exclusive"_l1, p.db);
         look(EUploadEnv::WholeProject);
     }},
    {"a full disk"_l1,
     [](P p) {
         FaultVfs::install().failAt(FaultVfs::Write, 1, 13, true);
         write(p, "id TEXT", p.db);
         FaultVfs::install().clear();
     }},
    {"one operator for both roles"_l1,
     [](P p) {
         const ScriptedServer server;
         TestProject::addMission(p.db, "m1"_l1, 1, 0, 0);
         ArmedHost host(EUploadEnv::WholeProject, p.missionFile("m2/flight.kv"_l1), Token);
         host.op.SetFilghtMissionID("m2"_l1);
         Q_EMIT host.slotStartUpload();
         Q_EMIT host.slotWriteFlightMonitor("x");
         QTRY_VERIFY(!host.missions.isEmpty());
     }},
    {"no network"_l1,
     [](P) {
         SetServerIP("http://fly.example");
         control()->ResetNetWorkConnected();
         offline = true;
         look(EUploadEnv::WholeProject);
         offline = false;
         control()->SetNetWorkConnected(true);
     }},
    {"nothing listens at the address"_l1, [](P) { post("http://127.0.0.1:9"); }},
    {"an unknown host"_l1, [](P) { post("http://nowhere.invalid"); }},
    {"a certificate that is not trusted"_l1,
     [](P) {
         TlsServer server;
         server.listen(QHostAddress::LocalHost);
         post("https://127.0.0.1:" + QByteArray::number(server.serverPort()));
     }},
    {"an answer after 20 s"_l1, [](P) { postTwice(true, {"/one"}); }},
    {"TLS against a plain port"_l1,
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
    {"another server's address"_l1, [](P) { answered("404 nothing here"); }},
    {"a server that moved"_l1, [](P) { answered("301 https://elsewhere/flight/upload"); }},
    {"a server that says nothing"_l1, [](P) { answered("silence"); }},
    {"a token that the server refuses"_l1, [](P) { answered(R"(401 {"status":401,"message":"sign in"})"); }},
    {"rows that the server refuses"_l1, [](P) { answered(R"(500 {"status":500,"message":"disk"})"); }},
    {"a token that no header can carry"_l1, [](P) { signIn(QString(4, QChar(0x20ac))); }},
    {"a download that is not there"_l1,
     [](P) {
         const ScriptedServer server(ScriptedServer::reply("404 nothing here"_l1));
         download<CKvDownLoadObject>(server.url() + "/file?key=" + Token);
     }},
    {"a download without a scheme"_l1, [](P) { download<CKvDownLoadObject>("elsewhere/file"); }},
    {"a download that stands still"_l1,
     [](P) {
         const ScriptedServer server(ScriptedServer::reply("silence"_l1));
         CKvDownLoadObject download;
         QSignalSpy failed(&download, SIGNAL(NetWorkError()));
         download.SetUrl(server.url());
         download.slotRequestData();
         QTRY_VERIFY(!server.requests.isEmpty());
         secondsAhead += 61;
         QTRY_VERIFY(!failed.isEmpty());
     }},
    {"no program for downloads"_l1, [](P) { external("", "TmpData"); }},
    {"no folder for downloads"_l1, [](P) { external("exit 1", "elsewhere"); }},
    {"a program that fails"_l1, [](P) { external("echo gone $1 >&2", "TmpData"); }},
    {"a program that fails without a word"_l1, [](P) { external("exit 3", "TmpData"); }},
    {"a program that is killed"_l1, [](P) { external("kill -9 $$", "TmpData"); }},
    {"a second download while the program runs"_l1, [](P) { external("read line", "TmpData", 2); }},
    {"a log file on a full disk"_l1,
     [](P) {
         Logger::instance().setLogFile("/dev/full"_l1);
         Logger::instance().write(Level::Warn, "first warning"_l1);
         Logger::instance().write(Level::Warn, "second warning"_l1);
     }},
    {"a file that another thread has open (debug builds)"_l1,
     [](P p) {
         CKvDataBase database(p.db);
         QVERIFY(database.open());
         std::thread([&database] { database.exec("SELECT 1"_l1); }).join();
     }},
    {"another thread (debug builds)"_l1, anotherThread},
    {"another thread (release builds)"_l1, anotherThread},
    {"a connection that Qt refuses"_l1,
     [](P) {
         QLoggingCategory::defaultCategory()->setEnabled(QtWarningMsg, true);
         Host host(EUploadEnv::None);
         QObject::connect(&host, SIGNAL(slotCheckNewData()), &host.op, SLOT(slotCheckData()));
     }},
    {"no event loop"_l1, [](P p) { ArmedHost(EUploadEnv::OncePerRequest, p.db, Token); }},
    {"a project without any mission file"_l1,
     [](P p) {
         QFile::remove(p.db);
         look(EUploadEnv::WholeProject);
     }},
    {"a misspelt mission for `CurrentMissionLog`"_l1,
     [](P p) {
         TestProject::addMission(p.db, "m1"_l1, 0, 0, 1);
         ArmedHost host(EUploadEnv::CurrentMissionLog, p.db, Token);
         host.op.SetFilghtMissionID("M1"_l1);
         Q_EMIT host.slotStartUpload();
     }},
    {"a record without one of the columns"_l1,
     [](P p) {
         Host(EUploadEnv::None)
             .op.slotParseJson(
                 {QJsonObject{{"id"_l1, "1"_l1}, {"alt"_l1, "7"_l1}}, QJsonObject{{"id"_l1, "2"_l1}}},
                 p.file("pos_data.txt"_l1, "id TEXT alt TEXT"), "m1"_l1, 1, p.db);
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

/// Takes the place of the C library's clock, so that an hour passes at once.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    time->tv_sec += clock == CLOCK_MONOTONIC ? secondsAhead : 0;
    return result;
}

/// The same for what Qt asks the system's interfaces with.
extern "C" Q_DECL_EXPORT int socket(int domain, int type, int protocol) noexcept
{
    if (domain == AF_NETLINK && offline) {
        errno = EAFNOSUPPORT;
        return -1;
    }
    return static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}

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
                              << "9.kv: 12 records of 12 files are lost in all";
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
