// SPDX-License-Identifier: MIT
#pragma once

#include "download/FileDownload.h"

#include <QtCore/QObject>

/// Downloads one file after another and puts each in its place; meant for a thread of its own.
class DownloadWorker : public QObject
{
    Q_OBJECT

public:
    DownloadWorker(FileDownload::Way way, const LogFeed& log);

    void start(const QString& url, const QString& path);
    void stop();

Q_SIGNALS:
    void progress(qint64 received, qint64 total);
    /// \param error  empty when the file is in its place
    void ended(qint64 bytes, const QString& error);

private:
    void finish(qint64 bytes, const QString& error);

    const FileDownload::Way m_way;
    const LogFeed& m_log;
    std::unique_ptr<FileDownload> m_download;
};
