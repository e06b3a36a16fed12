// SPDX-License-Identifier: MIT
#include "Baseline.h"
#include "flightdesk/words/Latin1.h"
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
    require(process.waitForFinished(EndlessMs) && process.exitCode() == 0, program + " failed"_l1);
}

void compare(Report& report, const QString& what, Unit unit,
             const std::function<double(const ServerOnDisk&)>& measure)
{
    const auto with = [&measure](const QString& program) {
        return [&measure, program] { return measure(ServerOnDisk(program)); };
    };
    report.add(what + " / first server"_l1, interleave(rounds(), with({}), with(firstServer())), unit);
}

// The clients of the project, on our server and on the first one.
void benchBothServers(Report& report)
{
    constexpr int Rows = 100000;
    const QTemporaryDir folder(diskFolder());
    const QString waiting = folder.filePath("waiting.kv"_l1);
    makeMissionFile(waiting);
    addLog(waiting, Rows);
    compare(report, "draining 100,000 log rows"_l1, Unit::Seconds, [&](const ServerOnDisk& server) {
        const QString file = folder.filePath("drained.kv"_l1);
        copyFile(waiting, file);
        return drainFile(file, server.url());
    });
    compare(report, "requests with 1 row"_l1, Unit::PerSecond, [](const ServerOnDisk& server) {
        return postSmallOnes(server.url(), "flight_mission_id=" + MissionId + R"(&data=[{"id":"1"}])");
    });
    const QString desk = QCoreApplication::applicationDirPath() + "/flightdesk"_l1;
    const QString flights = folder.filePath("flights"_l1);
    runProgram(desk, {"simulate"_l1, "--project"_l1, flights, "--missions"_l1, "3"_l1, "--minutes"_l1, "5"_l1,
                      "--seed"_l1, "1"_l1});
    compare(report, "uploading the three flights of the demo"_l1, Unit::Seconds,
            [&](const ServerOnDisk& server) {
                const QString copy = folder.filePath("copy"_l1);
                runProgram("rm"_l1, {"-rf"_l1, copy});
                runProgram("cp"_l1, {"-a"_l1, flights, copy});
                return seconds([&] {
                    runProgram(desk, {"upload"_l1, "--project"_l1, copy, "--server"_l1,
                                      QString::fromUtf8(server.url()), "--token"_l1, "bench"_l1});
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
    require(!failed, "not every request was accepted"_l1);
    return count / time;
}

// The connections' thread encrypts as well: how much of a core that takes it, and whether others wait for it.
void benchTls(Report& report)
{
    const QTemporaryDir folder;
    const QString file = folder.filePath("waiting.kv"_l1);
    const QString pem = folder.filePath("server.pem"_l1);
    require(QFile::copy(":/server.pem"_l1, pem), "no certificate"_l1);
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
                return measure({"--tls-cert"_l1, pem, "--tls-key"_l1, pem}, busy.ours);
            },
            [&] { return measure({}, busy.baseline); });
        report.add(what + ", TLS / plain"_l1, pair, Unit::PerSecond);
        report.add("the same, share of a core of the connections' thread"_l1, busy, Unit::Seconds);
    };
    curl_global_init(CURL_GLOBAL_DEFAULT); // before there are threads
    compareTls("8 connections of 1000 rows"_l1, large, false);
    compareTls("1 row on a new connection each time"_l1, small, true);
}
} // namespace

void benchServerClients(Report& report)
{
    if (!firstServer().isEmpty()) {
        benchBothServers(report);
    }
    benchTls(report);
}
