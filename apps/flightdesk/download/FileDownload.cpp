// SPDX-License-Identifier: MIT
#include "download/FileDownload.h"

#include <KvAlgorthm.h>
#include <KvProjectDbOperator/CKvDownLoadObject.h>
#include <KvProjectDbOperator/CKvDownLoadObjectEX.h>

#include <QtCore/QDir>
#include <QtCore/QSaveFile>
#include <QtCore/QUrl>

#include <limits>
#include <utility>

namespace
{
constexpr int StallSeconds = 10;

QString wrongSize(qint64 received, qint64 all)
{
    return QStringLiteral("%1 of %2 bytes came").arg(received).arg(all);
}

/// Downloads through the library's own HTTP client, and keeps what a failure was.
class DirectDownload : public CKvDownLoadObject
{
public:
    explicit DirectDownload(const LogFeed&)
    {
        SetMethod(false);
        setTimeoutIntervel(StallSeconds * 1000);
    }
    const QByteArray& bytes() const { return m_byteRecvData; }
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
    explicit ExternalDownload(const LogFeed& feed) : m_log(feed)
    {
        // The library leaves the folder to the host.
        QDir().mkpath(GetHomeDir() + QStringLiteral("TmpData/"));
        connect(&m_log, &OperatorLog::downloadBegan, this, [this] { m_trouble.clear(); });
        connect(&m_log, &OperatorLog::downloadNotStarted, this, [this] {
            m_trouble = QStringLiteral("the download program could not be started: "
                                       "Talverinde/grabdownloader.exe beside the program's folder");
        });
        connect(&m_log, &OperatorLog::downloadEnded, this, [this](const QString& said) {
            m_trouble = QStringLiteral("the download program failed: %1")
                            .arg(said.isEmpty() ? QStringLiteral("it ended without a word") : said);
        });
        connect(this, &CKvDownLoadObjectEX::downloadProgress,
                [this](qint64, qint64 total) { m_total = total; });
    }
    void stop() { StopDownload(); }
    const QByteArray& bytes() const { return GetByteData(); }
    QString trouble() const
    {
        const bool whole = m_total < 0 || m_total == bytes().size();
        return m_trouble.isEmpty() && !whole ? wrongSize(bytes().size(), m_total) : m_trouble;
    }

private:
    const OperatorLog m_log;
    QString m_trouble;
    qint64 m_total = -1; ///< bytes of the file, as the program last said
};

/// The library's object is made when it is asked for a file, on the thread on which it is to work.
template<typename Object>
class DownloadOf : public FileDownload
{
public:
    explicit DownloadOf(const LogFeed& log) : m_log(log) {}

    void stop() override
    {
        if (m_stopReason.isEmpty()) {
            m_stopReason = QStringLiteral("stopped");
        }
        if (m_object) {
            m_object->stop();
        }
    }

protected:
    void request(const QByteArray& url) override
    {
        m_object = std::make_unique<Object>(m_log);
        connect(m_object.get(), &Object::downloadProgress, this, &DownloadOf::noteProgress);
        connect(m_object.get(), &Object::downLoadFinished, this,
                [this] { end(m_object->bytes(), m_object->trouble()); });
        connect(m_object.get(), &Object::NetWorkError, this, &DownloadOf::fail);
        m_object->SetUrl(url);
        m_object->slotRequestData();
    }

private:
    void fail()
    {
        const QString trouble = m_stopReason.isEmpty() ? m_object->trouble() : m_stopReason;
        end({}, trouble.isEmpty() ? QStringLiteral("the download failed") : trouble);
    }

    const LogFeed& m_log;
    std::unique_ptr<Object> m_object;
};
} // namespace

std::unique_ptr<FileDownload> FileDownload::make(Way way, const LogFeed& log)
{
    if (way == Way::Direct) {
        return std::make_unique<DownloadOf<DirectDownload>>(log);
    }
    return std::make_unique<DownloadOf<ExternalDownload>>(log);
}

bool FileDownload::isAddress(const QString& text)
{
    const QUrl url(text, QUrl::TolerantMode);
    const bool http = url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
    return url.isValid() && http && !url.host().isEmpty();
}

void FileDownload::start(const QString& url, const QString& path)
{
    m_path = path;
    request(url.toUtf8());
}

void FileDownload::noteProgress(qint64 received, qint64 total)
{
    if (m_ended) {
        return;
    }
    if (qMax(received, total) > std::numeric_limits<int>::max() / 2) {
        m_stopReason = QStringLiteral("the file is larger than 1 GiB");
        stop();
        return;
    }
    Q_EMIT progress(received, total);
}

void FileDownload::end(const QByteArray& bytes, QString error)
{
    if (std::exchange(m_ended, true)) {
        return;
    }
    if (error.isEmpty()) {
        QSaveFile file(m_path);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
            error = QStringLiteral("cannot write %1: %2").arg(m_path, file.errorString());
        }
    } else {
        stop(); // a stalled request goes on until it is told otherwise
    }
    Q_EMIT ended(bytes.size(), error);
}
