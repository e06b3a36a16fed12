// SPDX-License-Identifier: MIT
#include "DownloadWorker.h"

DownloadWorker::DownloadWorker(FileDownload::Way way, const LogFeed& log) : m_way(way), m_log(log) {}

void DownloadWorker::start(const QString& url, const QString& path)
{
    m_download = FileDownload::make(m_way, m_log);
    connect(m_download.get(), &FileDownload::progress, this, &DownloadWorker::progress);
    connect(m_download.get(), &FileDownload::ended, this,
            [this, path](const QByteArray& bytes, const QString& error) { finish(path, bytes, error); });
    m_download->start(url);
}

void DownloadWorker::finish(const QString& path, const QByteArray& bytes, QString error)
{
    if (error.isEmpty()) {
        error = FileDownload::write(bytes, path);
    }
    // A stalled request goes on until it is told otherwise. Its object is still at work here.
    m_download->disconnect(this);
    if (!error.isEmpty()) {
        m_download->stop();
    }
    m_download.release()->deleteLater();
    emit ended(bytes.size(), error);
}

void DownloadWorker::stop()
{
    if (m_download) {
        m_download->stop();
    }
}
