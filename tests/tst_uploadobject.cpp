// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"
#include "KvProjectDbOperator/CKvUpLoadObject.h"
#include "support/Rows.h"
#include "support/ScriptedServer.h"

#include <QtNetwork/QNetworkProxy>
#include <QtNetwork/QNetworkRequest>
#include <QtTest/QtTest>

#include <malloc.h>

namespace
{
/// An upload whose outcomes are kept, in order.
struct Upload : CKvUpLoadObject {
    explicit Upload(const QByteArray& url, const QByteArray& body = "data=1")
    {
        SetUrl(url);
        SetFilePathArray(body);
        connect(this, &CKvUpLoadObject::upLoadFinished, this,
                [this](const QByteArray& reply) { outcomes.append("finished " + reply); });
        connect(this, &CKvUpLoadObject::NetWorkError, this, [this] { outcomes.append("error"); });
        connect(this, &CKvUpLoadObject::NoLogin, this, [this] { outcomes.append("login"); });
    }
    QStringList outcomes;
};

qint64 allocatedBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<qint64>(info.uordblks) + static_cast<qint64>(info.hblkhd);
}
} // namespace

class tst_uploadobject : public QObject
{
    Q_OBJECT

private slots:
    void replies_data() { addRows(); }
    void replies()
    {
        const QString reply = cell("reply");
        ScriptedServer server(ScriptedServer::reply(reply));
        Upload upload(server.url() + "/x");
        QElapsedTimer time;
        time.start();
        upload.PostNetWorkReplyMessage();
        const QString body = cell("outcome") == "finished" ? reply.mid(3) : QString();
        QTRY_COMPARE_WITH_TIMEOUT(upload.outcomes, QStringList{cell("outcome") + body}, 6000);
        QCOMPARE(time.elapsed() > 2800, !cell("after").isEmpty()); // a coarse timer: 5 % early at most
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
            const SRequest& request = server.requests.constLast();
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
        server.script = [](const SRequest& request) {
            return request.path == "/late" ? ScriptedServer::file("", 12) : ScriptedServer::reply("silence");
        };
        Upload silent(server.url() + "/silent");
        Upload late(server.url() + "/late");
        silent.PostNetWorkReplyMessage();
        late.PostNetWorkReplyMessage();
        QTRY_COMPARE(server.requests.size(), 2);
        QTimer::singleShot(5000, &server, [&server] { server.sendMore("/late", "{\"sta"); });
        QElapsedTimer time;
        time.start();
        QTRY_COMPARE_WITH_TIMEOUT(silent.outcomes, QStringList{"error"}, 25000);
        QVERIFY(time.elapsed() >= 19000);
        QCOMPARE(late.outcomes, QStringList());
        QTRY_COMPARE_WITH_TIMEOUT(late.outcomes, QStringList{"error"}, 10000);
        QVERIFY(time.elapsed() >= 24000);
        server.sendMore("/late", "tus\":0}");
        QTRY_COMPARE(late.outcomes, (QStringList{"error", "finished {\"status\":0}"}));
    }

    void noAddress()
    {
        for (const char* url : {"", "/flight/upload", "nonsense://x", "http://127.0.0.1:1/x"}) {
            Upload upload(url);
            upload.PostNetWorkReplyMessage();
            QTRY_COMPARE_WITH_TIMEOUT(upload.outcomes, QStringList{"error"}, 6000);
        }
    }

    void destroyedInFlight()
    {
        ScriptedServer server(ScriptedServer::reply("silence"));
        {
            Upload upload(server.url() + "/x", QByteArray(2000000, 'x'));
            upload.PostNetWorkReplyMessage();
            QTRY_COMPARE(server.requests.size(), 1);
        }
        Upload second(server.url() + "/x", QByteArray(50000000, 'x')); // goes before the body is out
        second.PostNetWorkReplyMessage();
        QTest::qWait(20);
    }

    void memoryKeptByFinishedRequests()
    {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        QSKIP("a sanitizer keeps freed memory");
#endif
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

    void debuggingProxy()
    {
        SetEnabledFiddler(true);
        const CKvUpLoadObject object;
        SetEnabledFiddler(false);
        const QNetworkProxy proxy = QNetworkProxy::applicationProxy();
        QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
        QCOMPARE(proxy, QNetworkProxy(QNetworkProxy::HttpProxy, "127.0.0.1", 8888));
    }
};

QTEST_GUILESS_MAIN(tst_uploadobject)
#include "tst_uploadobject.moc"
