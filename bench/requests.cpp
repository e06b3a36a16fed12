// SPDX-License-Identifier: MIT
#include "Baseline.h"
#include "flightdesk/words/Latin1.h"
#include "Host.h"
#include "MissionFile.h"
#include "Servers.h"
#include "Suites.h"

#include <QtCore/QEventLoop>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>

namespace
{
double postSmallOnesByManager(const QByteArray& url, const QByteArray& body)
{
    QNetworkAccessManager manager;
    QNetworkRequest request(QUrl(QString::fromUtf8(url + "/flight/detailupload")));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/x-www-form-urlencoded"_l1);
    QEventLoop loop;
    QObject::connect(&manager, &QNetworkAccessManager::finished, &loop, &QEventLoop::quit);
    return SmallRequests / seconds([&] {
               for (int i = 0; i < SmallRequests; ++i) {
                   manager.post(request, body);
                   loop.exec();
               }
           });
}

double postSmallOnesByCurl(const QByteArray& url, const QByteArray& body)
{
    Poster poster(url, "/flight/detailupload");
    return SmallRequests / seconds([&] {
               for (int i = 0; i < SmallRequests; ++i) {
                   poster.post(body);
               }
           });
}
} // namespace

void benchRequests(Report& report)
{
    constexpr int Rounds = 3;
    const QByteArray body = "flight_mission_id=" + MissionId + R"(&data=[{"id":"1"}])";
    const auto compare = [&](const QString& what, const QByteArray& url) {
        const auto ours = [&] { return postSmallOnes(url, body); };
        report.add(what + " / bare manager"_l1,
                   interleave(Rounds, ours, [&] { return postSmallOnesByManager(url, body); }),
                   Unit::PerSecond);
        report.add(what + " / libcurl"_l1,
                   interleave(Rounds, ours, [&] { return postSmallOnesByCurl(url, body); }), Unit::PerSecond);
    };
    const SinkServer sink(false);
    compare("requests with 1 row"_l1, sink.url());
    const FlightServer server;
    compare("the same, flightserver"_l1, server.url());
}
