// SPDX-License-Identifier: MIT
#include "Front.h"
#include "Ingest.h"
#include "SqliteLedger.h"
#include "support/Rows.h"
#include "support/ServerLoad.h"

#include <boost/asio/post.hpp>

#include <QtCore/QRegularExpression>
#include <QtNetwork/QSslCertificate>

#include <csignal>

namespace
{
/// A server in this process, which gives its clients less time than the program does.
class ImpatientServer
{
public:
    explicit ImpatientServer(const Limits& limits)
        : m_front(m_io, limits, {m_ingest, m_gate, m_metrics, m_accessLog}, nullptr)
        , url(QString::fromStdString(m_front.listen("127.0.0.1", 0)))
        , m_thread([this] { m_io.run(); })
    {
    }
    ~ImpatientServer()
    {
        boost::asio::post(m_io, [this] { m_front.stop(); });
        m_thread.join();
    }
    std::size_t reserved() { return m_front.bound().used(); }

private:
    boost::asio::io_context m_io;
    SqliteLedger m_ledger{LedgerInMemory};
    Gate m_gate{m_ledger, Secret.toStdString(), false};
    Ingest m_ingest{m_io, m_ledger};
    Metrics m_metrics;
    AccessLog m_accessLog{""};
    Front m_front;

public:
    const QString url;

private:
    std::thread m_thread;
};

Limits shortLimits()
{
    using namespace std::chrono_literals;
    Limits limits;
    limits.memory = 1 << 20;
    limits.idle = limits.slowWindow = limits.drain = 300ms;
    limits.tick = 20ms;
    return limits;
}

} // namespace

