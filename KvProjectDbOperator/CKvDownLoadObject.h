// SPDX-License-Identifier: MIT
#pragma once

#include "KvProjectDbOperatorGlobal.h"

#include <QtCore/QByteArray>
#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtNetwork/QNetworkReply>

class QNetworkAccessManager;
class QNetworkRequest;
class QTimer;

/// \file
/// A download over HTTP.

/// Fetches one HTTP resource at a time into memory.
///
/// A request ends with downLoadFinished() or NetWorkError(). The received bytes are for subclasses, which
/// override the virtual slots; this class writes no file. Redirects are not followed.
///
/// Why a request failed is told to the log as a warning, once for each change.
///
/// An object lives on one thread with an event loop and is used there alone. It has no parent; whoever
/// constructs it deletes it, also in the middle of a transfer, in a receiver of its signals through
/// deleteLater(), though a plain delete is survived. When EnabledFiddler() holds at construction, the
/// application's proxy is set to 127.0.0.1 port 8888.
class KVPROJECTDBOPERATOR_EXPORT CKvDownLoadObject : public QObject
{
    Q_OBJECT

public:
    /// Makes an object that posts, with no URL, header or body yet.
    CKvDownLoadObject();
    /// No signal follows. Replies and their manager live on until the process ends.
    ~CKvDownLoadObject() override;

    /// Sets the whole URL, UTF-8, parsed in tolerant mode.
    void SetUrl(const QByteArray& byteUrl);
    /// The URL as it was set.
    QString GetFileUrl();
    /// true: POST (the default), false: GET.
    void SetMethod(bool bPost);
    /// Sets the body of a POST.
    void SetFilePathArray(const QByteArray& bytePostData);
    /// Sets the one extra header, replacing the previous one; it is applied at each request.
    void setRawHeader(const QByteArray& byteKey, const QByteArray& byteValue);
    /// Keeps a path for the caller; the object does not use it.
    void SetFilePath(const QString& strFilePath);
    /// The path kept by SetFilePath().
    QString GetFilePath();
    /// Sets the milliseconds without progress after which a request counts as stalled (10000 at the start);
    /// used from the next start of the timer on.
    void setTimeoutIntervel(const int& nInterval);
    /// Keeps a value for the caller under a key, replacing the previous one.
    void SetUserData(int nKey, const QVariant& value);
    /// The value under the key; invalid when there is none.
    QVariant GetUserData(int nKey);
    /// Bytes received between the last two progress reports. The first report of a further request is
    /// measured against the last one of the request before, so it can be negative.
    int GetDeltaProgress();

Q_SIGNALS:
    /// Bytes received so far, and in all (-1 when the server does not say).
    void downloadProgress(qint64, qint64);
    /// The reply is complete and without error.
    void downLoadFinished();
    /// The reply ended with a network or HTTP error or was stopped; or nothing came for the timeout. A
    /// stalled reply goes on, and its end is signalled as well. It keeps one of the six connections that Qt
    /// opens to a server: before a new request on a silent line call stop(), whose NetWorkError() is then the
    /// stalled reply's end.
    void NetWorkError();

public Q_SLOTS:
    /// Starts a request. An earlier one that still runs is no longer read, but its end is still signalled.
    virtual void slotRequestData();
    /// Ends the current request with NetWorkError(). Without a request it does nothing.
    void stop();

protected Q_SLOTS:
    /// A reply has ended, which after a second request may be the earlier one.
    virtual void replyFinished(QNetworkReply* pReply);
    /// For a host or subclass to connect a reply's error signal to: the first error in the life of the object
    /// gives NetWorkError().
    void ConnecttedError(QNetworkReply::NetworkError errorCode);
    /// Bytes can be read from the current reply.
    virtual void slotRecviedData();
    /// Bytes have come: hands the report on and starts the timeout anew.
    void slotDownloadProgress(qint64 nReceived, qint64 nTotal);
    /// Nothing has come for the timeout.
    void slotReqTimeOut();

protected:
    QByteArray m_byteRecvData; ///< bytes of the current request so far

private:
    QByteArray m_byteUrl;
    QNetworkAccessManager* m_pNetManager = nullptr;

protected:
    QNetworkReply* m_pReply = nullptr; ///< reply of the latest request, owned by its manager

private:
    QNetworkRequest* m_pRequest;
    QByteArray m_bytePostData;
    QByteArray m_byteHeaderKey;
    QByteArray m_byteHeaderValue;
    QString m_strFilePath;
    bool m_bErrorReported = false;
    bool m_bPostMethod = true;
    QMap<int, QVariant> m_mapUserData;
    QTimer* m_pTimeoutTimer = nullptr;
    int m_nLastReceived = 0;
    int m_nDeltaProgress = 0;
    int m_nTimeoutInterval = 10000;
};
