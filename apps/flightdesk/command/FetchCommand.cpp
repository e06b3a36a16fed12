// SPDX-License-Identifier: MIT
#include "command/CommandLine.h"
#include "command/Commands.h"
#include "download/FileDownload.h"
#include "words/Failure.h"
#include "words/Latin1.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QTimer>

namespace
{
/// \return bytes of the file, which is in its place then. Throws Failure.
qint64 fetch(const CommandLine& line, const QString& url, const QString& path, Console& console)
{
    const auto way =
        line.isSet(QStringLiteral("external")) ? FileDownload::Way::Program : FileDownload::Way::Direct;
    const auto download = FileDownload::make(way, line.log());
    const QString label = QFileInfo(path).fileName();
    qint64 size = 0;
    QString why;
    const QObject scope;
    QObject::connect(download.get(), &FileDownload::progress, &scope, [&](qint64 received, qint64 total) {
        if (total > 0) {
            console.progress(label, received, total);
        }
    });
    QObject::connect(download.get(), &FileDownload::ended, &scope, [&](qint64 bytes, const QString& error) {
        size = bytes;
        why = error;
        QCoreApplication::quit();
    });
    QTimer::singleShot(0, download.get(), [&] { download->start(url, path); });
    QCoreApplication::exec();
    if (!why.isEmpty()) {
        throw Failure(why);
    }
    return size;
}
} // namespace

int runFetch(const QStringList& arguments)
{
    CommandLine line(
        QStringLiteral("Downloads a file."),
        {{"to"_l1, "Where the file is put, once it is whole."_l1, "FILE"_l1},
         {"external"_l1, "Download through the download program, which resumes a broken download."_l1}},
        CommandLine::Scope::NoProject);
    line.takes(QStringLiteral("URL"), QStringLiteral("Address of the file, http or https."),
               QStringLiteral("URL"));
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    const QString url = line.positionals().constFirst();
    const QString path = line.value(QStringLiteral("to"));
    if (path.isEmpty() || line.positionals().size() > 1 || !FileDownload::isAddress(url)) {
        Console::printUsageError(
            QStringLiteral("fetch takes one absolute http or https address, and --to FILE"));
        return BadUsage;
    }
    Console& console = line.console();
    const auto document = [&](qint64 bytes, const QString& error) {
        console.document({{"ok"_l1, error.isEmpty()},
                          {"url"_l1, url},
                          {"file"_l1, path},
                          {"bytes"_l1, bytes},
                          {"error"_l1, error}});
    };
    try {
        const qint64 bytes = fetch(line, url, path, console);
        document(bytes, QString());
        console.line(QStringLiteral("%1: %2 bytes").arg(path, QString::number(bytes)));
    } catch (const Failure& failure) {
        document(0, failure.words());
        console.error(QStringLiteral("%1: %2").arg(url, failure.words()));
        return NotDone;
    }
    return Done;
}
