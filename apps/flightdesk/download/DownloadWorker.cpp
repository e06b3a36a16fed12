// SPDX-License-Identifier: MIT
#include "download/DownloadWorker.h"

DownloadWorker::DownloadWorker(FileDownload::Way way, const LogFeed& log) : m_way(way), m_log(log) {}

void DownloadWorker::start(const QString& url, const QString& path)
{
    m_download = FileDownload::make(m_way, m_log);
    connect(m_download.get(), &FileDownload::progress, this, &DownloadWorker::progress);
    connect(m_download.get(), &FileDownload::ended, this, &DownloadWorker::finish);
    m_download->start(url, path);
}

void DownloadWorker::finish(qint64 bytes, const QString& error)
{
    // A stalled request goes on until it is told otherwise. Its object is still at work here.
    m_download->disconnect(this);
    if (!error.isEmpty()) {
        m_download->stop();
    }
    m_download.release()->deleteLater();
    Q_EMIT ended(bytes, error);
}

void DownloadWorker::stop()
{
    if (m_download) {
        m_download->stop();
    }
}
