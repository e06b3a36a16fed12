// SPDX-License-Identifier: MIT
#include "CommandLine.h"
#include "Commands.h"

#include <KvAlgorthm.h>
#include <KvProjectDbOperator/CKvDownLoadObject.h>
#include <KvProjectDbOperator/CKvDownLoadObjectEX.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>
#include <QtCore/QTimer>
#include <QtCore/QUrl>

#include <limits>

namespace
{
constexpr int StallSeconds = 10;

struct Fetched {
    QByteArray bytes;
    QString error; ///< empty when the bytes are the whole file
};

QString wrongSize(qint64 received, qint64 all)
{
    return QStringLiteral("%1 of %2 bytes came").arg(received).arg(all);
}

/// Downloads through the library's own HTTP client, and keeps what a failure was.
class DirectDownload : public CKvDownLoadObject
{
public:
    DirectDownload()
    {
        SetMethod(false);
        setTimeoutIntervel(StallSeconds * 1000);
    }
    const QByteArray& bytes() const { return m_byteRecvData; }
    void halt() { stop(); }
    /// What is wrong with the reply; without one the request has stalled.
    QString trouble() const
    {
        return m_ended ? m_trouble
                       : QStringLiteral("nothing came from the server for %1 s").arg(StallSeconds);
    }

protected:
    void replyFinished(QNetworkReply* reply) override
    {
        m_ended = true;
        m_trouble = troubleOf(reply);
        CKvDownLoadObject::replyFinished(reply);
    }

private:
    QString troubleOf(const QNetworkReply* reply) const
    {
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (status != 0 && status / 100 != 2) {
            const QString target = QString::fromUtf8(reply->rawHeader("Location"));
            return QStringLiteral("the server answered with HTTP status %1 %2%3")
                .arg(status)
                .arg(reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString(),
                     target.isEmpty() ? target : QStringLiteral(" and points at ") + target);
        }
        if (reply->error() != QNetworkReply::NoError) {
            return reply->errorString();
        }
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && length.toLongLong() != m_byteRecvData.size()) {
            return wrongSize(m_byteRecvData.size(), length.toLongLong());
        }
        return {};
    }

    bool m_ended = false;
    QString m_trouble;
};

/// Downloads through the download program, of which only the log tells why it failed.
class ExternalDownload : public CKvDownLoadObjectEX
{
public:
    explicit ExternalDownload(const LogFeed& log)
    {
        connect(&log, &LogFeed::line, this, &ExternalDownload::readLogLine);
        connect(this, &CKvDownLoadObjectEX::downloadProgress,
                [this](qint64, qint64 total) { m_total = total; });
    }
    const QByteArray& bytes() const { return GetByteData(); }
    void halt() { StopDownload(); }
    QString trouble() const
    {
        const bool whole = m_total < 0 || m_total == bytes().size();
        return m_trouble.isEmpty() && !whole ? wrongSize(bytes().size(), m_total) : m_trouble;
    }

private:
    void readLogLine(const QString& line)
    {
        const QLatin1String started("CKvDownLoadObjectEX::slotRequestData");
        const QLatin1String ended("CKvDownLoadObjectEX::slotPreviewProcessFinished");
        if (line.startsWith(started)) {
            // The line of another try, or the one that this has failed already.
            m_trouble = line.endsWith(QLatin1String("Failed to open process"))
                            ? QStringLiteral("the download program could not be started: "
                                             "Talverinde/grabdownloader.exe beside the program's folder")
                            : QString();
        } else if (line.startsWith(ended)) {
            // The log writes the line's end as an escape.
            const QString said = line.mid(ended.size()).remove(QStringLiteral("\\x0a")).trimmed();
            m_trouble = QStringLiteral("the download program failed: %1")
                            .arg(said.isEmpty() ? QStringLiteral("it ended without a word") : said);
        }
    }

    QString m_trouble;
    qint64 m_total = -1; ///< bytes of the file, as the program last said
};

/// Runs one download to its first outcome; a stalled one may have another later.
template<typename Download>
Fetched run(Download& download, const QString& url, const QString& label, Console& console)
{
    Fetched fetched;
    bool ended = false;
    bool tooLarge = false;
    const auto end = [&](const QString& error) {
        if (!ended) {
            ended = true;
            fetched = {download.bytes(), error};
            QCoreApplication::quit();
        }
    };
    const QObject scope;
    QObject::connect(&download, &Download::downloadProgress, &scope, [&](qint64 received, qint64 total) {
        if (qMax(received, total) > std::numeric_limits<int>::max() / 2) {
            tooLarge = true;
            download.halt();
        } else if (total > 0 && !ended) {
            console.progress(label, received, total);
        }
    });
    QObject::connect(&download, &Download::downLoadFinished, &scope, [&] { end(download.trouble()); });
    QObject::connect(&download, &Download::NetWorkError, &scope, [&] {
        const QString trouble =
            tooLarge ? QStringLiteral("the file is larger than 1 GiB") : download.trouble();
        end(trouble.isEmpty() ? QStringLiteral("the download failed") : trouble);
    });
    download.SetUrl(url.toUtf8());
    QTimer::singleShot(0, &download, &Download::slotRequestData);
    QCoreApplication::exec();
    return fetched;
}

Fetched fetch(const CommandLine& line, const QString& url, const QString& label, Console& console)
{
    if (!line.isSet(QStringLiteral("external"))) {
        DirectDownload download;
        return run(download, url, label, console);
    }
    const QString folder = GetHomeDir() + QStringLiteral("TmpData/");
    if (!QDir().mkpath(folder)) {
        return {{}, QStringLiteral("cannot make the folder %1").arg(folder)};
    }
    ExternalDownload download(line.log());
    return run(download, url, label, console);
}

bool isAddress(const QString& text)
{
    const QUrl url(text, QUrl::TolerantMode);
    const bool http = url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
    return url.isValid() && http && !url.host().isEmpty();
}

/// Puts the whole file in its place, or leaves there what was.
QString write(const QByteArray& bytes, const QString& path)
{
    QSaveFile file(path);
    const bool written =
        file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
    return written ? QString() : QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
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
    if (path.isEmpty() || line.positionals().size() > 1 || !isAddress(url)) {
        printUsageError(QStringLiteral("fetch takes one absolute http or https address, and --to FILE"));
        return BadUsage;
    }
    Console console(line.json());
    Logger::instance().setLoggingLevel(Level::Info); // the download program's words are told at this level
    Fetched fetched = fetch(line, url, QFileInfo(path).fileName(), console);
    if (fetched.error.isEmpty()) {
        fetched.error = write(fetched.bytes, path);
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
