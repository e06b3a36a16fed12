// SPDX-License-Identifier: MIT
#include "KvProjectDbOperator/CKvDownLoadObject.h"
#include "KvProjectDbOperator/CKvDownLoadObjectEX.h"
#include "support/Rows.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"

#include <cstdio>
#include <memory>

namespace
{
using Reply = ScriptedServer::Reply;

/// A download whose signals are kept, in order.
template<class Base>
struct Watched : Base {
    explicit Watched(const QByteArray& url)
    {
        Base::SetUrl(url);
        QObject::connect(this, &Base::downLoadFinished, this, [this] { outcomes.append("finished"_l1); });
        QObject::connect(this, &Base::NetWorkError, this, [this] { outcomes.append("error"_l1); });
        QObject::connect(this, &Base::downloadProgress, this, [this](qint64 received, qint64 total) {
            progress.append(received);
            outcomes.append(QStringLiteral("progress %1 %2").arg(received).arg(total));
        });
    }
    QString ends() const { return outcomes.filter(QRegularExpression("^(finished|error)"_l1)).join(u' '); }
    bool progressRisesTo(qint64 total) const
    {
        return std::is_sorted(progress.cbegin(), progress.cend()) &&
               progress.value(progress.size() - 1, total) == total;
    }
    QStringList outcomes;
    QList<qint64> progress;
};

/// A host's subclass.
struct Download : Watched<CKvDownLoadObject> {
    using CKvDownLoadObject::ConnecttedError;
    using Watched::Watched;
    const QByteArray& data() const { return m_byteRecvData; }
};

using External = Watched<CKvDownLoadObjectEX>;

/// A home folder in which an external download finds its place.
struct Home : TestProject {
    Home()
    {
        SetHomeDir(path(""_l1));
        QDir().mkpath(path("TmpData"_l1));
    }
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

/// What this test does as another application, which lies beside another download program: prints what the
/// object signals until a while after its first end, and the size of what it got. "again" starts it so often.
int fetch(const QStringList& arguments)
{
    SetHomeDir(arguments.value(2));
    int again = arguments.value(3).toInt();
    External download("http://127.0.0.1:1/file.bin");
    const auto next = [&] {
        if (--again > 0) {
            QTimer::singleShot(0, &download, &External::slotRequestData);
        } else {
            QTimer::singleShot(300, QCoreApplication::instance(), &QCoreApplication::quit);
        }
    };
    QObject::connect(&download, &External::NetWorkError, next);
    QObject::connect(&download, &External::downLoadFinished, next);
    QTimer::singleShot(0, &download, &External::slotRequestData);
    if (arguments.value(4) == "stop"_l1) {
        QTimer::singleShot(500, &download, &External::StopDownload);
    }
    QCoreApplication::exec();
    std::printf("%s %d\n", qPrintable(download.outcomes.join(", "_l1)),
                static_cast<int>(download.GetByteData().size()));
    return 0;
}
} // namespace

class tst_download : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wholeInside()
    {
        for (const int size : {0, 1, 100 * 1024 * 1024}) {
            const QByteArray bytes = pattern(size);
            ScriptedServer server(ScriptedServer::file(bytes));
            for (const QByteArray& form : {QByteArray(), QByteArray("a=1")}) {
                Download download(server.url() + "/file");
                download.SetMethod(!form.isEmpty());
                download.SetFilePathArray("a=1");
                download.setRawHeader("token", "t0k3n");
                download.slotRequestData();
                QTRY_COMPARE_WITH_TIMEOUT(download.ends(), "finished"_l1, 60000);
                QVERIFY(download.data() == bytes);
                QVERIFY(download.progressRisesTo(size));
                const PostedRequest& request = server.requests.constLast();
                QCOMPARE(request.body, form);
                QCOMPARE(request.headers.value("token"), QByteArray("t0k3n"));
                QCOMPARE(request.headers.value("user-agent"), GetSysinfo().toLatin1());
            }
        }
    }

    void wholeOutside()
    {
        for (const int size : {0, 1, 100 * 1024 * 1024}) {
            const Home home;
            const QByteArray bytes = pattern(size);
            ScriptedServer server(ScriptedServer::file(bytes));
            External download(server.url() + "/a%20b/\xC3\xA4.bin?x=1#y");
            download.slotRequestData();
            QTRY_COMPARE_WITH_TIMEOUT(download.ends(), "finished"_l1, 60000);
            QVERIFY(download.GetByteData() == bytes);
            QVERIFY(download.progressRisesTo(size) && !download.progress.isEmpty());
            QCOMPARE(server.requests.value(0).path, QByteArray("/a%20b/%C3%A4.bin?x=1"));
            QVERIFY(QDir(home.path("TmpData"_l1)).entryList(QDir::Files).isEmpty());
        }
    }

