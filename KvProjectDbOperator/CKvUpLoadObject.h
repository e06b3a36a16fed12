// SPDX-License-Identifier: MIT
#pragma once

#include "KvProjectDbOperatorGlobal.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtNetwork/QNetworkReply>

#include <functional>
#include <memory>

class CKvNetworkCause;
class QNetworkAccessManager;
class QNetworkRequest;
class QTimer;

/// \file
/// A request that uploads.

/// Sends one HTTP POST at a time and judges the server's JSON reply.
///
/// Every post ends in a signal: upLoadFinished() when the server accepted it, NoLogin() when it asks for a
/// (new) token, NetWorkError() otherwise. Nothing is retried. A reply is a JSON object with an integer
/// "status" and a string "message": 0, 1 or no status is acceptance, 401 and 403 ask for a token.
///
/// A redirection is not followed; its own reply is judged like any other.
///
/// On a line that swallows requests a post is given up by its signal after 20 s, and its reply, when it comes
/// after all, is judged and signalled still. Up to 16 posts are waited for at once, with their bodies, of
/// which equal ones are held once; the oldest are dropped without a signal when more come, after some six
/// minutes of silence.
///
/// Why a post was not accepted is told to the log as a warning, once for each change.
///
/// An object lives on one thread with an event loop and is used there alone. It has no parent; whoever
/// constructs it deletes it, in a receiver of its signals through deleteLater(), though a plain delete is
/// survived. When EnabledFiddler() holds at construction, the application's proxy is set to 127.0.0.1 port
/// 8888.
class KVPROJECTDBOPERATOR_EXPORT CKvUpLoadObject : public QObject
{
    Q_OBJECT

public:
    /// Milliseconds without a sign of the server, from the post or the last data received, after which a
    /// request counts as failed.
    static constexpr int RequestTimeout = 20000;
    /// Milliseconds from a useless answer to its failure, so that a server that answers rubbish is not
    /// hammered.
    static constexpr int ErrorDelay = 3000;

    /// Makes an object without a URL, a header or a body.
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

Q_SIGNALS:
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

private Q_SLOTS:
    void slotRequestData();
    void slotReplyFinished();
    void upLoadError(QNetworkReply::NetworkError errorCode);
    void slotRecviedData();
    void slotRequestTimeOut();
    void slotErrorTimeout();

private:
    void _InReplySignal(const std::function<void()>& handle);
    void _JudgeReply(const QNetworkReply* pFinished);
    CKvNetworkCause _Cause(const QNetworkReply* pReply) const;
    void _WarnOfNoObject(const QNetworkReply* pFinished, bool bAgain) const;
    void _SetSilentManagerAside();
    bool _HasUnanswered(const QNetworkAccessManager* pManager, int nReplies) const;
    void _GiveUp(QNetworkAccessManager* pManager);

    QByteArray m_byteUrl;
    QNetworkAccessManager* m_pNetManager;
    QNetworkReply* m_pReply = nullptr;
    bool m_bReplyJudged = false; // when it had finished
    QByteArray m_bytePostData;
    QByteArray m_byteHeaderKey;
    QByteArray m_byteHeaderValue;
    QString m_strFilePath;
    QNetworkRequest* m_pRequest;
    QTimer* m_pRequestTimer = nullptr;
    QTimer* m_pErrorTimer = nullptr;
    int m_nReplySignals = 0; // being handled
    std::shared_ptr<QObjectList> m_pLeftInSignal = std::make_shared<QObjectList>();
    QList<QPointer<QNetworkReply>> m_listUnanswered; // in the order in which they were posted
    QList<QNetworkAccessManager*> m_listAside;       // see _SetSilentManagerAside()
};
