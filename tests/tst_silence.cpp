// SPDX-License-Identifier: MIT
#include "KvProjectDbOperator/CKvDownLoadObject.h"
#include "KvProjectDbOperator/CKvDownLoadObjectEX.h"
#include "KvProjectDbOperator/CKvUpLoadObject.h"
#include "support/FaultVfs.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"

#include <QtNetwork/QTcpSocket>

#include <thread>

namespace
{
const char* const Child = "KV_MISTAKE";
const QByteArray Token = "t0k3n";

/// Posts to a server until the outcome is there.
void post(const QByteArray& server)
{
    CKvUpLoadObject upload;
    int outcomes = 0;
    const auto count = [&outcomes] { ++outcomes; };
    QObject::connect(&upload, &CKvUpLoadObject::NetWorkError, count);
    QObject::connect(&upload, &CKvUpLoadObject::NoLogin, count);
    QObject::connect(&upload, &CKvUpLoadObject::upLoadFinished, count);
    upload.setRawHeader("token", Token);
    upload.SetUrl(server + "/flight/upload?key=" + Token);
    upload.PostNetWorkReplyMessage();
    QTRY_VERIFY_WITH_TIMEOUT(outcomes > 0, 30000);
}

void answered(const char* reply)
{
    post(ScriptedServer(ScriptedServer::reply(reply)).url());
}

/// Looks once for what to upload.
void look(EUploadEnv env, const QString& file = {})
{
    ArmedHost host(env, file, Token);
    Q_EMIT host.slotStartUpload();
}

template<class Download>
void download(const QByteArray& url)
{
    Download download;
    QSignalSpy failed(&download, SIGNAL(NetWorkError()));
    download.SetUrl(url);
    download.slotRequestData();
    QTRY_VERIFY(!failed.isEmpty());
}

/// Writes one record into the mission file of a project, or into another.
void write(const QByteArray& columns, const QString& table = "flight_mission", const QString& file = {})
{
    const TestProject project;
    const QString mission = file.isEmpty() ? project.missionFile("m1/flight.kv") : file;
    const QString description = project.file(table + ".txt", columns);
    Host(EUploadEnv::None).op.slotParseJson({QJsonObject{{"colour", "red"}}}, description, "m1", 1, mission);
}

void update(const QString& column, const QString& mission)
{
    const FlightProject project;
    Host(EUploadEnv::None, project.db).op.slotUpdateGeneralOneValue(1, column, 1, mission);
}

/// A program that ends as it is told to; none at all where it is told nothing.
void external(const QByteArray& ending, const char* folder)
{
    const TestProject home;
    SetHomeDir(home.path(""));
    home.file(folder + QString("/x"));
    QFile program(QCoreApplication::applicationDirPath() + "/../Talverinde/grabdownloader.exe");
    QDir().mkpath(QFileInfo(program).path());
    if (!ending.isEmpty() && program.open(QIODevice::WriteOnly)) {
        program.write("#!/bin/sh\necho " + ending + " >&2\n");
        program.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
        program.close();
    }
    download<CKvDownLoadObjectEX>("http://127.0.0.1/a.zip?key=" + Token);
}

/// Every mistake of docs/troubleshooting.md under its name there.
const QMap<QString, std::function<void()>> Mistakes = {
    {"no server address",
     [] {
         control()->ResetNetWorkConnected();
         look(EUploadEnv::WholeProject);
         control()->SetNetWorkConnected(true);
     }},
    {"an address without a scheme", [] { SetServerIP("fly.example"); }},
    {"no project folder at construction",
     [] {
         control()->SetProjectDirPath("/nowhere");
         const Host host(EUploadEnv::None);
     }},
    {"no current mission",
     [] {
         const FlightProject project;
         Q_EMIT Host(EUploadEnv::None, project.db).slotWriteFlightMonitor("x");
     }},
    {"no mission file for an upload",
     [] {
         const TestProject project;
         look(EUploadEnv::OncePerRequest);
     }},
    {"an upload with `EUploadEnv::None`", [] { look(EUploadEnv::None); }},
    {"the mission's folder is missing", [] { CreateMissionFile("/nowhere/m1.kv"); }},
    {"a mission file without tables",
     [] {
         const TestProject project;
         write("id TEXT", "flight_mission", project.file("m1/empty.kv"));
     }},
    {"no database",
     [] {
         const TestProject project;
         CreateMissionFile(project.file("m1/text.kv", QByteArray(5000, 'x')));
     }},
    {"no description file",
     [] {
         const FlightProject project;
         Host(EUploadEnv::None).op.slotParseJson({QJsonObject()}, ":/nowhere.txt", "m1", 1, project.db);
     }},
    {"an empty description file", [] { write(""); }},
    {"a column that the table lacks", [] { write("id TEXT colour TEXT"); }},
    {"a table that the file lacks", [] { write("id TEXT", "flights"); }},
    {"a value for a column that is not there", [] { update("colour", "m1"); }},
    {"a breakpoint of an unknown mission",
     [] {
         const FlightProject project;
         Q_EMIT Host(EUploadEnv::None, project.db).slotUpdateBreakpoint(1, 2, 3, "nobody", 4);
     }},
    {"a quote in a mission's id", [] { update("is_uploaded", "it's"); }},
    {"an id that is there already",
     [] {
         const FlightProject project(0, 0, 0);
         Q_EMIT Host(EUploadEnv::None, project.db)
             .slotParseSingleJson({{"id", "m1"}}, project.file("x.txt", "id TEXT"), "flight_mission");
     }},
    {"a locked file",
     [] {
         const FlightProject project;
         CKvDataBase foreign(project.db);
         QVERIFY(foreign.open() && !foreign.exec("BEGIN EXCLUSIVE").lastError().isValid());
         CKvDataBase::SetLockWait(10);
         write("id TEXT", "flight_mission", project.db);
         CKvDataBase::SetLockWait(30000);
     }},
    {"a full disk",
     [] {
         const FlightProject project;
         FaultVfs::install().failAt(FaultVfs::Write, 1, 13, true);
         write("id TEXT", "flight_mission", project.db);
         FaultVfs::install().clear();
     }},
    {"one operator for both roles",
     [] {
         const FlightProject project(1, 0, 0);
         ScriptedServer server;
         SetServerIP(server.url());
         ArmedHost host(EUploadEnv::WholeProject, project.missionFile("m2/flight.kv"), Token);
         host.op.SetFilghtMissionID("m2");
         Q_EMIT host.slotWriteFlightMonitor("x");
         Q_EMIT host.slotStartUpload();
         QTRY_VERIFY(!host.missions.isEmpty());
     }},
    {"nothing listens at the address", [] { post("http://127.0.0.1:9"); }},
    {"an unknown host", [] { post("http://nowhere.invalid"); }},
    {"TLS against a plain port",
     [] {
         QTcpServer server;
         server.listen(QHostAddress::LocalHost);
         QObject::connect(&server, &QTcpServer::newConnection, &server, [&server] {
             QTcpSocket* const socket = server.nextPendingConnection();
             socket->write("HTTP/1.0 400 Bad Request\r\n\r\n");
             socket->disconnectFromHost();
         });
         post("https://127.0.0.1:" + QByteArray::number(server.serverPort()));
     }},
    {"another server's address", [] { answered("404 nothing here"); }},
    {"a server that moved", [] { answered("301 https://elsewhere/flight/upload"); }},
    {"a server that says nothing", [] { answered("silence"); }},
    {"a token that the server refuses", [] { answered(R"(401 {"status":401,"message":"sign in"})"); }},
    {"rows that the server refuses", [] { answered(R"(500 {"status":500,"message":"disk"})"); }},
    {"a token that no header can carry",
     [] {
         SKvUserInfo user;
         user.m_strToken = QString(QChar(0x20ac)).repeated(4);
         SetCurUserInfo(user);
     }},
    {"a download that is not there",
     [] {
         ScriptedServer server(ScriptedServer::reply("404 nothing here"));
         download<CKvDownLoadObject>(server.url() + "/file?key=" + Token);
     }},
    {"a download without a scheme", [] { download<CKvDownLoadObject>("elsewhere/file"); }},
    {"no program for downloads", [] { external("", "TmpData"); }},
    {"no folder for downloads", [] { external("gone", "elsewhere"); }},
    {"a program that fails", [] { external("gone", "TmpData"); }},
    {"another thread (debug builds)",
     [] {
         const TestProject project;
         Host host(EUploadEnv::None);
         std::thread([&host] { host.op.SetFilghtMissionID("m1"); }).join();
     }},
};

/// Those that end the process, or need a folder of programs of their own.
bool needsProcess(const QString& mistake)
{
    return mistake.contains("program") || mistake.contains("folder for") || mistake.contains("thread");
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
    static const QRegularExpression names("FILE|URL|PATH");
    QString text = QRegularExpression::escape(line);
    text.replace(QRegularExpression::escape("…"), ".*").replace(names, "\\S+");
    return QRegularExpression(text + '$');
}
} // namespace

