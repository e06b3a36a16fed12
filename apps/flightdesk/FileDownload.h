// SPDX-License-Identifier: MIT
#pragma once

#include "LogFeed.h"

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

/// One download of one file, to its first outcome: a stalled request may have another one later.
class FileDownload : public QObject
{
    Q_OBJECT

public:
    enum class Way {
        Direct,  ///< over the library's own HTTP client
        Program, ///< through the download program, which resumes a broken download
    };

    /// \param log  where the download program tells why it failed; its threshold must let that through
    static std::unique_ptr<FileDownload> make(Way way, const LogFeed& log);
    /// Absolute, and http or https.
    static bool isAddress(const QString& text);
    /// Puts the whole file in its place, or leaves there what was.
    /// \return what went wrong, empty when nothing did
    static QString write(const QByteArray& bytes, const QString& path);

    virtual void start(const QString& url) = 0;
    /// Ends the download with an error.
    virtual void stop() = 0;

signals:
    /// \param total  not above 0 when it is not known
    void progress(qint64 received, qint64 total);
    /// \param error  empty when the bytes are the whole file
    void ended(const QByteArray& bytes, const QString& error);

protected:
    void noteProgress(qint64 received, qint64 total);
    void end(const QByteArray& bytes, const QString& error);
    QString m_stopReason; ///< why stop() was called, empty as long as it was not

private:
    bool m_ended = false;
};
