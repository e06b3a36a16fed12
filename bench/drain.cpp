// SPDX-License-Identifier: MIT
#include "Baseline.h"
#include "flightdesk/words/Latin1.h"
#include "Host.h"
#include "MissionFile.h"
#include "Servers.h"
#include "Suites.h"

#include <QtCore/QEventLoop>
#include <QtCore/QTemporaryDir>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>

namespace
{
constexpr const char* Path = "/flight/detailupload";

double drainBaseline(const QString& file, const QByteArray& url)
{
    const double time = seconds([&] {
        Database database(file);
        Poster poster(url, Path);
        for (LogBatch batch = readLogBatch(database); !batch.ids.isEmpty(); batch = readLogBatch(database)) {
            poster.post(batch.body);
            markLogBatch(database, batch);
        }
    });
    requireDrained(file);
    return time;
}

std::vector<QByteArray> bodiesOf(const QString& file)
{
    std::vector<QByteArray> bodies;
    Database database(file);
    for (LogBatch batch = readLogBatch(database); !batch.ids.isEmpty(); batch = readLogBatch(database)) {
        bodies.push_back(batch.body);
        markLogBatch(database, batch);
    }
    return bodies;
}

double postByManager(const std::vector<QByteArray>& bodies)
{
    const FlightServer server;
    QNetworkAccessManager manager;
    QNetworkRequest request(QUrl(QString::fromUtf8(server.url() + Path)));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/x-www-form-urlencoded"_l1);
    QEventLoop loop;
    QObject::connect(&manager, &QNetworkAccessManager::finished, &loop, &QEventLoop::quit);
    return seconds([&] {
        for (const QByteArray& body : bodies) {
            const QNetworkReply* const reply = manager.post(request, body);
            loop.exec();
            require(reply->error() == QNetworkReply::NoError, reply->errorString());
        }
    });
}

double postByCurl(const std::vector<QByteArray>& bodies)
{
    const FlightServer server;
    Poster poster(server.url(), Path);
    return seconds([&] {
        for (const QByteArray& body : bodies) {
            poster.post(body);
        }
    });
}

void benchBacklog(Report& report)
{
    constexpr int Rounds = 3;
    constexpr int Few = 10000;
    constexpr int FewRounds = 10; // of a fifth of a second each
    constexpr int Many = 1000000;
    const QTemporaryDir folder(diskFolder());
    const SinkServer sink;
    const auto perRow = [&](int rows, bool randomIds = false) {
        const QString file = folder.filePath("backlog.kv"_l1);
        QFile::remove(file);
        makeMissionFile(file);
        addLog(file, rows, MessageBytes, randomIds);
        return drainFile(file, sink.url()) / rows;
    };
    const Pair pair = interleave(
        Rounds, [&] { return perRow(Many); },
        [&] {
            return interleave(
                       FewRounds, [&] { return perRow(Few); }, [] { return 0.0; })
                .ours;
        });
    report.add("draining 1,000,000 log rows / 10,000, one row"_l1, pair, Unit::Seconds, 1.3);
    report.add("the same / 1,000,000 with random ids"_l1, {pair.ours, perRow(Many, true)}, Unit::Seconds);
}

void benchFlightServer(Report& report)
{
    constexpr int Rounds = 7;
    constexpr int Rows = 100000;
    const QTemporaryDir folder(diskFolder());
    const QString waiting = folder.filePath("waiting.kv"_l1);
    makeMissionFile(waiting);
    addLog(waiting, Rows);
    const auto drain = [&](auto way) {
        const QString file = folder.filePath("drained.kv"_l1);
        copyFile(waiting, file);
        const FlightServer server;
        return way(file, server.url());
    };
    const Pair pair = interleave(
        Rounds, [&] { return drain(drainFile); }, [&] { return drain(drainBaseline); });
    report.add("draining 100,000 log rows to flightserver"_l1, pair, Unit::Seconds, 1.8);
    const std::vector<QByteArray> bodies = bodiesOf(waiting);
    const Pair posted = interleave(
        Rounds, [&] { return postByManager(bodies); }, [&] { return postByCurl(bodies); });
    report.add("the same / bodies made beforehand, bare manager"_l1, {pair.ours, posted.ours}, Unit::Seconds);
    report.add("the same / bodies made beforehand, libcurl"_l1, {pair.ours, posted.baseline}, Unit::Seconds);
}
} // namespace

void benchDrain(Report& report)
{
    benchFlightServer(report);
    benchBacklog(report);
}
