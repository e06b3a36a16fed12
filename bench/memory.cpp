// SPDX-License-Identifier: MIT
#include "Host.h"
#include "KvProjectDbOperator/CKvUpLoadObject.h"
#include "MissionFile.h"
#include "Servers.h"
#include "Suites.h"

#include <iostream>
#include <malloc.h>
#include <QBuffer>
#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTemporaryDir>

namespace
{

constexpr int kPatienceMs = 300000;
constexpr int kRequests = 10000;
const QByteArray kBody(100000,
                       'x'); // above what one segment takes, so no request waits for an acknowledgement

// A figure of this process, in bytes: VmRSS, VmHWM.
double ofProcess(const char* name)
{
    QFile status("/proc/self/status");
    require(status.open(QIODevice::ReadOnly), "no /proc/self/status");
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(name))
            return line.simplified().split(' ').value(1).toDouble() * 1024;
    }
    throw std::runtime_error(std::string(name) + " is not in /proc/self/status");
}

double residentNow()
{
    malloc_trim(0);
    return ofProcess("VmRSS:");
}

void measurePositions(const QString& file, const QByteArray& url)
{
    const double before = residentNow();
    const double time = drainFile(file, url);
    std::cout << ofProcess("VmHWM:") - before << ' ' << time << std::endl;
}

void postOurs(const QByteArray& url, int requests)
{
    auto* const object = new CKvUpLoadObject; // lives on, as the operator's do
    object->SetUrl(url);
    object->SetFilePathArray(kBody);
    QEventLoop loop;
    QObject::connect(object, &CKvUpLoadObject::upLoadFinished, &loop, &QEventLoop::quit);
    for (int i = 0; i < requests; ++i) {
        object->PostNetWorkReplyMessage();
        loop.exec();
    }
}

void postBare(const QByteArray& url, int requests)
{
    auto* const manager = new QNetworkAccessManager;
    QNetworkRequest request{QUrl(url)};
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/x-www-form-urlencoded");
    QEventLoop loop;
    QObject::connect(manager, &QNetworkAccessManager::finished, &loop, &QEventLoop::quit);
    for (int i = 0; i < requests; ++i) {
        auto* const body = new QBuffer;
        body->setData(kBody);
        body->open(QIODevice::ReadOnly);
        QNetworkReply* const reply = manager->post(request, body);
        loop.exec();
        reply->readAll();
        delete body;
    }
}

void measurePosts(bool ours, const QByteArray& url)
{
    const auto post = ours ? postOurs : postBare;
    post(url, 1); // what is made once and for all
    const double before = residentNow();
    post(url, kRequests);
    std::cout << residentNow() - before << std::endl;
}

std::vector<double> runChild(const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(), QStringList("--child") + arguments);
    require(process.waitForFinished(kPatienceMs) && process.exitCode() == 0, "a child process failed");
    std::vector<double> figures;
    for (const QByteArray& figure : process.readAll().simplified().split(' '))
        figures.push_back(figure.toDouble());
    return figures;
}

void benchPositions(Report& report)
{
    constexpr int kFew = 10000;
    constexpr int kMany = 1000000;
    const QTemporaryDir folder(diskFolder());
    const auto measure = [&folder](int rows, const SinkServer& sink) {
        const QString file = folder.filePath(QString::number(rows) + ".kv");
        makeMissionFile(file);
        addPositions(file, rows);
        return runChild({"positions", file, sink.url()});
    };
    const SinkServer sink;
    const std::vector<double> few = measure(kFew, sink);
    const std::vector<double> many = measure(kMany, sink);
    report.add("one request of 1,000,000 positions, peak memory / its body",
               {many[0], static_cast<double>(sink.largestBody())}, Unit::Bytes, 2.5);
    report.add("one request of 1,000,000 positions / 10,000, one row", {many[1] / kMany, few[1] / kFew},
               Unit::Seconds, 1.3);
}

void benchKept(Report& report)
{
    const SinkServer sink;
    report.add("memory kept after 10,000 requests / a bare manager",
               interleave(
                   1,
                   [&] {
                       return runChild({"posts", "ours", sink.url()})[0];
                   },
                   [&] {
                       return runChild({"posts", "bare", sink.url()})[0];
                   }),
               Unit::Bytes, 1.1);
}

} // namespace

void measureInChild(const QStringList& arguments)
{
    if (arguments.value(0) == "positions")
        measurePositions(arguments.value(1), arguments.value(2).toLatin1());
    else
        measurePosts(arguments.value(1) == "ours", arguments.value(2).toLatin1());
}

void benchMemory(Report& report)
{
    benchPositions(report);
    benchKept(report);
}