    /// One end for each request, also where a late second one would come before the next's.
    void faultsInside()
    {
        for (const char* reply : {"404 gone", "500 ", "cut", "slam", "reset"}) {
            ScriptedServer server(ScriptedServer::reply(QLatin1String(reply)));
            Download download(server.url() + "/file");
            download.slotRequestData();
            QTRY_VERIFY2(download.ends() == "error"_l1, reply);
            server.script = [](const PostedRequest&) { return ScriptedServer::file("well"); };
            download.slotRequestData();
            QTRY_VERIFY2(download.ends() != "error"_l1, reply);
            QCOMPARE(download.ends(), "error finished"_l1);
        }
    }

    /// A stall is an error, and the reply that goes on nevertheless ends once more.
    void stall()
    {
        ScriptedServer server(ScriptedServer::file("ab", 4));
        Download download(server.url() + "/file");
        download.setTimeoutIntervel(300);
        download.slotRequestData();
        QTRY_COMPARE(download.ends(), "error"_l1);
        QCOMPARE(download.data(), QByteArray("ab"));
        server.sendMore("/file", "cd");
        QTRY_COMPARE(download.ends(), "error finished"_l1);
        QCOMPARE(download.data(), QByteArray("abcd"));
    }

    void stop()
    {
        ScriptedServer server(ScriptedServer::file("ab", 4));
        Download download(server.url() + "/file");
        download.slotRequestData();
        QTRY_COMPARE(download.data(), QByteArray("ab"));
        download.stop();
        QTRY_COMPARE(download.ends(), "error"_l1);
    }

    void secondRequest()
    {
        ScriptedServer server;
        server.script = [&](const PostedRequest&) {
            return ScriptedServer::file(QByteArray(server.requests.size() == 1 ? 5000 : 2000, 'x'));
        };
        Download download(server.url() + "/file");
        QCOMPARE(download.GetDeltaProgress(), 0);
        for (const char* ends : {"finished", "finished finished"}) {
            download.slotRequestData();
            QTRY_COMPARE(download.ends(), QLatin1String(ends));
        }
        QCOMPARE(download.data().size(), 2000);
        QVERIFY(download.GetDeltaProgress() <= 2000 - 5000 || download.progress.count(2000) > 1);
    }

    /// The reply of a redirection is what is downloaded; and of a body only what was told of it.
    void takenAsItComes()
    {
        ScriptedServer target;
        for (const char* const status : {"301", "302", "303", "307", "308", "longer"}) {
            const bool longer = status == QByteArray("longer");
            ScriptedServer server(
                longer ? ScriptedServer::file("whole and more", 5)
                       : ScriptedServer::reply(QString::fromUtf8(status + (' ' + target.url() + "/target"))));
            Download download(server.url() + "/file");
            download.slotRequestData();
            QTRY_COMPARE(download.ends(), "finished"_l1);
            QCOMPARE(download.data(), longer ? QByteArray("whole") : target.url() + "/target");
        }
        QCOMPARE(target.requests.size(), 0);
    }

    void firstConnectionErrorCounts()
    {
        Download download("");
        for (const auto error :
             {QNetworkReply::NoError, QNetworkReply::TimeoutError, QNetworkReply::TimeoutError}) {
            download.ConnecttedError(error);
        }
        QCOMPARE(download.ends(), "error"_l1);
    }

    void faultsOutside()
    {
        struct Case {
            const char* reply;
            int times;
            const char* end;
            int requests;
        };
        for (const Case& c :
             {Case{"cut", 4, "finished", 5}, Case{"reset", 4, "finished", 5}, Case{"cut", 5, "error", 5},
              Case{"404 gone", 1, "error", 1},
              Case{"500 SUCCESS read tcp", 1, "error", 1}, // what would be success
              Case{"302 file:///etc/passwd", 1, "error", 1}, Case{"302 /file.bin", 99, "error", 11}}) {
            const Home home;
            ScriptedServer server;
            server.script = [&](const PostedRequest&) {
                return server.requests.size() <= c.times ? ScriptedServer::reply(QLatin1String(c.reply))
                                                         : ScriptedServer::file("whole!");
            };
            External download(server.url() + "/file.bin");
            download.slotRequestData();
            QTRY_COMPARE_WITH_TIMEOUT(download.ends(), QLatin1String(c.end), 20000);
            server.settle();
            QCOMPARE(download.ends(), QLatin1String(c.end));
            QVERIFY2(download.ends() == "error"_l1 || download.GetByteData() == "whole!", c.reply);
            QCOMPARE(server.requests.size(), c.requests);
        }
    }

