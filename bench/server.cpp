// SPDX-License-Identifier: MIT
#include "flightdesk/words/Latin1.h"
#include "Load.h"
#include "MissionFile.h"
#include "Servers.h"
#include "Suites.h"

#include <iostream>

namespace
{
constexpr double MiB = 1 << 20;

double acceptedPerSecond(const QString& program, Load load)
{
    const ServerOnDisk disk(program);
    load.url = disk.url();
    const LoadResult result = run(load);
    require(result.broken == 0 && result.refused == 0, "not every request was accepted"_l1);
    return result.perSecond();
}

void compareWithFirst(Report& report, const QString& what, const Load& load, double reach)
{
    const auto ours = [&load] { return acceptedPerSecond({}, load); };
    if (firstServer().isEmpty()) {
        report.add(what + ", alone"_l1, interleave(rounds(), ours, ours), Unit::PerSecond);
        return;
    }
    const Pair pair = interleave(rounds(), ours, [&load] { return acceptedPerSecond(firstServer(), load); });
    report.add(what + " / first server, NORMAL"_l1, pair, Unit::PerSecond, 1 / reach);
}

void benchMany(Report& report, int connections, double most)
{
    const auto p99 = [connections] {
        const ServerOnDisk disk;
        Load load;
        load.url = disk.url();
        load.connections = connections;
        load.seconds = 5;
        const LoadResult result = run(load);
        require(result.unserved == 0 && result.broken == 0 && result.refused == 0,
                "not every client was served"_l1);
        std::cerr << "    " << result.perSecond() << "/s\n";
        return result.percentile(0.99);
    };
    const Pair pair = interleave(rounds(), p99, [most] { return most; });
    report.add(QStringLiteral("1 row from %1 connections, p99 / at most").arg(connections), pair,
               Unit::Seconds, 1);
}

void benchRefusals(Report& report)
{
    constexpr int Requests = 200;
    constexpr double Most = 0.001;
    const ServerOnDisk disk({}, {"--token"_l1, "secret"_l1});
    const double before = disk.peakMemory();
    const auto refuse = [&disk](const QByteArray& token, const QByteArray& length) {
        const QByteArray request = "POST /flight/detailupload HTTP/1.1\r\nHost: bench\r\ntoken: " + token +
                                   "\r\nContent-Length: " + length + "\r\n\r\n" + QByteArray(16384, 'x');
        return interleave(
                   Requests, [&] { return timeAnswer(disk.url(), request); }, [] { return 0.0; })
            .ours;
    };
    report.add("refusal of a token, 1 GiB announced / at most"_l1, {refuse("other", "1073741824"), Most},
               Unit::Seconds, 1);
    report.add("refusal of a length / at most"_l1, {refuse("secret", "1073741824"), Most}, Unit::Seconds, 1);
    report.add("memory that refusals took / 1 MiB"_l1, {disk.peakMemory() - before, MiB}, Unit::Bytes, 1);
}

void benchIdle(Report& report)
{
    constexpr int Connections = 10000;
    const auto each = [] {
        const ServerOnDisk disk;
        Load load;
        load.url = disk.url();
        load.seconds = 1; // one request warms the server
        run(load);
        const double before = disk.memory();
        const IdleConnections idle(load.url, Connections);
        require(run(load).accepted > 0, "nobody is served beside idle connections"_l1);
        return (disk.memory() - before) / Connections;
    };
    report.add("memory of an idle connection, 10,000 / 2 kB"_l1,
               interleave(rounds(), each, [] { return 2000.0; }), Unit::Bytes, 1);
}

// After an outage everybody has something to send.
void benchCrowd(Report& report)
{
    constexpr double Bound = 256 * MiB;
    Load load;
    load.rows = 1000;
    load.seconds = 10;
    double memory = 0;
    double slowest = 0;
    const auto crowd = [&] {
        const ServerOnDisk disk;
        Load many = load;
        many.url = disk.url();
        many.connections = 3000;
        const LoadResult result = run(many);
        memory = std::max(memory, disk.peakMemory());
        slowest = std::max(slowest, result.slowest);
        std::cerr << "    " << result.accepted << " accepted, " << result.refused << " refused, "
                  << result.broken << " broken, slowest " << result.slowest << " s\n";
        return result.perSecond();
    };
    load.connections = 8;
    const Pair pair = interleave(rounds(), crowd, [&load] { return acceptedPerSecond({}, load); });
    report.add("1000 rows from 3000 clients at once / from 8"_l1, pair, Unit::PerSecond, 1 / 0.6);
    report.add("the same, memory / bound and 64 MiB"_l1, {memory, Bound + 64 * MiB}, Unit::Bytes, 1);
    report.add("the same, slowest answer / 20 s"_l1, {slowest, 20}, Unit::Seconds, 1);
}
} // namespace

void benchServer(Report& report)
{
    Load load;
    load.warm = true;
    load.connections = 64;
    compareWithFirst(report, "64 connections of 1 row"_l1, load, 3);
    load.connections = 8;
    load.rows = 1000;
    compareWithFirst(report, "8 connections of 1000 rows"_l1, load, 1.25);
    benchMany(report, 1000, 0.2);
    benchMany(report, 10000, 1);
    benchRefusals(report);
    benchIdle(report);
    benchCrowd(report);
    benchServerClients(report);
}
