// SPDX-License-Identifier: MIT
#include "support/Fleet.h"
#include "Load.h"
#include "Servers.h"
#include "Suites.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QUrl>

#include <iostream>
#include <random>

namespace
{
constexpr double MiB = 1 << 20;
const QStringList Options{"--token"_l1, "bench"_l1, "--require-sync"_l1};

int setting(const char* name, int usual)
{
    bool isSet = false;
    const int value = qEnvironmentVariableIntValue(name, &isSet);
    return isSet ? value : usual;
}

// HAProxy in front of a fleet's servers, as scripts/fleet has it.
class Proxy
{
public:
    explicit Proxy(Fleet* fleet)
    {
        QFile from(QStringLiteral(KV_SOURCE_DIR "/apps/flightserver/haproxy.cfg"));
        require(from.open(QIODevice::ReadOnly), "no haproxy.cfg"_l1);
        QByteArray text = from.readAll().replace("@PORT@", QByteArray::number(m_port));
        for (const auto& server : fleet->servers) {
            const QUrl watched(server->address("watched on "_l1));
            text += QStringLiteral("    server s%1 %2 check port %1\n")
                        .arg(watched.port())
                        .arg(QString(server->url).remove("http://"_l1))
                        .toUtf8();
        }
        QFile file(m_folder.filePath("haproxy.cfg"_l1));
        require(file.open(QIODevice::WriteOnly) && file.write(text) == text.size(), "cannot write"_l1);
        file.close();
        m_process.setStandardErrorFile(m_folder.filePath("log"_l1));
        m_process.start(QStringLiteral("haproxy"), {"-db"_l1, "-f"_l1, file.fileName()});
        require(m_process.waitForStarted(), "HAProxy does not start: scripts/setup fleet"_l1);
        Load probe;
        probe.url = url();
        probe.backlog = 1;
        probe.seconds = 30;
        probe.retryAfter = 0.1;
        run(probe); // until one is served
    }
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;
    ~Proxy()
    {
        m_process.terminate();
        m_process.waitForFinished();
    }
    QByteArray url() const { return "http://127.0.0.1:" + QByteArray::number(m_port); }

private:
    const int m_port = freePort();
    const QTemporaryDir m_folder;
    QProcess m_process;
};

Load loadOf(int connections, int rows)
{
    Load load;
    load.connections = connections;
    load.rows = rows;
    load.warm = connections <= 64;
    return load;
}

double acceptedPerSecond(const QByteArray& url, Load load)
{
    load.url = url;
    const LoadResult result = run(load);
    require(result.broken == 0 && result.refused == 0, "not every request was accepted"_l1);
    return result.perSecond();
}

// Transactions a second of the ledger's own statement, with so many clients of pgbench's.
double pgbench(const Fleet& fleet, int rows, int clients)
{
    const QTemporaryDir folder;
    QFile script(folder.filePath("insert.sql"_l1));
    require(script.open(QIODevice::WriteOnly), "cannot write"_l1);
    script.write(
        "WITH made AS (SELECT to_hex((extract(epoch FROM clock_timestamp())*1000000)::bigint) || "
        "md5(random()::text) AS id FROM generate_series(1," +
        QByteArray::number(rows) +
        ")), written AS (INSERT INTO record AS r (owner,kind,id,times,mission,json) SELECT 1, 4, id, 1, "
        "'m', '{\"id\":\"' || id || '\",\"created_at\":\"2024-01-02 08:30:00.000\",\"message\":\"' || "
        "repeat('x',266) || '\"}' FROM made ON CONFLICT (owner,kind,id) DO UPDATE SET "
        "times=r.times+excluded.times, json=CASE WHEN excluded.kind=1 THEN excluded.json ELSE r.json "
        "END RETURNING xmax<>0 AS again) SELECT count(*), count(*) FILTER (WHERE again) FROM written;\n");
    script.close();
    const QUrl at(fleet.primary->uri());
    QProcess process;
    process.start(QStringLiteral("pgbench"),
                  {"-n"_l1, "-M"_l1, "prepared"_l1, "-T"_l1, "3"_l1, "-j"_l1, "2"_l1, "-c"_l1,
                   QString::number(clients), "-h"_l1, at.host(), "-p"_l1, QString::number(at.port()), "-U"_l1,
                   "fleet"_l1, "-f"_l1, script.fileName(), "flights"_l1});
    process.waitForFinished(60000);
    static const QRegularExpression rate("tps = ([0-9.]+)"_l1);
    const double found =
        rate.match(QString::fromUtf8(process.readAllStandardOutput())).captured(1).toDouble();
    require(found > 0, "pgbench: "_l1 + QString::fromUtf8(process.readAllStandardError()));
    return found;
}

void benchBesidePgbench(Report& report, const Fleet& fleet)
{
    struct Row {
        const char* what;
        Load load;
        QVector<int> clients; // of pgbench's: the best counts
        double reach;
    };
    for (const Row& row : {Row{"1000 rows from 8 connections / pgbench", loadOf(8, 1000), {2, 4}, 0.85},
                           Row{"1 row from 64 connections / pgbench", loadOf(64, 1), {16, 40}, 1.5},
                           Row{"1 row from 1,000 connections / pgbench", loadOf(1000, 1), {16, 40}, 2.3}}) {
        const auto ours = [&] { return acceptedPerSecond(fleet.servers[0]->url.toLatin1(), row.load); };
        const auto best = [&] {
            double most = 0;
            for (const int clients : row.clients) {
                most = std::max(most, pgbench(fleet, row.load.rows, clients));
            }
            return most;
        };
        report.add(QLatin1String(row.what), interleave(rounds(), ours, best), Unit::PerSecond, 1 / row.reach);
    }
}

void benchProxy(Report& report, Fleet* fleet)
{
    const Proxy proxy(fleet);
    for (const auto& [what, load, reach] :
         {std::tuple("1000 rows through HAProxy / direct", loadOf(8, 1000), 0.9),
          {"1 row from 64 connections through HAProxy / direct", loadOf(64, 1), 0.35}}) {
        const auto through = [&, url = proxy.url(), load = load] { return acceptedPerSecond(url, load); };
        const auto direct = [&, load = load] {
            return acceptedPerSecond(fleet->servers[0]->url.toLatin1(), load);
        };
        report.add(QLatin1String(what), interleave(rounds(), through, direct), Unit::PerSecond, 1 / reach);
    }
}

enum class Death { Server, Primary, Standby, Hang };

// With a keeper that needs a second to see what does not end by itself.
void kill(Fleet* fleet, Death death)
{
    constexpr std::chrono::seconds Notice(1);
    switch (death) {
    case Death::Server:
        fleet->servers[0]->kill();
        break;
    case Death::Primary:
        fleet->failOver();
        break;
    case Death::Standby:
        fleet->standby->kill(SIGKILL);
        std::this_thread::sleep_for(Notice);
        fleet->primary->followSynchronously("");
        break;
    case Death::Hang:
        fleet->primary->kill(SIGSTOP);
        std::this_thread::sleep_for(Notice);
        fleet->failOver();
        break;
    }
}

// What clients of a fleet see of a death in their midst.
LoadResult liveThrough(Death death, Load load, double* gap)
{
    Fleet fleet({"--token"_l1, "bench"_l1, "--admin"_l1, "127.0.0.1:0"_l1});
    const Proxy proxy(&fleet);
    load.url = proxy.url();
    LoadResult result;
    const auto start = std::chrono::steady_clock::now();
    std::jthread clients([&] { result = run(load); });
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const double at = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    kill(&fleet, death);
    clients.join();
    *gap = result.longestGap(at);
    const QSet<QByteArray> there = fleet.ids();
    for (const QByteArray& id : result.ids) {
        require(there.contains(id), "an acknowledged row is lost"_l1);
    }
    return result;
}

void benchDeaths(Report& report)
{
    Load load = loadOf(64, 1);
    load.seconds = 12;
    load.retryAfter = 0.05;
    load.keepsIds = true;
    for (const auto& [what, death, most] :
         {std::tuple("a server is killed", Death::Server, 1.0),
          {"the primary is killed, the standby promoted", Death::Primary, 2.0},
          {"the standby is killed, seen after 1 s", Death::Standby, 5.0},
          {"the primary hangs, seen after 1 s", Death::Hang, 6.0}}) {
        const auto longest = [&load, death = death] {
            double gap = 0;
            liveThrough(death, load, &gap);
            return gap;
        };
        const Pair pair = interleave(rounds(), longest, [most = most] { return most; });
        report.add("accepted again: "_l1 + QLatin1String(what) + " / at most"_l1, pair, Unit::Seconds, 1);
    }
}

void benchKills(Report& report)
{
    const int kills = setting("KV_KILLS", 5);
    std::mt19937 random(std::random_device{}());
    Load load = loadOf(1000, 1);
    load.seconds = 8;
    load.retryAfter = 0.5;
    load.keepsIds = true;
    double acknowledged = 0;
    double longest = 0;
    for (int i = 0; i < kills; ++i) {
        double gap = 0;
        acknowledged += static_cast<double>(liveThrough(Death(random() % 4), load, &gap).accepted);
        longest = std::max(longest, gap);
    }
    std::cerr << "  " << kills << " kills under 1,000 clients: " << acknowledged
              << " rows acknowledged, none lost\n";
    report.add(QStringLiteral("%1 kills under 1,000 clients, none lost: accepted again").arg(kills),
               {longest, 6}, Unit::Seconds);
}

// Everybody has lost the server for a minute, and has something to send when it comes back.
void benchReturn(Report& report)
{
    Fleet fleet({"--token"_l1, "bench"_l1});
    const auto comeBack = [&fleet](double from, double until) {
        const int port = freePort();
        Load load = loadOf(1000, 50);
        load.url = "http://127.0.0.1:" + QByteArray::number(port);
        load.backlog = 20;
        load.seconds = 600;
        load.retryAfter = from;
        load.retryUntil = until;
        LoadResult result;
        std::jthread clients([&] { result = run(load); });
        std::this_thread::sleep_for(std::chrono::minutes(1));
        const ServerOnDisk server(
            {}, {"--ledger"_l1, fleet.uri(), "--token"_l1, "bench"_l1, "--port"_l1, QString::number(port)});
        clients.join();
        require(result.unserved == 0, "not every client is drained"_l1);
        std::cerr << "    peak " << result.peakAttempts() << " attempts/s, drained " << result.seconds - 60
                  << " s after the outage, slowest answer " << result.slowest << " s, "
                  << server.peakMemory() / MiB << " MiB\n";
        return result;
    };
    const LoadResult spread = comeBack(30, 90);
    const LoadResult fixed = comeBack(3, 3);
    report.add("after 60 s: attempts/s at most, spread / fixed at 3 s"_l1,
               {1.0 / spread.peakAttempts(), 1.0 / fixed.peakAttempts()}, Unit::PerSecond);
    report.add("the same, drained after"_l1, {spread.seconds - 60, fixed.seconds - 60}, Unit::Seconds);
    report.add("the same, slowest answer / 20 s"_l1, {std::max(spread.slowest, fixed.slowest), 20},
               Unit::Seconds, 1);
}

void benchDay(Report& report)
{
    const int minutes = setting("KV_FLEET_MINUTES", 1);
    Fleet fleet({"--token"_l1, "bench"_l1, "--admin"_l1, "127.0.0.1:0"_l1});
    const Proxy proxy(&fleet);
    Load load = loadOf(1000, 5);
    load.url = proxy.url();
    load.seconds = 60.0 * minutes;
    load.period = 3;
    const LoadResult result = run(load);
    require(result.refused == 0 && result.broken == 0 && result.unserved == 0, "not everybody is served"_l1);
    report.add(QStringLiteral("1,000 clients, 5 rows every 3 s for %1 min: p99 / at most").arg(minutes),
               {result.percentile(0.99), 0.25}, Unit::Seconds, 1);
    report.add("the same, slowest / at most"_l1, {result.slowest, 20}, Unit::Seconds, 1);
}

void benchFull(Report& report)
{
    const int rows = setting("KV_FLEET_ROWS", 1000000);
    Postgres full;
    Postgres empty;
    for (Postgres* const database : {&full, &empty}) {
        initLedger(database->uri().toStdString());
    }
    PgConnection connection = full.open();
    connection.execute("SET synchronous_commit=off");
    constexpr int AtOnce = 20000; // a statement ends within the deadline
    for (int made = 0; made < rows; made += AtOnce) {
        const std::string sql =
            "INSERT INTO record SELECT 1, 4, lpad(to_hex(g), 12, '0') || left(md5(g::text), 24), 1, 'm', "
            "repeat('x',350) FROM generate_series(" +
            std::to_string(made) + ',' + std::to_string(made + AtOnce - 1) + ") g";
        connection.execute(sql.c_str());
    }
    full.execute("VACUUM ANALYZE record");
    const auto secondsARow = [](const Postgres& database) {
        const FlightServer server({"--ledger"_l1, database.uri(), "--token"_l1, "bench"_l1});
        return 1 / acceptedPerSecond(server.url(), loadOf(8, 1000));
    };
    report.add(QStringLiteral("1000 rows into a ledger of %1 / an empty one").arg(rows),
               interleave(
                   rounds(), [&] { return secondsARow(full); }, [&] { return secondsARow(empty); }),
               Unit::Seconds, 1.3);
}
} // namespace

void benchFleet(Report& report)
{
    {
        Fleet fleet(Options + QStringList{"--admin"_l1, "127.0.0.1:0"_l1});
        benchBesidePgbench(report, fleet);
        benchProxy(report, &fleet);
    }
    benchDeaths(report);
    benchKills(report);
    benchReturn(report);
    benchDay(report);
    benchFull(report);
}
