// SPDX-License-Identifier: MIT
#include "support/Mistakes.h"

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
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

thread_local qint64 secondsAhead = 0;

namespace
{
std::atomic<bool> offline{false}; ///< no network interface is found
} // namespace

void post(const QByteArray& server, const QByteArray& path)
{
    Upload upload(server + path + "?key=" + Token);
    upload.setRawHeader("token", Token);
    upload.PostNetWorkReplyMessage();
    QTRY_VERIFY_WITH_TIMEOUT(!upload.outcomes.isEmpty(), 30000);
}

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

void look(EUploadEnv env, const QString& file)
{
    ArmedHost host(env, file, Token);
    Q_EMIT host.slotStartUpload();
}

namespace
{
using P = const FlightProject&;

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

void writeToFailing(P p, FaultVfs::Step step, int code)
{
    FaultVfs::install().failAt(step, 1, code, true);
    write(p, "id TEXT", p.db);
    FaultVfs::install().clear();
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
} // namespace

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
    {"a full disk"_l1, [](P p) { writeToFailing(p, FaultVfs::Write, 13); }},
    {"a mission file that may not be written"_l1, [](P p) { writeToFailing(p, FaultVfs::Write, 8); }},
    {"no file descriptor, or no room for a new file"_l1, [](P p) { writeToFailing(p, FaultVfs::Open, 14); }},
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