class tst_silence : public QObject
{
    Q_OBJECT

private Q_SLOTS:
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
        const QStringList lines =
            needsProcess(mistake) ? linesOfChild(mistake) : loggedBy(Level::Warn, Mistakes[mistake]);
        const QString all = lines.join('\n');
        QVERIFY2(!lines.filter(pattern(line)).isEmpty(), all.toUtf8());
        QVERIFY2(!all.contains(Token), all.toUtf8());
    }

    void aHealthyDayIsSilent()
    {
        const FlightProject project(2, 2, 60);
        ScriptedServer server;
        SetServerIP(server.url());
        const QStringList lines = loggedBy(Level::Warn, [&] {
            {
                Host recorder(EUploadEnv::None, project.db);
                recorder.op.SetFilghtMissionID("m1");
                Q_EMIT recorder.slotWriteFlightMonitor("x");
            }
            ArmedHost host(EUploadEnv::OncePerRequest, project.db, Token);
            Q_EMIT host.slotStartUpload();
            QTRY_COMPARE(host.finished.size(), 1);
        });
        QCOMPARE(lines, QStringList());
        QCOMPARE(TestProject::waiting(project.db), 0);
    }

    /// Failures as fast as they come, with a success here and there and other words each time.
    void anOutageIsFewLines()
    {
        ScriptedServer server;
        server.script = [&server](const PostedRequest&) {
            const int n = server.requests.size();
            return n % 5 == 0
                       ? ScriptedServer::accepted()
                       : ScriptedServer::reply(QString(R"(500 {"status":500,"message":"t0k3n %1"})").arg(n));
        };
        const QStringList lines = loggedBy(Level::Warn, [&server] {
            for (int i = 0; i < 200; ++i) {
                post(server.url());
            }
        });
        QVERIFY2(!lines.isEmpty() && lines.size() < 10, lines.join('\n').toUtf8());
        QVERIFY(!lines.join('\n').contains(Token));
    }
};

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    if (qEnvironmentVariableIsSet(Child)) {
        Mistakes[qEnvironmentVariable(Child)]();
        return 0;
    }
    tst_silence test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_silence.moc"