    void resumesTheSameFileOnly_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("after");
        QTest::addColumn<bool>("honest"); // heeds If-Range
        QTest::addColumn<int>("size");
        const QByteArray date = "Date: Tue, 03 Nov 2026 10:00:00 GMT\r\n";
        const QByteArray monday = date + "Last-Modified: Mon, 02 Nov 2026 10:00:00 GMT\r\n";
        const QByteArray tuesday = date + "Last-Modified: Tue, 03 Nov 2026 09:00:00 GMT\r\n";
        const QByteArray one = "ETag: \"1\"\r\n", two = "ETag: \"2\"\r\n", weak = "ETag: W/\"1\"\r\n", none;
        QTest::newRow("the same") << one << one << true << 300000;
        QTest::newRow("tags") << one << two << true << 300000;
        QTest::newRow("tags, no If-Range") << one << two << false << 300000;
        QTest::newRow("a tag, then none") << one << none << true << 300000;
        QTest::newRow("dates") << monday << tuesday << true << 300000;
        QTest::newRow("dates, no If-Range") << monday << tuesday << false << 300000;
        QTest::newRow("weak tag, then none") << weak << none << false << 300000;
        QTest::newRow("longer") << none << none << false << 400000;
        QTest::newRow("as long as the part") << none << none << false << 200000;
    }
    /// Stopped half-way, a download goes on from where it was, and sends for each byte once, unless the file
    /// has become another one.
    void resumesTheSameFileOnly()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, after);
        QFETCH(bool, honest);
        QFETCH(int, size);
        const Home home;
        const QByteArray old = pattern(300000);
        const bool same = !before.isEmpty() && before == after;
        const QByteArray bytes = same ? old : QByteArray(size, 'n');
        ScriptedServer server;
        server.script = [&](const PostedRequest& request) {
            Reply reply = ScriptedServer::file(bytes);
            const bool first = server.requests.size() == 1;
            const QByteArray known = request.headers.value("if-range");
            const int from = request.headers.value("range").mid(6).split('-').value(0).toInt();
            if (first) {
                reply = ScriptedServer::file(old.left(200000), old.size());
            } else if (from > 0 && (!honest || known.isEmpty() || after.contains(known))) {
                const QByteArray total = '/' + QByteArray::number(size);
                const QByteArray range = QByteArray::number(from) + '-' + QByteArray::number(size - 1);
                reply = ScriptedServer::file(bytes.mid(from));
                reply.wire.replace("200 OK", (from < size ? "206 Part\r\nContent-Range: bytes " + range
                                                          : "416 No\r\nContent-Range: bytes *") +
                                                 total);
            }
            reply.wire.replace("Content-Length", (first ? before : after) + "Content-Length");
            return reply;
        };
        External download(server.url() + "/file.bin");
        download.slotRequestData();
        QTRY_COMPARE(QFileInfo(home.path("TmpData/file.bin"_l1)).size(), qint64(200000));
        download.StopDownload();
        QTRY_COMPARE(download.ends(), "error"_l1);
        download.slotRequestData();
        QTRY_COMPARE(download.ends(), "error finished"_l1);
        QVERIFY(download.GetByteData() == bytes);
        QCOMPARE(server.requests.value(1).headers.value("range"), QByteArray("bytes=200000-"));
        QVERIFY(!same || server.requests.size() == 2);
    }

    /// Other programs in the place of the downloader: $2 is the target file, say prints and lets time pass.
    void otherPrograms_data() { addRows(); }
    void otherPrograms()
    {
        const TestProject folder;
        QVERIFY(QDir().mkpath(folder.path("bin"_l1)) && QDir().mkpath(folder.path("TmpData"_l1)));
        const QString application = folder.path("bin/application"_l1);
        QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), application));
        const QString program = folder.path("Talverinde/grabdownloader.exe"_l1);
        folder.file("Talverinde/grabdownloader.exe.runs"_l1);
        if (!cell("script").isEmpty()) {
            folder.file("Talverinde/grabdownloader.exe"_l1,
                        "#!/bin/sh\nok() { printf SUCCESS >&2; }\nsay() { printf \"$1\"; sleep .3; }\n" +
                            cell("script").toUtf8() + '\n');
            QVERIFY(QFile::setPermissions(program, QFile::ReadOwner | QFile::ExeOwner));
        }
        QProcess process;
        process.start(application,
                      QStringList{"--fetch"_l1, folder.path(""_l1)} + cell("starts").split(u' '));
        QVERIFY(process.waitForFinished());
        const QString said = QString::fromUtf8(process.readAllStandardOutput().trimmed());
        QCOMPARE(said, cell("said"));
        QCOMPARE(QString::fromUtf8(TestProject::contents(program + ".runs"_l1).simplified()), cell("runs"));
    }
};

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    if (QCoreApplication::arguments().value(1) == "--fetch"_l1) {
        return fetch(QCoreApplication::arguments());
    }
    tst_download test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_download.moc"
