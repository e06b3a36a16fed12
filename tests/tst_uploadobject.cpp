// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"
#include "support/Rows.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"
#include "support/Upload.h"

#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkProxy>
#include <QtNetwork/QNetworkRequest>
#include <QtTest/QtTest>

#include <malloc.h>

#include <memory>

namespace
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool Sanitized = true; // freed memory is kept
#else
constexpr bool Sanitized = false;
#endif

/// A line that takes connections and hardly a byte.
struct DeadLine : QTcpServer {
    DeadLine()
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket* const socket = nextPendingConnection();
            socket->setReadBufferSize(1024);
            connect(socket, &QTcpSocket::disconnected, socket, &QTcpSocket::deleteLater);
            connect(socket, &QTcpSocket::disconnected, this, [this] { ++ended; });
            ++connections;
        });
    }
    QByteArray url() const { return "http://127.0.0.1:" + QByteArray::number(serverPort()) + "/x"; }
    int connections = 0;
    int ended = 0;
};

int entries(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

qint64 allocatedBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<qint64>(info.uordblks) + static_cast<qint64>(info.hblkhd);
}
} // namespace

class tst_uploadobject : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void replies_data() { addRows(); }
    void replies()
    {
        const QString reply = cell("reply");
        ScriptedServer server(ScriptedServer::reply(reply));
        Upload upload(server.url() + "/x");
        QElapsedTimer time; // which is what is promised
        time.start();
        upload.PostNetWorkReplyMessage();
        const QString body = cell("outcome") == "finished"_l1 ? reply.mid(3) : QString();
        QTRY_COMPARE_WITH_TIMEOUT(upload.outcomes, QStringList{cell("outcome") + body}, 6000);
        QVERIFY(cell("after").isEmpty() || time.elapsed() > 2800); // a coarse timer: 5 % early at most
    }

    void wireContent()
    {
        ScriptedServer server;
        const QByteArray body = "data={\"a\":\"\xE9\xA3\x9E %2B\"}&more";
        Upload upload(server.url() + "/flight/upload?a=1", body);
        QSignalSpy progress(&upload, SIGNAL(uploadProgress(qint64, qint64)));
        upload.setRawHeader("other", "replaced");
        upload.setRawHeader("token", "t0k3n");
        upload.GetNetWorkRequset()->setRawHeader("x-extra", "yes");
        for (int post = 1; post <= 2; ++post) {
            upload.PostNetWorkReplyMessage();
            QTRY_COMPARE(upload.outcomes.size(), post);
            const PostedRequest& request = server.requests.constLast();
            QCOMPARE(request.path, QByteArray("/flight/upload?a=1"));
            QCOMPARE(request.body, body);
            QCOMPARE(request.headers.value("token"), QByteArray("t0k3n"));
            QCOMPARE(request.headers.value("x-extra"), QByteArray("yes"));
            QCOMPARE(request.headers.value("user-agent"), GetSysinfo().toLatin1());
            QCOMPARE(request.headers.value("content-type"), QByteArray("application/x-www-form-urlencoded"));
            QVERIFY(!request.headers.contains("other"));
        }
        QVERIFY(progress.contains({qint64(body.size()), qint64(body.size())}));
    }

    /// One server says nothing; the other goes on after the 20 s, which are over for it 5 s later as it sent
    /// something in between. The late reply is judged as well.
    void timeouts()
    {
        ScriptedServer server;
        server.script = [](const PostedRequest& request) {
            return request.path == "/late" ? ScriptedServer::file("", 12)
                                           : ScriptedServer::reply("silence"_l1);
        };
        Upload silent(server.url() + "/silent");
        Upload late(server.url() + "/late");
        silent.PostNetWorkReplyMessage();
        late.PostNetWorkReplyMessage();
        QTRY_COMPARE(server.requests.size(), 2);
        QTimer::singleShot(5000, &server, [&server] { server.sendMore("/late", "{\"sta"); });
        QElapsedTimer time;
        time.start();
        QTRY_COMPARE_WITH_TIMEOUT(silent.outcomes, QStringList{"error"_l1}, 25000);
        QVERIFY(time.elapsed() >= 19000);
        QCOMPARE(late.outcomes, QStringList());
        QTRY_COMPARE_WITH_TIMEOUT(late.outcomes, QStringList{"error"_l1}, 10000);
        QVERIFY(time.elapsed() >= 24000);
        server.sendMore("/late", "tus\":0}");
        QTRY_COMPARE(late.outcomes, (QStringList{"error"_l1, "finished {\"status\":0}"_l1}));
    }

    void destroyedInFlight()
    {
        ScriptedServer server(ScriptedServer::reply("silence"_l1));
        {
            Upload upload(server.url() + "/x", QByteArray(2000000, 'x'));
            upload.PostNetWorkReplyMessage();
            QTRY_COMPARE(server.requests.size(), 1);
        }
        Upload second(server.url() + "/x", QByteArray(50000000, 'x')); // goes before the body is out
        QSignalSpy connected(&server, &QTcpServer::newConnection);
        second.PostNetWorkReplyMessage();
        QVERIFY(connected.wait());
    }

    void memoryKeptByFinishedRequests()
    {
        if (Sanitized) {
            QTest::qSkip("a sanitizer keeps freed memory", __FILE__, __LINE__); // the macro is not pedantic
            return;
        }
        ScriptedServer server;
        CKvUpLoadObject object;
        QSignalSpy finished(&object, SIGNAL(upLoadFinished(QByteArray)));
        object.SetUrl(server.url() + "/x");
        const auto post = [&](int times) {
            for (int i = 0; i < times; ++i) {
                object.SetFilePathArray(QByteArray(300000, 'x'));
                object.PostNetWorkReplyMessage();
                QVERIFY(finished.wait());
                server.requests.clear();
                finished.clear(); // the reply bodies
            }
        };
        post(20);
        const qint64 before = allocatedBytes();
        post(500);
        const qint64 kept = (allocatedBytes() - before) / 500;
        qInfo() << "bytes kept by a finished request:" << kept;
        QVERIFY2(kept < 16384, qPrintable(QString::number(kept)));
    }

    /// More posts that are never answered than one manager has connections, and then a server that is well.
    /// A late reply counts, and by the way in which replies are read it counts for the newest post.
    void silentLine()
    {
        ScriptedServer server(ScriptedServer::reply("silence"_l1));
        Upload upload("");
        for (int post = 0; post < 14; ++post) {
            upload.SetUrl(server.url() + "/" + QByteArray::number(post));
            upload.PostNetWorkReplyMessage();
            QTRY_COMPARE(server.requests.size(), post + 1);
        }
        QCOMPARE(upload.outcomes, QStringList());
        const QByteArray body = R"({"status":1})";
        server.sendMore("/13", ScriptedServer::file(body).wire);
        QTRY_COMPARE(upload.outcomes, QStringList{QString::fromUtf8("finished " + body)});
        server.sendMore("/0",
                        ScriptedServer::file(body).wire.replace("\r\n\r\n", "\r\nSet-Cookie: a=b\r\n\r\n"));
        QTRY_COMPARE(upload.outcomes.size(), 2);
        server.script = [](const PostedRequest&) { return ScriptedServer::accepted(); };
        upload.PostNetWorkReplyMessage();
        QTRY_COMPARE(upload.outcomes.size(), 3);
        QVERIFY(upload.outcomes.constLast().startsWith("finished"_l1));
        QCOMPARE(server.requests.constLast().headers["cookie"], QByteArray("a=b")); // of another manager
    }

    /// A receiver runs an event loop in a reply's signal, in which that reply's manager is given up.
    void givenUpInReceiver()
    {
        DeadLine line;
        Upload upload(line.url());
        int posts = 0;
        connect(&upload, &CKvUpLoadObject::uploadProgress, &upload, [&] {
            while (posts < 25) {
                upload.PostNetWorkReplyMessage();
                ++posts;
                QTRY_COMPARE(line.connections, posts + 1);
            }
        });
        upload.PostNetWorkReplyMessage();
        QTRY_COMPARE(posts, 25);
        QTRY_VERIFY(line.ended > 0);
        QCOMPARE(upload.outcomes, QStringList());
    }

    /// A post every 20 s, each of which takes 20 MB: the same rows again and again, or others each time.
    void hourOfSilence()
    {
        constexpr int Size = 20000000;
        for (const int bodies : {3, 18}) {
            DeadLine line;
            const int threads = entries("/proc/self/task"_l1);
            const int files = entries("/proc/self/fd"_l1);
            const qint64 before = allocatedBytes();
            qint64 most = 0;
            Upload upload(line.url());
            for (int post = 0; post < 180; ++post) {
                upload.SetFilePathArray(
                    QByteArray(Size, bodies == 3 ? 'x' : static_cast<char>('0' + post % 64)));
                upload.PostNetWorkReplyMessage();
                QTRY_COMPARE(line.connections, post + 1);
                most = qMax(most, allocatedBytes() - before);
                QVERIFY(entries("/proc/self/task"_l1) - threads <= 6);
                const int sockets = line.findChildren<QTcpSocket*>().size(); // the line's own ends
                QVERIFY(entries("/proc/self/fd"_l1) - files - sockets <= 16 + 6 * 4);
            }
            QVERIFY2(Sanitized || most < bodies * qint64(Size), qPrintable(QString::number(most)));
        }
    }

    /// Not even to a server that takes all; the request says it to a newer Qt, which would follow.
    void redirectsAreNotFollowed()
    {
        ScriptedServer target;
        ScriptedServer server;
        server.script = [&](const PostedRequest& request) {
            return ScriptedServer::reply(
                QString::fromUtf8(request.path.mid(1) + ' ' + target.url() + "/target"));
        };
        std::vector<std::unique_ptr<Upload>> uploads;
        for (const char* const status : {"301", "302", "303", "307", "308"}) {
            uploads.push_back(std::make_unique<Upload>(server.url() + '/' + status));
            QCOMPARE(uploads.back()->GetNetWorkRequset()->attribute(QNetworkRequest::RedirectPolicyAttribute),
                     QVariant(QNetworkRequest::ManualRedirectPolicy));
            uploads.back()->setRawHeader("token", "t0k3n");
            uploads.back()->PostNetWorkReplyMessage();
        }
        for (const auto& upload : uploads) {
            QTRY_COMPARE(upload->outcomes, QStringList{"error"_l1});
        }
        QCOMPARE(server.requests.size(), 5);
        QCOMPARE(target.requests.size(), 0);
    }

    void debuggingProxy()
    {
        SetEnabledFiddler(true);
        const CKvUpLoadObject object;
        SetEnabledFiddler(false);
        const QNetworkProxy proxy = QNetworkProxy::applicationProxy();
        QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
        QCOMPARE(proxy, QNetworkProxy(QNetworkProxy::HttpProxy, "127.0.0.1"_l1, 8888));
    }
};

QTEST_GUILESS_MAIN(tst_uploadobject)
#include "tst_uploadobject.moc"