class tst_server : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// Each is answered before a body was sent, and the connection ends; others are served.
    void refusals_data() { addRows(); }
    void refusals()
    {
        static const ServerOnDisk server({"--token"_l1, "secret"_l1, "--max-body"_l1, "1000000"_l1});
        RawClient client(server.url());
        QByteArray bytes = cell("bytes").toLatin1();
        client.send(bytes.replace("\\r\\n", "\r\n").replace("%LONG%", QByteArray(20000, 'x')));
        QCOMPARE(client.status(), cell("status").toInt());
        QVERIFY(client.isClosed());
        QCOMPARE(RawClient(server.url()).post("/flight/upload", Secret, R"(data={"id":"m1"})"), 0);
    }

    void forms_data() { addRows(); }
    void forms()
    {
        static const ServerOnDisk server;
        RawClient client(server.url());
        QCOMPARE(client.post(cell("path").toLatin1(), Secret, cell("body").toUtf8()), cell("status").toInt());
        QCOMPARE(client.post("/flight/upload", Secret, R"(data={"id":"m1"})"), 0); // on the same connection
    }

    void requestsInARow()
    {
        const ServerOnDisk server;
        RawClient client(server.url());
        QByteArray bytes;
        for (int i = 0; i < 50; ++i) {
            bytes += postText(LogPath, Secret, logBody(logRow(QByteArray::number(i))));
        }
        for (const char byte : bytes.left(300)) {
            client.send(QByteArray(1, byte));
        }
        client.send(bytes.mid(300));
        for (int i = 0; i < 50; ++i) {
            QCOMPARE(client.status(), 0);
        }
        QCOMPARE(server.text("SELECT count(*) FROM record WHERE times = 1"), "50"_l1);
        client.send("POST " + LogPath +
                    " HTTP/1.1\r\nToken: secret\r\nExpect: 100-continue\r\nContent-Length: 46\r\n\r\n");
        QVERIFY(client.socket().waitForReadyRead(10000));
        QVERIFY(client.socket().readAll().startsWith("HTTP/1.1 100 "));
    }

    /// What an owner sent is nobody else's: not to be seen, counted or changed with another token.
    void owners()
    {
        const ServerOnDisk server(QStringList{});
        const QByteArray alice = server.addToken("alice"_l1);
        const QByteArray bob = server.addToken("bob"_l1);
        QVERIFY(alice.size() >= 43 && alice != bob);
        const QByteArray form = R"(data={"id":"m1","name":"of alice"})";
        QCOMPARE(RawClient(server.url()).post("/flight/upload", alice, form), 0);
        QCOMPARE(RawClient(server.url()).post("/flight/upload", bob, R"(data={"id":"m1","name":"of bob"})"),
                 0);
        QCOMPARE(RawClient(server.url()).post("/flight/upload", Secret, form), 403); // open no more
        QCOMPARE(server.text("SELECT group_concat(owner || times || json, ' ') FROM \"row\""),
                 R"(alice1{"id":"m1","name":"of alice"} bob1{"id":"m1","name":"of bob"})"_l1);
        const QByteArray file =
            TestProject::contents(server.ledger) + TestProject::contents(server.ledger + "-wal"_l1);
        QVERIFY(!file.contains(alice) && !file.contains(bob));
    }

    void revoked()
    {
        const ServerOnDisk server(QStringList{});
        const QByteArray token = server.addToken("alice"_l1);
        RawClient client(server.url());
        RawClient before(server.url()); // its request is let in before
        before.send(postText("/flight/upload", token, R"(data={"id":"m)", 16));
        QCOMPARE(client.post("/flight/upload", token, R"(data={"id":"m1"})"), 0);
        const QByteArray newer = server.addToken("alice"_l1);
        QCOMPARE(server.token({"revoke"_l1, "alice"_l1, "--all-but-newest"_l1}).exitCode, 0);
        QCOMPARE(client.post("/flight/upload", token, R"(data={"id":"m2"})"), 403);
        before.send("3\"}");
        QCOMPARE(before.status(), 403);
        QCOMPARE(RawClient(server.url()).post("/flight/upload", newer, R"(data={"id":"m4"})"), 0);
        QCOMPARE(server.token({"revoke"_l1, "alice"_l1}).exitCode, 0);
        QCOMPARE(RawClient(server.url()).post("/flight/upload", newer, R"(data={"id":"m5"})"), 403);
        QCOMPARE(server.token({"list"_l1}).out.count("revoked"), 2);
        QCOMPARE(server.text("SELECT group_concat(id) FROM record"), "m1,m4"_l1);
        const QString mistyped = server.folder.path("legder.db"_l1);
        QCOMPARE(runProgram("flightserver"_l1, {"token"_l1, "list"_l1, "--ledger"_l1, mistyped}).exitCode, 2);
        QVERIFY(!QFile::exists(mistyped));
    }

    /// Bytes that are announced are room that others do not get; it comes back when the client goes.
    void room()
    {
        ImpatientServer server([] {
            Limits limits = shortLimits();
            limits.slowWindow = limits.idle = std::chrono::seconds(30);
            return limits;
        }());
        auto holder = std::make_unique<RawClient>(server.url);
        holder->send(postText(LogPath, Secret, "data=", 900000));
        QTRY_VERIFY(server.reserved() > 900000);
        RawClient half(server.url);
        half.send(QByteArray(15000, 'x'));
        QTRY_VERIFY(server.reserved() > 915000);
        RawClient other(server.url);
        other.send(postText(LogPath, Secret, "", 200000));
        QCOMPARE(other.status(), 503);
        QCOMPARE(RawClient(server.url).post(LogPath, Secret, logBody(logRow("1"))), 0);
        holder.reset();
        half.send("\r\n\r\n");
        QCOMPARE(half.status(), 400);
        QTRY_COMPARE(server.reserved(), std::size_t{0});
        const QByteArray rows =
            logRow("1") + (',' + logRow("1")).repeated(10000); // more in memory than on the line
        QCOMPARE(RawClient(server.url).post(LogPath, Secret, logBody(rows)), 0);
        QTRY_COMPARE(server.reserved(), std::size_t{0});
        QCOMPARE(RawClient(server.url)
                     .post(LogPath, Secret,
                           logBody(R"({"id":"1"})" + QByteArray(R"(,{"id":"1"})").repeated(60000))),
                 413); // nor will there ever be
        QTRY_COMPARE(server.reserved(), std::size_t{0});
    }

    /// With clients that say nothing, half a header, half a body, much of one, and one that nobody wants.
    void losesPatience()
    {
        for (const QByteArray& bytes :
             {QByteArray(), QByteArray("POST /flight/upl"), postText(LogPath, Secret, "data=", 1000),
              postText(LogPath, Secret, QByteArray(100000, 'x'), 200000),
              postText(LogPath, "other", QByteArray(100000, 'x'), 200000)}) {
            ImpatientServer server(shortLimits());
            RawClient client(server.url);
            client.send(bytes);
            client.rest();
            QCOMPARE(client.socket().state(), QAbstractSocket::UnconnectedState);
            QTRY_COMPARE(server.reserved(), std::size_t{0});
        }
    }

    /// Whoever is there in silence neither keeps others away nor costs much; beyond the limit the longest
    /// idle go.
    void manyConnections()
    {
        ServerOnDisk server({"--token"_l1, "secret"_l1, "--max-connections"_l1, "900"_l1});
        const auto memory = [&server] {
            const QByteArray status =
                TestProject::contents(QStringLiteral("/proc/%1/status").arg(server.program->processId()));
            return status.mid(status.indexOf("VmRSS:") + 6).trimmed().split(' ')[0].toInt();
        };
        QCOMPARE(RawClient(server.url()).post(LogPath, Secret, logBody(logRow("0"))), 0);
        const int before = memory();
        std::vector<std::unique_ptr<RawClient>> clients;
        clients.reserve(1000);
        for (int i = 0; i < 1000; ++i) {
            clients.push_back(std::make_unique<RawClient>(server.url()));
        }
        QCOMPARE(RawClient(server.url()).post(LogPath, Secret, logBody(logRow("1"))), 0);
        QVERIFY(clients[0]->isClosed());
        QCOMPARE(clients[999]->post(LogPath, Secret, logBody(logRow("2"))), 0);
        const int kib = memory() - before;
        QVERIFY2(kib < 2 * 1000 + 1000,
                 qPrintable(QString::number(kib))); // and what the allocator takes ahead
    }

    void endsGracefully()
    {
        ServerOnDisk server({"--token"_l1, "secret"_l1, "--admin"_l1, "127.0.0.1:0"_l1});
        const QString admin = server.program->address("flightserver watched on "_l1);
        RawClient idle(server.url());
        RawClient busy(server.url());
        const QByteArray request = postText(LogPath, Secret, logBody(logRow("last")));
        busy.send(request.left(request.size() - 5));
        QCOMPARE(idle.post(LogPath, Secret, logBody(logRow("first"))),
                 0); // so the other one's header has been read
        server.program->terminate();
        QVERIFY(idle.isClosed());
        QVERIFY(get(admin, "/health").contains(" 200 OK") && get(admin, "/ready").contains(" 503 "));
        busy.send(request.right(5));
        QCOMPARE(busy.status(), 0);
        QVERIFY(server.program->waitForFinished(10000));
        QCOMPARE(server.program->exitCode(), 0);
        QCOMPARE(server.text("SELECT count(*) FROM record"), "2"_l1);
    }

    /// A ledger that cannot be written: quick answers, nothing acknowledged, and well again by itself.
    void lockedLedger()
    {
        ServerOnDisk server({"--token"_l1, "secret"_l1, "--admin"_l1, "127.0.0.1:0"_l1});
        const QString admin = server.program->address("flightserver watched on "_l1);
        SqliteFile other = server.open();
        QVERIFY(get(admin, "/ready").contains(" 200 OK"));
        other.execute("BEGIN IMMEDIATE");
        QCOMPARE(RawClient(server.url()).post(LogPath, Secret, logBody(logRow("1"))), 500);
        QVERIFY(get(admin, "/ready").contains(" 503 "));
        QVERIFY(get(admin, "/health").contains(" 200 OK"));
        QVERIFY(get(admin, "/metrics").contains("flightserver_failed_commits_total 1\n"));
        other.execute("ROLLBACK");
        QVERIFY(get(admin, "/ready").contains(" 200 OK"));
        QCOMPARE(RawClient(server.url()).post(LogPath, Secret, logBody(logRow("2"))), 0);
        QCOMPARE(server.text("SELECT group_concat(id) FROM record"), "2"_l1);
    }

    void metrics()
    {
        ServerOnDisk server({"--token"_l1, "secret"_l1, "--admin"_l1, "127.0.0.1:0"_l1});
        const QString admin = server.program->address("flightserver watched on "_l1);
        RawClient client(server.url());
        client.post(LogPath, Secret, logBody(logRow("1") + ',' + logRow("2")));
        client.post(LogPath, Secret, logBody(logRow("2")));
        client.post(LogPath, Secret, "data=x");
        RawClient(server.url()).post(LogPath, "other", "");
        for (const char* line : {R"(flightserver_requests_total{path="/flight/detailupload",status="0"} 2)",
                                 R"(flightserver_requests_total{path="/flight/detailupload",status="400"} 1)",
                                 R"(flightserver_refusals_total{reason="token"} 1)",
                                 R"(flightserver_refusals_total{reason="form"} 1)",
                                 "flightserver_rows_total 3", "flightserver_rows_again_total 1",
                                 "flightserver_commits_total 2", "flightserver_reserved_bytes 0"}) {
            QTRY_VERIFY2(get(admin, "/metrics").contains(QByteArray(line) + '\n'), line);
        }
        QVERIFY(get(server.url(), "/metrics").contains(" 404 "));
        QVERIFY(get(admin, "/ready?verbose").contains(" 200 OK"));
        QVERIFY(get(admin, "/flight/upload").contains(" 404 "));
    }

    void accessLog()
    {
        const TestProject folder;
        const QString log = folder.path("access.log"_l1);
        {
            ServerOnDisk server({"--token"_l1, "secret"_l1, "--access-log"_l1, log});
            RawClient(server.url()).post(LogPath, Secret, logBody(logRow("body-text")));
            RawClient(server.url()).post("/an/other/path", "wrong-token", "body-text");
            QVERIFY(QFile::rename(log, log + ".1"_l1));
            ::kill(static_cast<pid_t>(server.program->processId()), SIGHUP);
            QTRY_VERIFY(QFile::exists(log));
            RawClient(server.url()).post(LogPath, Secret, logBody(logRow("body-text")));
        }
        const QByteArray old = TestProject::contents(log + ".1"_l1);
        QCOMPARE(old.count('\n'), 2);
        QVERIFY(old.contains("/flight/detailupload owner=demo status=0 rows=1 bytes="));
        QVERIFY(old.contains(" - owner=- status=404 "));
        QCOMPARE(TestProject::contents(log).count('\n'), 1);
        for (const char* secret : {"secret", "wrong-token", "body-text", "other"}) {
            QVERIFY(!old.contains(secret));
        }
    }

    /// As docs/server.md has it, in its words and while rows come in: the copy, put in the ledger's place,
    /// holds whatever had been acknowledged before.
    void backedUp()
    {
        ServerOnDisk server;
        Senders senders(server.url(), 4, "row");
        QTRY_VERIFY(senders.count() > 500);
        const QSet<QByteArray> before = senders.acknowledged();
        QProcess shell;
        shell.setWorkingDirectory(QFileInfo(server.ledger).path());
        static const QRegularExpression recipe(R"(printf .*\.backup copy\.db.*)"_l1);
        shell.start(
            "sh"_l1,
            {"-c"_l1, recipe.match(QString::fromUtf8(TestProject::contents(":/server.md"_l1))).captured()});
        QVERIFY(shell.waitForFinished() && shell.exitCode() == 0);
        senders.end();
        QVERIFY(senders.count() > before.size() && senders.failed() == 0);
        server.program.reset();
        QVERIFY(QFile::remove(server.ledger) &&
                QFile::rename(server.folder.path("copy.db"_l1), server.ledger));
        server.start();
        QVERIFY(server.ids().contains(before));
        QCOMPARE(server.text("PRAGMA integrity_check"), "ok"_l1);
    }

    /// Behind is a ledger that has more to do than it takes in time; small requests say nothing of how fast
    /// it is.
    void pace()
    {
        using namespace std::chrono_literals;
        constexpr std::size_t MiB = 1 << 20;
        Pace::Time now;
        Pace pace(8s);
        const auto pass = [&](int times, std::size_t bytes) {
            for (int i = 0; i < times; ++i) {
                pace.begin(bytes, now);
                pace.end(bytes, now += 1s);
                pace.measure(now);
            }
        };
        pass(60, 600);
        pace.begin(32 * MiB, now);
        QVERIFY(!pace.isBehind());
        pass(9, MiB); // a second each
        QVERIFY(pace.isBehind());
        pass(9, 8 * MiB);
        QVERIFY(!pace.isBehind());
        pace.measure(now += 60s); // it hangs
        pace.measure(now += 60s);
        QVERIFY(pace.isBehind());
        Limits limits = shortLimits();
        limits.longestWait = -1ms;
        const ImpatientServer server(limits);
        QCOMPARE(RawClient(server.url).post(LogPath, Secret, logBody(logRow("1"))), 503);
    }

    /// Renewed certificates are taken at SIGHUP, without a break for those who are connected.
    void tls()
    {
        const TestProject folder;
        const QString pem = folder.file("server.pem"_l1, TestProject::contents(":/untrusted.pem"_l1));
        ServerOnDisk server({"--token"_l1, "secret"_l1, "--tls-cert"_l1, pem, "--tls-key"_l1, pem});
        RawClient old(server.url());
        const QByteArray rows = logRow("1") + (',' + logRow("2")).repeated(20000);
        QCOMPARE(old.post(LogPath, Secret, logBody(rows)), 0);
        const auto reload = [&](const QByteArray& bytes) {
            folder.file("server.pem"_l1, bytes);
            ::kill(static_cast<pid_t>(server.program->processId()), SIGHUP);
            server.program->waitForReadyRead(10000); // it says what came of it
        };
        server.program->setReadChannel(QProcess::StandardError);
        reload("no certificate");
        QCOMPARE(RawClient(server.url()).post(LogPath, Secret, logBody(logRow("3"))), 0);
        reload(TestProject::contents(":/renewed.pem"_l1));
        QTRY_COMPARE(RawClient(server.url()).socket().peerCertificate().subjectInfo("CN"),
                     QStringList("renewed"_l1));
        QCOMPARE(old.post(LogPath, Secret, logBody(logRow("4"))), 0);
        RawClient plain(QString(server.url()).replace("https"_l1, "http"_l1));
        plain.send(postText(LogPath, Secret, logBody(logRow("5"))));
        QCOMPARE(plain.status(), -1);
    }
};

QTEST_GUILESS_MAIN(tst_server)
#include "tst_server.moc"
