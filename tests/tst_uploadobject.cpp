// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"
#include "KvProjectDbOperator/CKvUpLoadObject.h"
#include "support/ScriptedServer.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>
#include <QtNetwork/QNetworkProxy>
#include <QtNetwork/QNetworkRequest>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <malloc.h>

Q_DECLARE_METATYPE(ScriptedServer::SReply)

namespace
{
/// Outcomes of one object, in order.
struct Outcomes {
    explicit Outcomes(CKvUpLoadObject& object)
    {
        QObject::connect(&object, &CKvUpLoadObject::upLoadFinished, &object,
                         [this](const QByteArray& body) { list.append("finished " + body); });
        QObject::connect(&object, &CKvUpLoadObject::NetWorkError, &object, [this] { list.append("error"); });
        QObject::connect(&object, &CKvUpLoadObject::NoLogin, &object, [this] { list.append("login"); });
    }
    QList<QByteArray> list;
};

qint64 allocatedBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<qint64>(info.uordblks + info.hblkhd);
}
} // namespace

class tst_uploadobject : public QObject
{
    Q_OBJECT

private slots:
    void replies_data();
    void replies();
    void wireContent();
    void timeouts();
    void noAddress();
    void destroyedInFlight();
    void memoryKeptByFinishedRequests();
    void debuggingProxy();
};

void tst_uploadobject::replies_data()
{
    QTest::addColumn<ScriptedServer::SReply>("reply");
    QTest::addColumn<QByteArray>("outcome");
    QTest::addColumn<bool>("delayed"); // by 3 s
    const auto row = [](const char* body, const char* outcome, bool delayed = false,
                        const char* http = "200 OK") {
        const QByteArray finished = outcome == QByteArray("finished")
                                        ? QByteArray(QByteArray("finished ") + body)
                                        : QByteArray(outcome);
        QTest::addRow("%s %s", http, body) << ScriptedServer::json(body, http) << finished << delayed;
    };
    row(R"({"status":0,"message":""})", "finished");
    row(R"({"status":1, "rows":[1]})", "finished");
    row(R"({"message":"no status"})", "finished");
    row(R"({"status":"7"})", "finished"); // not a number counts as 0
    row(R"({"status":0})", "finished", false, "500 Internal Server Error");
    row(R"({"status":-1})", "error");
    row(R"({"status":2,"message":"full"})", "error");
    row(R"({"status":401})", "login");
    row(R"({"status":403,"message":"who"})", "login", false, "403 Forbidden");
    row("{}", "error", true);
    row("[]", "error", true);
    row("[{\"status\":0}]", "error", true);
    row("", "error", true, "500 Internal Server Error");
    row("<html>", "error", true);
    QTest::newRow("cut") << ScriptedServer::cut() << QByteArray("error") << true;
    QTest::newRow("slam") << ScriptedServer::slam() << QByteArray("error") << true;
}

void tst_uploadobject::replies()
{
    QFETCH(ScriptedServer::SReply, reply);
    QFETCH(QByteArray, outcome);
    QFETCH(bool, delayed);
    ScriptedServer server;
    server.script = [&reply](const SRequest&) { return reply; };
    CKvUpLoadObject object;
    Outcomes outcomes(object);
    object.SetUrl(server.url() + "/x");
    object.SetFilePathArray("data=1");
    QElapsedTimer time;
    time.start();
    object.PostNetWorkReplyMessage();
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.list, QList<QByteArray>{outcome}, 6000);
    QCOMPARE(time.elapsed() >= 2900, delayed);
}

void tst_uploadobject::wireContent()
{
    ScriptedServer server;
    CKvUpLoadObject object;
    Outcomes outcomes(object);
    QSignalSpy progress(&object, SIGNAL(uploadProgress(qint64, qint64)));
    object.setRawHeader("other", "replaced");
    object.setRawHeader("token", "t0k3n");
    object.GetNetWorkRequset()->setRawHeader("x-extra", "yes");
    object.SetUrl(server.url() + "/flight/upload?a=1");
    const QByteArray body = "data={\"a\":\"\xE9\xA3\x9E %2B\"}&more";
    object.SetFilePathArray(body);
    for (int post = 1; post <= 2; ++post) {
        object.PostNetWorkReplyMessage();
        QTRY_COMPARE(outcomes.list.size(), post);
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
void tst_uploadobject::timeouts()
{
    ScriptedServer server;
    server.script = [](const SRequest& request) {
        return request.path == "/late"
                   ? ScriptedServer::SReply{"HTTP/1.1 200 OK\r\nContent-Length: 12\r\n\r\n", false}
                   : ScriptedServer::silence();
    };
    CKvUpLoadObject silent;
    CKvUpLoadObject late;
    Outcomes silentOutcomes(silent);
    Outcomes lateOutcomes(late);
    silent.SetUrl(server.url() + "/silent");
    late.SetUrl(server.url() + "/late");
    silent.PostNetWorkReplyMessage();
    late.PostNetWorkReplyMessage();
    QTRY_COMPARE(server.requests.size(), 2);
    QTimer::singleShot(5000, &server, [&server] { server.sendMore("/late", "{\"sta"); });
    QElapsedTimer time;
    time.start();
    QTRY_COMPARE_WITH_TIMEOUT(silentOutcomes.list, QList<QByteArray>{"error"}, 25000);
    QVERIFY(time.elapsed() >= 19000);
    QCOMPARE(lateOutcomes.list, QList<QByteArray>{});
    QTRY_COMPARE_WITH_TIMEOUT(lateOutcomes.list, QList<QByteArray>{"error"}, 10000);
    QVERIFY(time.elapsed() >= 24000);
    server.sendMore("/late", "tus\":0}");
    QTRY_COMPARE(lateOutcomes.list, (QList<QByteArray>{"error", "finished {\"status\":0}"}));
}

void tst_uploadobject::noAddress()
{
    for (const char* url : {"", "/flight/upload", "nonsense://x", "http://127.0.0.1:1/x"}) {
        CKvUpLoadObject object;
        Outcomes outcomes(object);
        object.SetUrl(url);
        object.SetFilePathArray("data=1");
        object.PostNetWorkReplyMessage();
        QTRY_COMPARE_WITH_TIMEOUT(outcomes.list, QList<QByteArray>{"error"}, 6000);
    }
}

void tst_uploadobject::destroyedInFlight()
{
    ScriptedServer server;
    server.script = [](const SRequest&) { return ScriptedServer::silence(); };
    QSignalSpy received(&server, SIGNAL(received()));
    auto* const object = new CKvUpLoadObject;
    object->SetUrl(server.url() + "/x");
    object->SetFilePathArray(QByteArray(2000000, 'x'));
    object->PostNetWorkReplyMessage();
    QVERIFY(received.wait());
    delete object;
    CKvUpLoadObject second; // before the body is out
    second.SetUrl(server.url() + "/x");
    second.SetFilePathArray(QByteArray(50000000, 'x'));
    second.PostNetWorkReplyMessage();
    QTest::qWait(20);
}

void tst_uploadobject::memoryKeptByFinishedRequests()
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
    QVERIFY2(kept < 16 * 1024, qPrintable(QString::number(kept)));
}

void tst_uploadobject::debuggingProxy()
{
    SetEnabledFiddler(true);
    const CKvUpLoadObject object;
    SetEnabledFiddler(false);
    const QNetworkProxy proxy = QNetworkProxy::applicationProxy();
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
    QCOMPARE(proxy, QNetworkProxy(QNetworkProxy::HttpProxy, "127.0.0.1", 8888));
}

QTEST_GUILESS_MAIN(tst_uploadobject)
#include "tst_uploadobject.moc"
