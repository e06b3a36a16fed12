// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"
#include "KvProjectDbOperator/CKvDownLoadObject.h"
#include "KvProjectDbOperator/CKvDownLoadObjectEX.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QTimer>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <cstdio>
#include <functional>
#include <memory>
#include <random>

namespace
{
using Reply = ScriptedServer::SReply;

/// A host's subclass.
class Download : public CKvDownLoadObject
{
public:
    explicit Download(const QByteArray& url)
    {
        SetUrl(url);
        SetMethod(false);
        QObject::connect(this, &CKvDownLoadObject::downLoadFinished, this,
                         [this] { outcomes.append("finished"); });
        QObject::connect(this, &CKvDownLoadObject::NetWorkError, this, [this] { outcomes.append("error"); });
        QObject::connect(this, &CKvDownLoadObject::downloadProgress, this,
                         [this](qint64 received, qint64) { progress.append(received); });
    }
    using CKvDownLoadObject::ConnecttedError;
    const QByteArray& data() const { return m_byteRecvData; }
    QStringList outcomes;
    QList<qint64> progress;
};

class External : public CKvDownLoadObjectEX
{
public:
    explicit External(const QByteArray& url)
    {
        SetUrl(url);
        QObject::connect(this, &CKvDownLoadObjectEX::downLoadFinished, this,
                         [this] { outcomes.append("finished " + QString::number(GetByteData().size())); });
        QObject::connect(this, &CKvDownLoadObjectEX::NetWorkError, this,
                         [this] { outcomes.append("error"); });
        QObject::connect(this, &CKvDownLoadObjectEX::downloadProgress, this,
                         [this](qint64 received, qint64 total) {
                             progress.append(received);
                             outcomes.append(QString("progress %1 %2").arg(received).arg(total));
                         });
    }
    QStringList ends() const { return outcomes.filter(QRegExp("^(finished|error)")); }
    QStringList outcomes;
    QList<qint64> progress;
};

QByteArray pattern(int size)
{
    QByteArray bytes(size, '\0');
    quint32 state = 1;
    for (char& c : bytes) {
        state = state * 1664525 + 1013904223;
        c = static_cast<char>(state >> 24);
    }
    return bytes;
}

bool rises(const QList<qint64>& progress, qint64 total)
{
    return std::is_sorted(progress.cbegin(), progress.cend()) &&
           (progress.isEmpty() || progress.last() == total);
}

/// What this test does as another application, which lies beside another download program: prints what the
/// object signals until a while after its first end, "again" starts it so often.
int fetch(const QStringList& arguments)
{
    SetHomeDir(arguments.value(2));
    int again = arguments.value(3).toInt();
    External download("http://127.0.0.1:1/file.bin");
    const auto next = [&] {
        if (--again > 0) {
            QTimer::singleShot(0, &download, &CKvDownLoadObjectEX::slotRequestData);
        } else {
            QTimer::singleShot(300, QCoreApplication::instance(), &QCoreApplication::quit);
        }
    };
    QObject::connect(&download, &CKvDownLoadObjectEX::NetWorkError, next);
    QObject::connect(&download, &CKvDownLoadObjectEX::downLoadFinished, next);
    QTimer::singleShot(0, &download, &CKvDownLoadObjectEX::slotRequestData);
    if (arguments.value(4) == "stop") {
        QTimer::singleShot(500, &download, &CKvDownLoadObjectEX::StopDownload);
    }
    QCoreApplication::exec();
    std::puts(qPrintable(download.outcomes.join('|')));
    return 0;
}
} // namespace

Q_DECLARE_METATYPE(Reply)

class tst_download : public QObject
{
    Q_OBJECT

private slots:
    void whole_data();
    void whole();
    void internalFaults_data();
    void internalFaults();
    void stall();
    void stopAndDestroy();
    void secondRequest();
    void callerData();
    void externalFaults_data();
    void externalFaults();
    void resumesAfterBreak();
    void destroyedWhileProgramRuns();
    void otherPrograms_data();
    void otherPrograms();
};

void tst_download::whole_data()
{
    QTest::addColumn<QString>("by");
    QTest::addColumn<int>("size");
    for (const char* by : {"GET", "POST", "program"}) {
        for (const int size : {0, 1, 100 * 1024 * 1024}) {
            QTest::addRow("%s %d", by, size) << by << size;
        }
    }
}

