// SPDX-License-Identifier: MIT
#include "CommandLine.h"
#include "Commands.h"
#include "FileDownload.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QTimer>

namespace
{
struct Fetched {
    QByteArray bytes;
    QString error; ///< empty when the bytes are the whole file
};

Fetched fetch(const CommandLine& line, const QString& url, const QString& label, Console& console)
{
    const auto way =
        line.isSet(QStringLiteral("external")) ? FileDownload::Way::Program : FileDownload::Way::Direct;
    const auto download = FileDownload::make(way, line.log());
    Fetched fetched;
    const QObject scope;
    QObject::connect(download.get(), &FileDownload::progress, &scope, [&](qint64 received, qint64 total) {
        if (total > 0) {
            console.progress(label, received, total);
        }
    });
    QObject::connect(download.get(), &FileDownload::ended, &scope,
                     [&](const QByteArray& bytes, const QString& error) {
                         fetched = {bytes, error};
                         QCoreApplication::quit();
                     });
    QTimer::singleShot(0, download.get(), [&] { download->start(url); });
    QCoreApplication::exec();
    return fetched;
}
} // namespace

int runFetch(const QStringList& arguments)
{
    CommandLine line(
        QStringLiteral("Downloads a file."),
        {{"to", "Where the file is put, once it is whole.", "FILE"},
         {"external", "Download through the download program, which resumes a broken download."}},
        CommandLine::Scope::NoProject);
    line.takes(QStringLiteral("URL"), QStringLiteral("Address of the file, http or https."),
               QStringLiteral("URL"));
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    const QString url = line.positionals().constFirst();
    const QString path = line.value(QStringLiteral("to"));
    if (path.isEmpty() || line.positionals().size() > 1 || !FileDownload::isAddress(url)) {
        printUsageError(QStringLiteral("fetch takes one absolute http or https address, and --to FILE"));
        return BadUsage;
    }
    Console console(line.json());
    Logger::instance().setLoggingLevel(Level::Info); // the download program's words are told at this level
    Fetched fetched = fetch(line, url, QFileInfo(path).fileName(), console);
    if (fetched.error.isEmpty()) {
        fetched.error = FileDownload::write(fetched.bytes, path);
    }
    const bool done = fetched.error.isEmpty();
    console.document({{"ok", done},
                      {"url", url},
                      {"file", path},
                      {"bytes", done ? fetched.bytes.size() : 0},
                      {"error", fetched.error}});
    if (!done) {
        console.error(QStringLiteral("%1: %2").arg(url, fetched.error));
        return NotDone;
    }
    console.line(QStringLiteral("%1: %2 bytes").arg(path, QString::number(fetched.bytes.size())));
    return Done;
}
