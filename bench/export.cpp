// SPDX-License-Identifier: MIT
#include "flightdesk/words/Latin1.h"
#include "MissionFile.h"
#include "Suites.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <sys/resource.h>

namespace
{
constexpr int Flights = 1000;
constexpr int Hour = 3600;
constexpr double Minute = 60;
constexpr double MostMemory = 64 * 1024 * 1024;

// Of the largest child so far.
double peakOfChildren()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return 1024.0 * double(usage.ru_maxrss);
}

double exportAll(const QString& project, const QString& format)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    return seconds([&] {
        process.start(QCoreApplication::applicationDirPath() + "/flightdesk"_l1,
                      {"export"_l1, "--project"_l1, project, "--format"_l1, format, "--output"_l1,
                       project + "/all."_l1 + format});
        require(process.waitForFinished(-1) && process.exitCode() == 0, "the export failed"_l1);
    });
}
} // namespace

void benchExport(Report& report)
{
    const QTemporaryDir project(diskFolder());
    const QString first = project.filePath("flight.kv"_l1);
    makeMissionFile(first);
    addFlight(first, Hour);
    for (int i = 0; i < Flights; ++i) {
        const QString folder = project.filePath(QString::number(i));
        require(QDir().mkpath(folder) && QFile::copy(first, folder + "/flight.kv"_l1),
                "cannot make "_l1 + folder);
    }
    for (const char* const format : {"kml", "gpx", "geojson", "csv"}) {
        report.add(
            QStringLiteral("1,000 flights of an hour into one %1 / a minute").arg(QLatin1String(format)),
            {exportAll(project.path(), QLatin1String(format)), Minute}, Unit::Seconds,
            format == QByteArray("kml") ? 1 : 0);
    }
    report.add("the most memory of these / 64 MiB"_l1, {peakOfChildren(), MostMemory}, Unit::Bytes, 1);
}