void tst_download::whole()
{
    QFETCH(QString, by);
    QFETCH(int, size);
    const TestProject home;
    QVERIFY(SetHomeDir(home.path("")) && QDir().mkpath(home.path("TmpData")));
    const QByteArray bytes = pattern(size);
    ScriptedServer server;
    server.script = [&](const SRequest&) { return ScriptedServer::file(bytes); };
    if (by == "program") {
        External download(server.url() + "/a%20b/\xC3\xA4.bin?x=1#y");
        download.slotRequestData();
        QTRY_COMPARE_WITH_TIMEOUT(download.ends(), QStringList{"finished " + QString::number(size)}, 60000);
        QVERIFY(download.GetByteData() == bytes);
        QVERIFY(rises(download.progress, size) && !download.progress.isEmpty());
        QCOMPARE(server.requests.value(0).path, QByteArray("/a%20b/%C3%A4.bin?x=1"));
        QVERIFY(QDir(home.path("TmpData")).entryList(QDir::Files).isEmpty());
        return;
    }
    Download download(server.url() + "/file");
    download.SetMethod(by == "POST");
    download.SetFilePathArray("a=1");
    download.setRawHeader("token", "t0k3n");
    download.slotRequestData();
    QTRY_COMPARE_WITH_TIMEOUT(download.outcomes, QStringList{"finished"}, 60000);
    QVERIFY(download.data() == bytes);
    QVERIFY(rises(download.progress, size));
    const SRequest& request = server.requests.constFirst();
    QCOMPARE(request.body, QByteArray(by == "POST" ? "a=1" : ""));
    QCOMPARE(request.headers.value("token"), QByteArray("t0k3n"));
    QCOMPARE(request.headers.value("user-agent"), GetSysinfo().toLatin1());
}

void tst_download::internalFaults_data()
{
    QTest::addColumn<Reply>("reply");
    QTest::addColumn<QString>("outcome");
    QTest::newRow("404") << ScriptedServer::json("gone", "404 Not Found") << "error";
    QTest::newRow("500") << ScriptedServer::json("", "500 Internal Server Error") << "error";
    QTest::newRow("cut") << ScriptedServer::file("half", 8) << "error";
    QTest::newRow("slam") << ScriptedServer::slam() << "error";
    QTest::newRow("reset") << Reply{"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nx", false, true} << "error";
    QTest::newRow("longer than told") << ScriptedServer::file("whole and more", 5) << "finished";
}

void tst_download::internalFaults()
{
    QFETCH(Reply, reply);
    QFETCH(QString, outcome);
    ScriptedServer server;
    server.script = [&](const SRequest&) { return reply; };
    Download download(server.url() + "/file");
    download.slotRequestData();
    QTRY_COMPARE(download.outcomes, QStringList{outcome});
    QTest::qWait(100);
    QCOMPARE(download.outcomes.size(), 1);
    if (outcome == "finished") {
        QCOMPARE(download.data(), QByteArray("whole"));
    }
}

/// A stall is an error, and the reply that goes on nevertheless ends once more.
void tst_download::stall()
{
    ScriptedServer server;
    server.script = [](const SRequest&) { return Reply{"HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nab"}; };
    Download download(server.url() + "/file");
    download.setTimeoutIntervel(300);
    download.slotRequestData();
    QTRY_COMPARE(download.outcomes, QStringList{"error"});
    QCOMPARE(download.data(), QByteArray("ab"));
    server.sendMore("/file", "cd");
    QTRY_COMPARE(download.outcomes, (QStringList{"error", "finished"}));
    QCOMPARE(download.data(), QByteArray("abcd"));
}

void tst_download::stopAndDestroy()
{
    ScriptedServer server;
    server.script = [](const SRequest&) { return Reply{"HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nab"}; };
    auto download = std::make_unique<Download>(server.url() + "/file");
    download->slotRequestData();
    QTRY_COMPARE(download->data(), QByteArray("ab"));
    download->stop();
    QTRY_COMPARE(download->outcomes, QStringList{"error"});
    download->slotRequestData();
    QTRY_COMPARE(server.requests.size(), 2);
    download.reset();
    server.sendMore("/file", "cd");
    QTest::qWait(100);
}

