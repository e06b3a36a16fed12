// SPDX-License-Identifier: MIT
#include "Baseline.h"
#include "flightdesk/words/Latin1.h"
#include "Host.h"
#include "MissionFile.h"
#include "Servers.h"
#include "Suites.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

namespace
{
constexpr const char* LogPath = "/flight/detailupload";
constexpr const char* Log = "flight_monitor_detail_log";
constexpr int RecordTimeMs = 600000;

// Flights as recorded, and the logs that they were recorded from, as they are.
struct Flights {
    QStringList files;
    QByteArrayList logs;
};

Flights recordLogs(const QTemporaryDir& folder, const QStringList& logs)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start(QCoreApplication::applicationDirPath() + "/flightdesk"_l1,
                  QStringList{"record"_l1, "--project"_l1, folder.path()} + logs);
    require(process.waitForFinished(RecordTimeMs), "flightdesk does not end"_l1);
    Flights flights;
    QDirIterator files(folder.path(), {"*.kv"_l1}, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        flights.files.append(files.next());
    }
    for (const QString& log : logs) {
        QFile file(log);
        require(file.open(QIODevice::ReadOnly), "cannot read "_l1 + log);
        flights.logs.append(file.readAll());
    }
    require(flights.files.size() == logs.size(), "flightdesk did not record every log"_l1);
    return flights;
}

Flights makeUpLog(const QTemporaryDir& folder)
{
    constexpr int Rows = 100000;
    constexpr int Record = 8 + 32; // a time stamp and a frame
    const QString file = folder.filePath("flight.kv"_l1);
    makeMissionFile(file);
    addLog(file, Rows, Record);
    return {{file}, {QByteArray(Rows * Record, 'x')}};
}

double sum(const QStringList& files, const std::function<qint64(const QString&)>& figure)
{
    qint64 all = 0;
    for (const QString& file : files) {
        all += figure(file);
    }
    return static_cast<double>(all);
}

// What it takes to get the flights to the server without a wait for the line, and the bytes for the line.
struct Transfer {
    double time;
    double bytes;

    double over(double bitsPerSecond) const { return time + bytes * 8 / bitsPerSecond; }
};

Transfer uploadFiles(const QStringList& files, SinkServer& sink)
{
    double time = 0;
    for (const QString& file : files) {
        time += drainFile(file, sink.url());
    }
    return {time, static_cast<double>(sink.received())};
}

Transfer postLogs(const QByteArrayList& logs)
{
    SinkServer sink;
    Poster poster(sink.url(), "/log");
    const double time = seconds([&] {
        for (const QByteArray& log : logs) {
            poster.post(log);
        }
    });
    return {time, static_cast<double>(sink.received())};
}
} // namespace

void benchLine(Report& report, const QStringList& logs)
{
    const QTemporaryDir folder(diskFolder());
    const Flights flights = logs.isEmpty() ? makeUpLog(folder) : recordLogs(folder, logs);
    const double rows = sum(flights.files, [](const QString& file) { return countRows(file, Log); });
    const double message = sum(flights.files, bytesOfMessages) / rows;
    const double waiting = sum(flights.files, bytesOfLog) / rows;
    SinkServer sink;
    const Transfer ours = uploadFiles(flights.files, sink);
    const Transfer raw = postLogs(flights.logs);

    report.add("a log row on the line / its message"_l1,
               {static_cast<double>(sink.received(LogPath)) / rows, message}, Unit::Bytes);
    report.add("whole flights on the line / their logs posted as they are"_l1, {ours.bytes, raw.bytes},
               Unit::Bytes);
    report.add("the same, time at 1 Mbit/s, reckoned"_l1, {ours.over(1e6), raw.over(1e6)}, Unit::Seconds);
    report.add("the same, time at 10 Mbit/s, reckoned"_l1, {ours.over(1e7), raw.over(1e7)}, Unit::Seconds);
    report.add("a log row on disk while it waits / its message"_l1, {waiting, message}, Unit::Bytes);
    report.add("the same once it is uploaded / its message"_l1,
               {sum(flights.files, bytesOfLog) / rows, message}, Unit::Bytes);
}
