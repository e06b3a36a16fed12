// SPDX-License-Identifier: MIT
#include "Baseline.h"
#include "Host.h"
#include "MissionFile.h"
#include "Servers.h"
#include "Suites.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>

#include <array>
#include <atomic>

namespace
{
constexpr int EndlessMs = -1;

void runProgram(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start(program, arguments);
    require(process.waitForFinished(EndlessMs) && process.exitCode() == 0, program + " failed");
}

void compare(Report& report, const QString& what, Unit unit,
             const std::function<double(const ServerOnDisk&)>& measure)
{
    const auto with = [&measure](const QString& program) {
        return [&measure, program] { return measure(ServerOnDisk(program)); };
    };
    report.add(what + " / first server", interleave(rounds(), with({}), with(firstServer())), unit);
}

// The clients of the project, on our server and on the first one.
void benchBothServers(Report& report)
{
    constexpr int Rows = 100000;
    const QTemporaryDir folder(diskFolder());
    const QString waiting = folder.filePath("waiting.kv");
    makeMissionFile(waiting);
    addLog(waiting, Rows);
    compare(report, "draining 100,000 log rows", Unit::Seconds, [&](const ServerOnDisk& server) {
        const QString file = folder.filePath("drained.kv");
        copyFile(waiting, file);
        return drainFile(file, server.url());
    });
    compare(report, "requests with 1 row", Unit::PerSecond, [](const ServerOnDisk& server) {
        return postSmallOnes(server.url(), "flight_mission_id=" + MissionId + R"(&data=[{"id":"1"}])");
    });
    const QString desk = QCoreApplication::applicationDirPath() + "/flightdesk";
    const QString flights = folder.filePath("flights");
    runProgram(desk, {"simulate", "--project", flights, "--missions", "3", "--minutes", "5", "--seed", "1"});
    compare(
        report, "uploading the three flights of the demo", Unit::Seconds, [&](const ServerOnDisk& server) {
            const QString copy = folder.filePath("copy");
            runProgram("rm", {"-rf", copy});
            runProgram("cp", {"-a", flights, copy});
            return seconds([&] {
                runProgram(desk, {"upload", "--project", copy, "--server", server.url(), "--token", "bench"});
            });
        });
}

// What several clients bring in some seconds, on connections that stay or on a new one each time.
double postedPerSecond(const QByteArray& url, const QByteArray& body, bool anew)
{
    constexpr std::size_t Clients = 8;
    constexpr auto Time = std::chrono::seconds(3);
    std::atomic<int> count{0};
    std::atomic<bool> failed{false};
    const auto end = std::chrono::steady_clock::now() + Time;
    const auto post = [&] {
        try {
            auto poster = std::make_unique<Poster>(url, "/flight/detailupload");
            for (; std::chrono::steady_clock::now() < end; ++count) {
                if (anew) {
                    poster = std::make_unique<Poster>(url, "/flight/detailupload");
                }
                poster->post(body);
            }
        } catch (const std::exception&) {
            failed = true;
        }
    };
    const double time = seconds([&post] {
        std::array<std::thread, Clients> threads;
        for (std::thread& thread : threads) {
            thread = std::thread(post);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    require(!failed, "not every request was accepted");
    return count / time;
}

// The connections' thread encrypts as well: how much of a core that takes it, and whether others wait for it.
void benchTls(Report& report)
{
    const QTemporaryDir folder;
    const QString file = folder.filePath("waiting.kv");
    const QString pem = folder.filePath("server.pem");
    require(QFile::copy(":/server.pem", pem), "no certificate");
    makeMissionFile(file);
    addLog(file, 1000);
    Database database(file);
    const QByteArray large = readLogBatch(database).body;
    const QByteArray small = "flight_mission_id=" + MissionId + R"(&data=[{"id":"1"}])";
    const auto compareTls = [&](const QString& what, const QByteArray& body, bool anew) {
        Pair busy{};
        const auto measure = [&](const QStringList& options, double& share) {
            const ServerOnDisk server({}, options);
            double perSecond = 0;
            const double time = seconds([&] { perSecond = postedPerSecond(server.url(), body, anew); });
            share = server.seconds() / time;
            return perSecond;
        };
        const Pair pair = interleave(
            rounds(),
            [&] {
                return measure({"--tls-cert", pem, "--tls-key", pem}, busy.ours);
            },
            [&] { return measure({}, busy.baseline); });
        report.add(what + ", TLS / plain", pair, Unit::PerSecond);
        report.add("the same, share of a core of the connections' thread", busy, Unit::Seconds);
    };
    curl_global_init(CURL_GLOBAL_DEFAULT); // before there are threads
    compareTls("8 connections of 1000 rows", large, false);
    compareTls("1 row on a new connection each time", small, true);
}
} // namespace

void benchServerClients(Report& report)
{
    if (!firstServer().isEmpty()) {
        benchBothServers(report);
    }
    benchTls(report);
}