void tst_download::secondRequest()
{
    ScriptedServer server;
    server.script = [&](const SRequest&) {
        return ScriptedServer::file(QByteArray(server.requests.size() == 1 ? 5000 : 2000, 'x'));
    };
    Download download(server.url() + "/file");
    QCOMPARE(download.GetDeltaProgress(), 0);
    for (int request = 1; request <= 2; ++request) {
        download.slotRequestData();
        QTRY_COMPARE(download.outcomes.size(), request);
    }
    QCOMPARE(download.data().size(), 2000);
    QVERIFY(download.GetDeltaProgress() <= 2000 - 5000 || download.progress.count(2000) > 1);
}

void tst_download::callerData()
{
    Download download("http://127.0.0.1:1/\xC3\xA4");
    download.SetUserData(7, "old");
    download.SetUserData(7, "new");
    QCOMPARE(download.GetUserData(7), QVariant("new"));
    QVERIFY(!download.GetUserData(8).isValid());
    download.SetFilePath("/some/file");
    QCOMPARE(download.GetFilePath(), QString("/some/file"));
    QCOMPARE(download.GetFileUrl(), QString::fromUtf8("http://127.0.0.1:1/\xC3\xA4"));
    download.ConnecttedError(QNetworkReply::NoError);
    QCOMPARE(download.outcomes, QStringList());
    download.ConnecttedError(QNetworkReply::TimeoutError);
    download.ConnecttedError(QNetworkReply::TimeoutError);
    QCOMPARE(download.outcomes, QStringList{"error"});
}

void tst_download::externalFaults_data()
{
    QTest::addColumn<Reply>("reply");
    QTest::addColumn<int>("times");
    QTest::addColumn<QString>("end");
    QTest::addColumn<int>("requests");
    const Reply shortBody = ScriptedServer::file("half", 8);
    const Reply reset{"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nx", false, true};
    QTest::newRow("four short bodies, then well") << shortBody << 4 << "finished 6" << 5;
    QTest::newRow("four resets, then well") << reset << 4 << "finished 6" << 5;
    QTest::newRow("five short bodies") << shortBody << 5 << "error" << 5;
    QTest::newRow("404") << ScriptedServer::json("gone", "404 Not Found") << 1 << "error" << 1;
    QTest::newRow("500, words that would be success")
        << ScriptedServer::json("SUCCESS read tcp", "500 SUCCESS read tcp") << 1 << "error" << 1;
    QTest::newRow("redirect to a file")
        << Reply{"HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\nContent-Length: 0\r\n\r\n"} << 1
        << "error" << 1;
    QTest::newRow("redirects without end")
        << Reply{"HTTP/1.1 302 Found\r\nLocation: /file.bin\r\nContent-Length: 0\r\n\r\n"} << 99 << "error"
        << 11;
}

void tst_download::externalFaults()
{
    QFETCH(Reply, reply);
    QFETCH(int, times);
    QFETCH(QString, end);
    QFETCH(int, requests);
    const TestProject home;
    QVERIFY(SetHomeDir(home.path("")) && QDir().mkpath(home.path("TmpData")));
    ScriptedServer server;
    server.script = [&](const SRequest&) {
        return server.requests.size() <= times ? reply : ScriptedServer::file("whole!");
    };
    External download(server.url() + "/file.bin");
    download.slotRequestData();
    QTRY_COMPARE_WITH_TIMEOUT(download.ends(), QStringList{end}, 20000);
    QTest::qWait(200);
    QCOMPARE(download.ends().size(), 1);
    QCOMPARE(server.requests.size(), requests);
}

/// Stopped half-way, a download goes on from where it was: the server sends each byte once.
void tst_download::resumesAfterBreak()
{
    const TestProject home;
    QVERIFY(SetHomeDir(home.path("")) && QDir().mkpath(home.path("TmpData")));
    const QByteArray bytes = pattern(300000);
    ScriptedServer server;
    server.script = [&](const SRequest& request) {
        const int from = request.headers.value("range").mid(6).split('-').value(0).toInt();
        if (server.requests.size() == 1) {
            Reply half = ScriptedServer::file(bytes);
            half.wire.chop(100000);
            return half;
        }
        return Reply{"HTTP/1.1 206 Partial Content\r\nContent-Length: " +
                     QByteArray::number(bytes.size() - from) + "\r\nContent-Range: bytes " +
                     QByteArray::number(from) + "-299999/300000\r\n\r\n" + bytes.mid(from)};
    };
    External download(server.url() + "/file.bin");
    download.slotRequestData();
    QTRY_COMPARE(QFileInfo(home.path("TmpData/file.bin")).size(), qint64(200000));
    download.StopDownload();
    QTRY_COMPARE(download.ends(), QStringList{"error"});
    download.slotRequestData();
    QTRY_COMPARE(download.ends(), (QStringList{"error", "finished 300000"}));
    QCOMPARE(server.requests.value(1).headers.value("range"), QByteArray("bytes=200000-"));
    QVERIFY(download.GetByteData() == bytes);
}

