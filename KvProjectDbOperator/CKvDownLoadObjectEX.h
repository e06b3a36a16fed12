// SPDX-License-Identifier: MIT
#pragma once

#include "KvProjectDbOperatorGlobal.h"

#include <QtCore/QByteArray>
#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QVariant>

class QProcess;
class QUrl;

/// \file
/// A download through a program.

/// Downloads one file at a time through the program grabdownloader.exe, into memory.
///
/// The program is "Talverinde/grabdownloader.exe" beside the folder of the application. It writes to
/// GetHomeDir() + "TmpData/" + the last segment of the URL's path ("data" when that holds no "."); the
/// folder must exist. The file is removed after success. Two objects must not load the same name at once.
///
/// Why a download failed is told to the log as a warning, once for each change.
///
/// An object lives on one thread with an event loop and is used there alone. It has no parent; whoever
/// constructs it deletes it, also while the program runs, which is then killed, in a receiver of its signals
/// through deleteLater(), though a plain delete is survived. A receiver of downloadProgress() that runs an
/// event loop may hold up the end of the program, so it must not wait for that.
class KVPROJECTDBOPERATOR_EXPORT CKvDownLoadObjectEX : public QObject
{
    Q_OBJECT

public:
    /// Makes an object without a URL.
    CKvDownLoadObjectEX();
    /// Kills the program; no signal follows.
    ~CKvDownLoadObjectEX() override;

    /// Sets the URL, UTF-8.
    void SetUrl(const QByteArray& byteUrl);
    /// The URL as it was set.
    QString GetFileUrl();
    /// Keeps a value for the caller under a key, replacing the previous one.
    void SetUserData(int nKey, const QVariant& value);
    /// The value under the key; invalid when there is none.
    QVariant GetUserData(int nKey);
    /// Kills the program; NetWorkError() follows once it has ended.
    void StopDownload();
    /// The bytes of the file, valid from downLoadFinished() until the next request.
    const QByteArray& GetByteData() const;

Q_SIGNALS:
    /// Bytes received so far, and in all.
    void downloadProgress(qint64 received, qint64 total);
    /// The file is whole; see GetByteData().
    void downLoadFinished();
    /// The program could not be started (emitted before slotRequestData() returns), failed for good, or
    /// failed five times for a reason that may pass (a broken connection or a short body).
    void NetWorkError();

public Q_SLOTS:
    /// Starts the download. A program that still runs is killed, and its end gives NetWorkError(); call again
    /// after that. From the fourth start on, a partial file of an earlier try is removed first, until then it
    /// is resumed.
    virtual void slotRequestData();
    /// Reads a progress report of the program.
    void slotPreviewProcessHasStdOut();
    /// Judges the end of the program.
    void slotPreviewProcessFinished();

private:
    QString _GetAppUpDirPath();
    static QString _GetDownloadFilePath(const QUrl& url);
    void _InProgramSignal(void (CKvDownLoadObjectEX::*handle)());
    void _ReadProgress();
    void _JudgeEnd();
    QString _ProgramsEnd(const QString& strResult) const;
    void _Warn(const QString& strCause) const;
    void _RetryOrFail(const QString& strTmpFile, bool bRetryable);

    QString m_strReserved1;
    QString m_strReserved2;
    QByteArray m_byteData;
    QByteArray m_byteUrl;
    QProcess* m_pProcess = nullptr;
    QMap<int, QVariant> m_mapUserData;
    qint32 m_nRequestCount = 0;
    qint32 m_nRetryCount = 0;
    int m_nProgramSignals = 0; // being handled
    bool m_bStopped = false;   // by the host, since the last start
};
