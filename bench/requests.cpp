// SPDX-License-Identifier: MIT
#include "Baseline.h"
#include "KvProjectDbOperator/CKvUpLoadObject.h"
#include "MissionFile.h"
#include "Servers.h"
#include "Suites.h"

#include <QtCore/QEventLoop>
#include <QtNetwork/QNetworkAccessManager>

namespace
{
constexpr int Requests = 50;

double postSmallOnes(const QByteArray& url, const QByteArray& body)
{
    CKvUpLoadObject object;
    object.SetUrl(url + "/flight/detailupload");
    object.SetFilePathArray(body);
    QEventLoop loop;
    QObject::connect(&object, &CKvUpLoadObject::upLoadFinished, &loop, &QEventLoop::quit);
    return Requests / seconds([&] {
               for (int i = 0; i < Requests; ++i) {
                   object.PostNetWorkReplyMessage();
                   loop.exec();
               }
           });
}

double postSmallOnesByManager(const QByteArray& url, const QByteArray& body)
{
    QNetworkAccessManager manager;
    QNetworkRequest request(QUrl(url + "/flight/detailupload"));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/x-www-form-urlencoded");
    QEventLoop loop;
    QObject::connect(&manager, &QNetworkAccessManager::finished, &loop, &QEventLoop::quit);
    return Requests / seconds([&] {
               for (int i = 0; i < Requests; ++i) {
                   manager.post(request, body);
                   loop.exec();
               }
           });
}

double postSmallOnesByCurl(const QByteArray& url, const QByteArray& body)
{
    Poster poster(url, "/flight/detailupload");
    return Requests / seconds([&] {
               for (int i = 0; i < Requests; ++i) {
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
        report.add(what + " / bare manager",
                   interleave(Rounds, ours, [&] { return postSmallOnesByManager(url, body); }),
                   Unit::PerSecond);
        report.add(what + " / libcurl",
                   interleave(Rounds, ours, [&] { return postSmallOnesByCurl(url, body); }), Unit::PerSecond);
    };
    const SinkServer sink(false);
    compare("requests with 1 row", sink.url());
    const FlightServer server;
    compare("the same, flightserver", server.url());
}