void tst_download::destroyedWhileProgramRuns()
{
    const TestProject home;
    QVERIFY(SetHomeDir(home.path("")) && QDir().mkpath(home.path("TmpData")));
    ScriptedServer server;
    server.script = [](const SRequest&) { return ScriptedServer::silence(); };
    {
        External download(server.url() + "/file.bin");
        download.slotRequestData();
        QTRY_COMPARE(server.requests.size(), 1);
    }
    const QString children = QString("/proc/self/task/%1/children").arg(QCoreApplication::applicationPid());
    QFile file(children);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray()); // neither running nor a zombie
}

void tst_download::otherPrograms_data()
{
    QTest::addColumn<QByteArray>("script"); // $2 is the target file
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("said");
    const QStringList once{"1"};
    const QByteArray ok = "printf SUCCESS >&2";
    QTest::newRow("missing") << QByteArray() << once << QByteArray("error");
    QTest::newRow("killed") << QByteArray("kill -9 $$") << once << QByteArray("error");
    QTest::newRow("silent, then stopped")
        << QByteArray("exec sleep 60") << QStringList{"1", "stop"} << QByteArray("error");
    QTest::newRow("success without a file") << ok << once << QByteArray("finished 0");
    QTest::newRow("success among words") << QByteArray("printf 12345 >$2; printf 'read tcp, but SUCCESS' >&2")
                                         << once << QByteArray("finished 5");
    QTest::newRow("success in lower case") << QByteArray("printf success >&2") << once << QByteArray("error");
    QTest::newRow("progress")
        << "printf abc10,100; sleep .3; printf abc200,100; sleep .3; printf abc30,100,x; sleep .3; " + ok
        << once << QByteArray("progress 10 100|progress 30 100|finished 0");
    QTest::newRow("no progress")
        << "printf '\\377,\\377'; sleep .3; printf ,,,; sleep .3; printf abc5; sleep .3; " + ok << once
        << QByteArray("progress 0 0|progress 0 0|finished 0");
    std::mt19937 random(5);
    QByteArray noise;
    for (int i = 0; i < 40000; ++i) {
        noise += "0123456789,,,-+. \n\n\xC3\xFFgot"[random() % 24];
    }
    QTest::newRow("noise") << "while read -r line; do printf '%s' \"$line\"; done <<'END'\n" + noise +
                                  "\nEND\n" + ok
                           << once << QByteArray();
    QTest::newRow("read tcp, for ever")
        << QByteArray("printf . >>$0.runs; printf 'read tcp' >&2") << once << QByteArray("error");
    QTest::newRow("partial file: three starts keep it")
        << QByteArray("wc -c <$2 >>$0.runs; printf x >>$2; printf failed >&2") << QStringList{"5"}
        << QByteArray("error|error|error|error|error");
}

void tst_download::otherPrograms()
{
    QFETCH(QByteArray, script);
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, said);
    const TestProject folder;
    QVERIFY(QDir().mkpath(folder.path("bin")) && QDir().mkpath(folder.path("TmpData")));
    const QString application = folder.path("bin/application");
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), application));
    if (!script.isNull()) {
        const QString program = folder.file("Talverinde/grabdownloader.exe", "#!/bin/sh\n" + script + '\n');
        QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    QProcess process;
    process.start(application, QStringList{"--fetch", folder.path("")} + arguments);
    QVERIFY(process.waitForFinished());
    const QByteArray actual = process.readAllStandardOutput().trimmed();
    QVERIFY(actual == said || (said.isEmpty() && actual.endsWith("|finished 0")));
    QFile runs(folder.path("Talverinde/grabdownloader.exe.runs"));
    if (runs.open(QIODevice::ReadOnly)) {
        const QByteArray expected = script.startsWith("wc") ? "1 2" : ".....";
        QCOMPARE(runs.readAll().simplified(), expected);
    }
}

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    if (QCoreApplication::arguments().value(1) == "--fetch") {
        return fetch(QCoreApplication::arguments());
    }
    tst_download test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_download.moc"
