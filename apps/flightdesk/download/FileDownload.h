// SPDX-License-Identifier: MIT
#pragma once

#include "operator/OperatorLog.h"

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

/// One download of one file, to its first outcome: a stalled request may have another one later. It may be
/// moved to another thread before its start.
class FileDownload : public QObject
{
    Q_OBJECT

public:
    enum class Way {
        Direct,  ///< over the library's own HTTP client
        Program, ///< through the download program, which resumes a broken download
    };

    /// \param log  where the download program tells why it failed
    static std::unique_ptr<FileDownload> make(Way way, const LogFeed& log);
    /// Absolute, and http or https.
    static bool isAddress(const QString& text);

    /// \param path  where the whole file is put; what was there is left when it does not come whole
    void start(const QString& url, const QString& path);
    /// Ends the download with an error.
    virtual void stop() = 0;

Q_SIGNALS:
    /// \param total  not above 0 when it is not known
    void progress(qint64 received, qint64 total);
    /// \param error  empty when the file is in its place
    void ended(qint64 bytes, const QString& error);

protected:
    virtual void request(const QByteArray& url) = 0;
    void noteProgress(qint64 received, qint64 total);
    void end(const QByteArray& bytes, QString error);
    QString m_stopReason; ///< why stop() was called, empty as long as it was not

private:
    QString m_path;
    bool m_ended = false;
};
