// SPDX-License-Identifier: MIT
#include "flightdesk/words/Latin1.h"
#include "Host.h"
#include "KvAlgorthm.h"
#include "KvProjectDbOperator/CKvUpLoadObject.h"
#include "MissionFile.h"
#include "Report.h"
#include "Servers.h"
#include "Suites.h"

#include <QtCore/QBuffer>
#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTimer>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>

#include <iostream>
#include <malloc.h>

namespace
{
constexpr int PatienceMs = 300000;
constexpr int Requests = 10000;
const QByteArray Body(100000,
                      'x'); // above what one segment takes, so no request waits for an acknowledgement

// A figure of this process, in bytes: VmRSS, VmHWM.
double ofProcess(const char* name)
{
    QFile status("/proc/self/status"_l1);
    require(status.open(QIODevice::ReadOnly), "no /proc/self/status"_l1);
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(name)) {
            return line.simplified().split(' ').value(1).toDouble() * 1024;
        }
    }
    throw std::runtime_error(std::string(name) + " is not in /proc/self/status");
}

double residentNow()
{
    malloc_trim(0);
    return ofProcess("VmRSS:");
}

// Building and sending turn the event loop, marking does not: the last turn before the end has seen the peak
// of the request.
void measurePositions(const QString& file, const QByteArray& url)
{
    const double before = residentNow();
    double request = 0;
    QTimer turns;
    QObject::connect(&turns, &QTimer::timeout, [&request] { request = ofProcess("VmHWM:"); });
    turns.start(1);
    SetServerIP(url);
    Host host(EUploadEnv::OncePerRequest, file);
    QObject::connect(&host.op, &CKvFlightDataDbOperator::UploadFinished, &turns, &QTimer::stop);
    const double time = seconds([&host] { host.drain(); });
    requireDrained(file);
    std::cout << request - before << ' ' << ofProcess("VmHWM:") - before << ' ' << time << std::endl;
}

void postOurs(const QByteArray& url, int requests)
{
    auto* const object = new CKvUpLoadObject; // lives on, as the operator's do
    object->SetUrl(url);
    object->SetFilePathArray(Body);
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
    QNetworkRequest request{QUrl(QString::fromUtf8(url))};
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/x-www-form-urlencoded"_l1);
    QEventLoop loop;
    QObject::connect(manager, &QNetworkAccessManager::finished, &loop, &QEventLoop::quit);
    for (int i = 0; i < requests; ++i) {
        auto* const body = new QBuffer;
        body->setData(Body);
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
    post(url, Requests);
    std::cout << residentNow() - before << std::endl;
}

std::vector<double> runChild(const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(), QStringList("--child"_l1) + arguments);
    require(process.waitForFinished(PatienceMs) && process.exitCode() == 0, "a child process failed"_l1);
    std::vector<double> figures;
    for (const QByteArray& figure : process.readAll().simplified().split(' ')) {
        figures.push_back(figure.toDouble());
    }
    return figures;
}

struct Positions {
    double request; // peak memory until the reply, bytes
    double peak;    // and with the marking
    double time;
};

void benchPositions(Report& report)
{
    constexpr int Few = 10000;
    constexpr int Many = 1000000;
    const QTemporaryDir folder(diskFolder());
    const auto measure = [&folder](int rows, const SinkServer& sink) {
        const QString file = folder.filePath(QString::number(rows) + ".kv"_l1);
        makeMissionFile(file);
        addPositions(file, rows);
        const std::vector<double> figures = runChild({"positions"_l1, file, QString::fromUtf8(sink.url())});
        return Positions{figures.at(0), figures.at(1), figures.at(2)};
    };
    const SinkServer sink;
    const Positions few = measure(Few, sink);
    const Positions many = measure(Many, sink);
    const auto body = static_cast<double>(sink.largestBody());
    report.add("one request of 1,000,000 positions, peak memory / its body"_l1, {many.request, body},
               Unit::Bytes, 1.5);
    report.add("the same with the statement that marks them / the body"_l1, {many.peak, body}, Unit::Bytes);
    report.add("one request of 1,000,000 positions / 10,000, one row"_l1, {many.time / Many, few.time / Few},
               Unit::Seconds, 1.3);
}

void benchKept(Report& report)
{
    const SinkServer sink;
    report.add("memory kept after 10,000 requests / a bare manager"_l1,
               interleave(
                   1,
                   [&] {
                       return runChild({"posts"_l1, "ours"_l1, QString::fromUtf8(sink.url())})[0];
                   },
                   [&] {
                       return runChild({"posts"_l1, "bare"_l1, QString::fromUtf8(sink.url())})[0];
                   }),
               Unit::Bytes, 1.1);
}
} // namespace

void measureInChild(const QStringList& arguments)
{
    const QByteArray url = arguments.value(2).toLatin1();
    if (arguments.value(0) == "positions"_l1) {
        measurePositions(arguments.value(1), url);
    } else {
        measurePosts(arguments.value(1) == "ours"_l1, url);
    }
}

void benchMemory(Report& report)
{
    benchPositions(report);
    benchKept(report);
}
