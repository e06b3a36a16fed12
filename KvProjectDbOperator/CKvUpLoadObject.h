// SPDX-License-Identifier: MIT
#pragma once

#include "KvProjectDbOperatorGlobal.h"

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtNetwork/QNetworkReply>

class QNetworkAccessManager;
class QNetworkRequest;
class QTimer;

/// Sends one HTTP POST at a time and judges the server's JSON reply.
///
/// Every post ends in a signal: upLoadFinished() when the server accepted it, NoLogin() when it asks for a
/// (new) token, NetWorkError() otherwise. Nothing is retried. A reply is a JSON object with an integer
/// "status" and a string "message": 0, 1 or no status is acceptance, 401 and 403 ask for a token.
///
/// An object lives on one thread with an event loop. It has no parent; whoever constructs it deletes it.
/// When EnabledFiddler() holds at construction, the application's proxy is set to 127.0.0.1 port 8888.
class KVPROJECTDBOPERATOR_EXPORT CKvUpLoadObject : public QObject
{
    Q_OBJECT

public:
    CKvUpLoadObject();
    /// Drops a request in flight without a signal.
    ~CKvUpLoadObject() override;

    /// Sets the whole URL, UTF-8, parsed in tolerant mode.
    void SetUrl(const QByteArray& byteUrl);
    /// Sets the one extra header, replacing the previous one; it is applied at each post.
    void setRawHeader(const QByteArray& byteKey, const QByteArray& byteValue);
    /// Sets the request body, sent as it is with the form-urlencoded media type.
    void SetFilePathArray(const QByteArray& bytePostData);
    /// Keeps a path for the caller; the object does not use it.
    void SetFilePath(const QString& strFilePath);
    /// The path kept by SetFilePath().
    QString GetFilePath();
    /// The request, for further headers; owned by this object.
    QNetworkRequest* GetNetWorkRequset();
    /// Posts the body and returns at once; one of the outcome signals follows. Post again only after it
    /// has come.
    void PostNetWorkReplyMessage();

    QString m_strRecordKey;     ///< scratch for the caller: flight mission id of the request in flight
    QStringList m_listRecordID; ///< scratch for the caller: row ids carried by the request in flight

signals:
    /// Bytes sent so far, and in all.
    void uploadProgress(qint64, qint64);
    /// The server accepted the post; the argument is its whole reply body.
    void upLoadFinished(QByteArray);
    /// No byte came for 20 s after the post or the last byte; or 3 s have passed since a reply that holds
    /// no JSON object (an unreachable server ends so too); or the status says failure. A reply that comes
    /// after the 20 s is still judged and signalled.
    void NetWorkError();
    /// The server refused the token (status 401 or 403).
    void NoLogin();

private slots:
    void slotRequestData();
    void slotReplyFinished();
    void upLoadError(QNetworkReply::NetworkError errorCode);
    void slotRecviedData();
    void slotRequestTimeOut();
    void slotErrorTimeout();

private:
    QByteArray m_byteUrl;
    QNetworkAccessManager* m_pNetManager;
    QNetworkReply* m_pReply = nullptr;
    QByteArray m_bytePostData;
    QByteArray m_byteHeaderKey;
    QByteArray m_byteHeaderValue;
    QString m_strFilePath;
    QNetworkRequest* m_pRequest;
    QTimer* m_pRequestTimer = nullptr;
    QTimer* m_pErrorTimer = nullptr;
};
