// SPDX-License-Identifier: MIT
#include "support/ServerLoad.h"

#include <random>
#include <sys/resource.h>

namespace
{
/// Clients that mean no good, each kind on a thread of its own, until they are told to end.
class Attackers
{
public:
    explicit Attackers(const QString& url)
    {
        for (const auto attack :
             {&Attackers::randomBytes, &Attackers::spoiltRequest, &Attackers::slowSender}) {
            m_crowd.add([this, url, attack, random = std::mt19937(++m_seed)]() mutable {
                RawClient client(url);
                (this->*attack)(client, random);
                ++m_count;
            });
        }
    }
    void end() { m_crowd.end(); }
    int count() const { return m_count; }

private:
    static QByteArray noise(std::mt19937& random, unsigned int most)
    {
        QByteArray bytes(static_cast<int>(random() % most), '\0');
        std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random()); });
        return bytes;
    }
    void randomBytes(RawClient& client, std::mt19937& random) { client.send(noise(random, 70000)); }
    /// A request with a few bytes changed, or a part of it: what a parser finds the hardest.
    void spoiltRequest(RawClient& client, std::mt19937& random)
    {
        QByteArray request = postText(LogPath, Secret, logBody(logRow("spoilt") + ',' + logRow("%26")));
        for (unsigned int i = 0; i <= random() % 4; ++i) {
            request[static_cast<int>(random() % static_cast<unsigned int>(request.size()))] =
                static_cast<char>(random());
        }
        const auto half = static_cast<int>(random() % static_cast<unsigned int>(request.size()));
        client.send(random() % 2 == 0 ? request + request : request.left(half));
        if (random() % 2 == 0) {
            client.socket().waitForReadyRead(100);
        }
    }
    /// Takes most of the room, for nothing, and gives up when the server does.
    void slowSender(RawClient& client, std::mt19937& random)
    {
        client.send(postText(LogPath, Secret, "data=", 200000000));
        while (!m_crowd.isEnding() && client.socket().state() == QAbstractSocket::ConnectedState) {
            client.send(noise(random, 10));
            client.socket().waitForReadyRead(20);
        }
    }

    std::atomic<int> m_count{0};
    unsigned int m_seed = 0;
    Crowd m_crowd;
};
} // namespace

/// A server that is attacked and killed. KV_HOSTILE_MINUTES sets how long it is attacked, KV_KILLS how often
/// it is killed.
class tst_hostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// Killed again and again under load, and started again: it has what it acknowledged, and what a client
    /// has marked.
    void killed()
    {
        ServerOnDisk server;
        FlownProject project;
        project.ledger = server.ledger;
        QSet<QByteArray> acknowledged;
        std::mt19937 random(1);
        const int kills = environmentNumber("KV_KILLS", 5);
        for (int n = 0; n < kills || project.rows("is_uploaded = 1"_l1).isEmpty(); ++n) {
            QVERIFY(project.simulate(1, n));
            Senders senders(server.url(), 4, QByteArray::number(n));
            Program client("flightdesk"_l1,
                           project.command("upload"_l1, {"--server"_l1, server.url(), "--token"_l1,
                                                         "secret"_l1, "--interval"_l1, "100"_l1}));
            client.waitForFinished(int(random() % 700));
            QTRY_VERIFY(senders.count() > 0);
            server.program->kill();
            server.program->waitForFinished();
            senders.end();
            acknowledged += senders.acknowledged();
            server.start();
        }
        QVERIFY(server.ids().contains(acknowledged));
        const int marked = project.rows("is_uploaded = 1"_l1).size();
        QCOMPARE(project.rows("is_uploaded = 1 AND received IS NULL"_l1), QSet<QString>());
        qInfo("%d kills, none lost of %d rows acknowledged and %d of %d marked", kills,
              int(acknowledged.size()), marked, int(project.rows().size()));
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
        const std::size_t silent = minutes > 0 ? 10000 : 200;
        QVERIFY2(files.rlim_max > silent + 200, "raise ulimit -Hn above 10200");

        ServerOnDisk server;
        const auto runs = [&server] { return server.program->state() == QProcess::Running; };
        std::vector<std::unique_ptr<RawClient>> silence(silent);
        const auto keepSilent = [&] { // the server closes them as often as it likes
            for (auto& client : silence) {
                if (runs() && (!client || client->socket().state() != QAbstractSocket::ConnectedState)) {
                    client = std::make_unique<RawClient>(server.url());
                }
            }
        };
        keepSilent();
        Attackers attackers(server.url());
        Senders senders(server.url(), 4, "honest");
        QVERIFY(
            !QTest::qWaitFor([&] { return keepSilent(), !runs(); }, minutes > 0 ? minutes * 60000 : 3000));
        senders.end();
        attackers.end();
        silence.clear();
        server.program->terminate();
        QVERIFY(server.program->waitForFinished(20000));
        const QByteArray said = server.program->readAllStandardError();
        QVERIFY2(server.program->exitStatus() == QProcess::NormalExit && server.program->exitCode() == 0,
                 said.constData());
        QVERIFY(senders.count() > 0);
        QCOMPARE(senders.failed(), 0);
        QVERIFY(server.ids().contains(senders.acknowledged()));
        qInfo("%d attacks, %d silent connections; %d rows of others, p99 %lld ms; %s", attackers.count(),
              int(silent), senders.count(), senders.p99(), said.trimmed().constData());
        QVERIFY(minutes == 0 || senders.p99() <= 1000);
    }
};

QTEST_GUILESS_MAIN(tst_hostile)
#include "tst_hostile.moc"
