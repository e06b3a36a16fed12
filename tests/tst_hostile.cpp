// SPDX-License-Identifier: MIT
#include "support/ServerLoad.h"

#include <csignal>
#include <random>
#include <sys/resource.h>

namespace
{
int environmentNumber(const char* name, int otherwise)
{
    bool ok = false;
    const int number = qEnvironmentVariableIntValue(name, &ok);
    return ok ? number : otherwise;
}

/// Clients that mean no good, each kind on a thread of its own, until they are told to end.
class Attackers
{
public:
    explicit Attackers(QString url) : m_url(std::move(url))
    {
        for (const auto attack : {&Attackers::randomBytes, &Attackers::halfRequest, &Attackers::spoiltRequest,
                                  &Attackers::headerBomb, &Attackers::slowSender}) {
            m_threads.emplace_back([this, attack] {
                std::mt19937 random(static_cast<unsigned int>(m_seed++));
                while (!m_end) {
                    RawClient client(m_url);
                    (this->*attack)(client, random);
                    ++m_count;
                }
            });
        }
    }
    ~Attackers() { end(); }
    void end()
    {
        m_end = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }
    int count() const { return m_count; }

private:
    static QByteArray noise(std::mt19937& random, unsigned int most)
    {
        QByteArray bytes(static_cast<int>(random() % most), '\0');
        std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random()); });
        return bytes;
    }
    void randomBytes(RawClient& client, std::mt19937& random) { client.send(noise(random, 70000)); }
    void halfRequest(RawClient& client, std::mt19937& random)
    {
        const QByteArray request = postText(LogPath, Secret, logBody(logRow("half")));
        client.send(request.left(static_cast<int>(random() % static_cast<unsigned int>(request.size()))));
    }
    /// A request with a few bytes changed: what a parser finds the hardest.
    void spoiltRequest(RawClient& client, std::mt19937& random)
    {
        QByteArray request = postText(LogPath, Secret, logBody(logRow("spoilt") + ',' + logRow("%26")));
        for (unsigned int i = 0; i <= random() % 4; ++i) {
            request[static_cast<int>(random() % static_cast<unsigned int>(request.size()))] =
                static_cast<char>(random());
        }
        client.send(request + request);
        if (random() % 2 == 0) {
            client.socket().waitForReadyRead(100);
        }
    }
    void headerBomb(RawClient& client, std::mt19937& random)
    {
        QByteArray header = "POST " + LogPath + " HTTP/1.1\r\n";
        while (header.size() < 20000) {
            header += "X-Header: " + QByteArray::number(static_cast<int>(random())) + "\r\n";
        }
        client.send(header);
        client.status();
    }
    void slowSender(RawClient& client, std::mt19937& random)
    {
        client.send(postText(LogPath, Secret, "data=", 200000000)); // most of the room, for nothing
        for (int i = 0; i < 20 && !m_end; ++i) {
            client.send(noise(random, 10));
            client.socket().waitForReadyRead(20);
        }
    }

    const QString m_url;
    std::atomic<bool> m_end{false};
    std::atomic<int> m_count{0};
    std::atomic<int> m_seed{1};
    std::vector<std::thread> m_threads;
};
} // namespace

/// A server that is attacked and killed. KV_HOSTILE_MINUTES sets how long it is attacked, KV_KILLS how often
/// it is killed.
class tst_hostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// Killed again and again under load, and started again: nothing that was acknowledged is lost. KV_KILLS
    /// sets how often.
    void killed()
    {
        SServer server;
        QSet<QByteArray> acknowledged;
        std::mt19937 random(1);
        const int kills = environmentNumber("KV_KILLS", 10);
        for (int n = 0; n < kills; ++n) {
            Senders senders(server.url(), 4, n);
            const int enough = 5 + static_cast<int>(random() % 200);
            QTRY_VERIFY_WITH_TIMEOUT(senders.acknowledgedCount() > enough, 20000);
            server.program->kill();
            server.program->waitForFinished();
            senders.end();
            acknowledged += senders.acknowledged();
            server.start();
        }
        SqliteFile ledger = server.open();
        SqliteFile::Statement select = ledger.prepare("SELECT id FROM record");
        QSet<QByteArray> stored;
        while (select.step()) {
            stored.insert(QByteArray::fromStdString(select.text(0)));
        }
        QVERIFY(stored.contains(acknowledged));
        qInfo("%d kills, %d rows acknowledged, none lost", kills, acknowledged.size());
    }

    /// Whatever is sent, the server neither falls nor leaks (its exit code tells, under the sanitizers), and
    /// honest clients are served beside it.
    void attacked()
    {
        const int minutes = environmentNumber("KV_HOSTILE_MINUTES", 0);
        rlimit files{};
        getrlimit(RLIMIT_NOFILE, &files);
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
        const int silent = minutes > 0 ? 10000 : 200;
        QVERIFY2(files.rlim_max > static_cast<rlim_t>(silent + 200), "raise ulimit -Hn above 10200");

        SServer server;
        std::vector<std::unique_ptr<RawClient>> silence;
        silence.reserve(static_cast<std::size_t>(silent));
        for (int i = 0; i < silent; ++i) {
            silence.push_back(std::make_unique<RawClient>(server.url()));
        }
        Attackers attackers(server.url());
        Senders senders(server.url(), 4, 0);
        const int ms = minutes > 0 ? minutes * 60000 : 3000;
        QVERIFY(!QTest::qWaitFor([&server] { return server.program->state() != QProcess::Running; }, ms));
        senders.end();
        attackers.end();
        silence.clear();
        server.program->terminate();
        QVERIFY(server.program->waitForFinished(20000));
        const QByteArray said = server.program->readAllStandardError();
        QVERIFY2(server.program->exitStatus() == QProcess::NormalExit && server.program->exitCode() == 0,
                 said);
        std::vector<qint64>& times = senders.times();
        QVERIFY(!times.empty());
        const qint64 p99 = times[times.size() * 99 / 100];
        qInfo("%d attacks, %d silent connections; %d rows of others, p99 %lld ms", attackers.count(), silent,
              senders.acknowledgedCount(), p99);
        QVERIFY(minutes == 0 || p99 <= 1000);
    }
};

QTEST_GUILESS_MAIN(tst_hostile)
#include "tst_hostile.moc"
