// SPDX-License-Identifier: MIT
#include "CKvUpLoadObject.h"

#include "KvAlgorthm.h"
#include "KvDebugProxy.h"
#include "KvTrace.h"

#include <QtCore/QBuffer>
#include <QtCore/QDebug>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTimer>
#include <QtCore/QUrl>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkRequest>

namespace
{
constexpr int RequestTimeout = 20000; // milliseconds, from the post or the last data received
constexpr int ErrorDelay = 3000;      // milliseconds, so that a server that answers rubbish is not hammered

QTimer* NewTimer(CKvUpLoadObject* pReceiver, const char* slot)
{
    auto* const pTimer = new QTimer;
    QObject::connect(pTimer, SIGNAL(timeout()), pReceiver, slot);
    return pTimer;
}

/// The body as a device of the reply's that goes with the reply's end: a manager keeps every reply, and a
/// reply keeps a body that it was given as bytes.
QNetworkReply* Post(QNetworkAccessManager* pManager, const QNetworkRequest& request, const QByteArray& body)
{
    auto* const pBody = new QBuffer;
    pBody->setData(body);
    pBody->open(QIODevice::ReadOnly);
    QNetworkReply* const pReply = pManager->post(request, pBody);
    pBody->setParent(pReply);
    QObject::connect(pReply, SIGNAL(finished()), pBody, SLOT(deleteLater()));
    return pReply;
}
} // namespace

CKvUpLoadObject::CKvUpLoadObject() : m_pNetManager(new QNetworkAccessManager), m_pRequest(new QNetworkRequest)
{
    InstallDebugProxy();
}

CKvUpLoadObject::~CKvUpLoadObject()
{
    disconnect(m_pNetManager);
    if (m_pReply) {
        disconnect(m_pReply);
        m_pReply->deleteLater();
        m_pReply = nullptr;
    }
    m_pNetManager->deleteLater();
    m_pNetManager = nullptr;
    // Timers and request stay: a host may still hold the request.
}

void CKvUpLoadObject::SetUrl(const QByteArray& byteUrl)
{
    m_byteUrl = byteUrl;
    m_pRequest->setUrl(QUrl(QString::fromUtf8(m_byteUrl), QUrl::TolerantMode));
}

void CKvUpLoadObject::setRawHeader(const QByteArray& byteKey, const QByteArray& byteValue)
{
    m_byteHeaderKey = byteKey;
    m_byteHeaderValue = byteValue;
}

void CKvUpLoadObject::SetFilePathArray(const QByteArray& bytePostData)
{
    m_bytePostData = bytePostData;
}

void CKvUpLoadObject::SetFilePath(const QString& strFilePath)
{
    m_strFilePath = strFilePath;
}

QString CKvUpLoadObject::GetFilePath()
{
    return m_strFilePath;
}

QNetworkRequest* CKvUpLoadObject::GetNetWorkRequset()
{
    return m_pRequest;
}

void CKvUpLoadObject::PostNetWorkReplyMessage()
{
    if (!m_pRequestTimer) {
        m_pRequestTimer = NewTimer(this, SLOT(slotRequestTimeOut()));
        m_pErrorTimer = NewTimer(this, SLOT(slotErrorTimeout()));
    }
    m_pRequest->setHeader(QNetworkRequest::UserAgentHeader, GetSysinfo());
    if (!m_byteHeaderKey.isEmpty()) {
        m_pRequest->setRawHeader(m_byteHeaderKey, m_byteHeaderValue);
    }
    m_pReply = Post(m_pNetManager, *m_pRequest, m_bytePostData);
    connect(m_pReply, SIGNAL(uploadProgress(qint64, qint64)), this, SIGNAL(uploadProgress(qint64, qint64)));
    connect(m_pReply, SIGNAL(readyRead()), this, SLOT(slotRecviedData()));
    connect(m_pReply, SIGNAL(finished()), this, SLOT(slotReplyFinished()));
    m_pRequestTimer->start(RequestTimeout);
}

void CKvUpLoadObject::slotRequestData()
{
    PostNetWorkReplyMessage();
}

void CKvUpLoadObject::slotRecviedData()
{
    m_pRequestTimer->stop();
    m_pRequestTimer->start(RequestTimeout);
}

void CKvUpLoadObject::slotReplyFinished()
{
    m_pRequestTimer->stop();
    const QByteArray body = m_pReply->readAll();
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (document.isEmpty()) {
        KV_TRACE << "CKvUpLoadObject::slotReplyFinished"
                 << "jsDoc.isEmpty()" << body;
        m_pErrorTimer->start(ErrorDelay);
        return;
    }
    const QJsonObject object = document.object();
    if (object.isEmpty()) {
        KV_TRACE << "CKvUpLoadObject::slotReplyFinished"
                 << "JsObj.isEmpty()";
        m_pErrorTimer->start(ErrorDelay);
        return;
    }
    const int nStatus = object.value(QLatin1String("status")).toInt(0);
    const QString strMessage = object.value(QLatin1String("message")).toString();
    if (nStatus == 0 || nStatus == 1) {
        emit upLoadFinished(body);
    } else if (nStatus == 401 || nStatus == 403) {
        KV_TRACE << "CKvUpLoadObject::slotReplyFinished" << nStatus << strMessage;
        emit NoLogin();
    } else {
        qDebug() << "CKvUpLoadObject::slotReplyFinished" << nStatus << strMessage;
        KV_TRACE << "CKvUpLoadObject::slotReplyFinished" << nStatus << strMessage;
        emit NetWorkError();
    }
}

void CKvUpLoadObject::slotRequestTimeOut()
{
    m_pRequestTimer->stop();
    KV_TRACE << "CKvUpLoadObject::slotRequestTimeOut" << 119;
    emit NetWorkError();
}

void CKvUpLoadObject::slotErrorTimeout()
{
    KV_TRACE << "CKvUpLoadObject::slotErrorTimeout" << 125;
    m_pErrorTimer->stop();
    emit NetWorkError();
}

void CKvUpLoadObject::upLoadError(QNetworkReply::NetworkError errorCode)
{
    if (errorCode != QNetworkReply::NoError) {
        emit NetWorkError();
    }
}
