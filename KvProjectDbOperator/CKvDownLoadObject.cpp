// SPDX-License-Identifier: MIT
#include "CKvDownLoadObject.h"

#include "KvAlgorthm.h"
#include "KvData/KvOwnThread.h"
#include "KvDebugProxy.h"
#include "KvNetworkCause.h"

#include <QtCore/QPointer>
#include <QtCore/QTimer>
#include <QtCore/QUrl>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkRequest>

namespace
{
/// A manager that has seen the network go stays offline until it is told otherwise. Those of Qt 6 look anew
/// each time.
void AllowNetwork([[maybe_unused]] QNetworkAccessManager* pManager)
{
#if QT_VERSION_MAJOR == 5
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    if (pManager->networkAccessible() == QNetworkAccessManager::NotAccessible) {
        pManager->setNetworkAccessible(QNetworkAccessManager::Accessible);
    }
    QT_WARNING_POP
#endif
}
} // namespace

CKvDownLoadObject::CKvDownLoadObject() : m_pRequest(new QNetworkRequest)
{
    m_pRequest->setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    InstallDebugProxy();
}

CKvDownLoadObject::~CKvDownLoadObject()
{
    KV_ON_OWN_THREAD;
    m_byteRecvData.clear();
}

void CKvDownLoadObject::SetUrl(const QByteArray& byteUrl)
{
    KV_ON_OWN_THREAD;
    m_byteUrl = byteUrl;
}

QString CKvDownLoadObject::GetFileUrl()
{
    return QString::fromUtf8(m_byteUrl);
}

void CKvDownLoadObject::SetMethod(bool bPost)
{
    m_bPostMethod = bPost;
}

void CKvDownLoadObject::SetFilePathArray(const QByteArray& bytePostData)
{
    KV_ON_OWN_THREAD;
    m_bytePostData = bytePostData;
}

void CKvDownLoadObject::setRawHeader(const QByteArray& byteKey, const QByteArray& byteValue)
{
    KV_ON_OWN_THREAD;
    m_byteHeaderKey = byteKey;
    m_byteHeaderValue = byteValue;
}

void CKvDownLoadObject::SetFilePath(const QString& strFilePath)
{
    m_strFilePath = strFilePath;
}

QString CKvDownLoadObject::GetFilePath()
{
    return m_strFilePath;
}

void CKvDownLoadObject::setTimeoutIntervel(const int& nInterval)
{
    m_nTimeoutInterval = nInterval;
}

void CKvDownLoadObject::SetUserData(int nKey, const QVariant& value)
{
    m_mapUserData.insert(nKey, value);
}

QVariant CKvDownLoadObject::GetUserData(int nKey)
{
    return m_mapUserData.value(nKey);
}

int CKvDownLoadObject::GetDeltaProgress()
{
    return m_nDeltaProgress;
}

void CKvDownLoadObject::slotRequestData()
{
    KV_ON_OWN_THREAD;
    if (!m_byteHeaderKey.isEmpty()) {
        m_pRequest->setRawHeader(m_byteHeaderKey, m_byteHeaderValue);
    }
    m_pRequest->setHeader(QNetworkRequest::UserAgentHeader, GetSysinfo());
    m_pRequest->setUrl(QUrl(QString::fromUtf8(m_byteUrl), QUrl::TolerantMode));
    if (!m_pTimeoutTimer) {
        m_pTimeoutTimer = new QTimer(this);
        connect(m_pTimeoutTimer, SIGNAL(timeout()), this, SLOT(slotReqTimeOut()));
    }
    if (m_pNetManager) {
        AllowNetwork(m_pNetManager);
    } else {
        m_pNetManager = new QNetworkAccessManager;
        connect(m_pNetManager, SIGNAL(finished(QNetworkReply*)), this, SLOT(replyFinished(QNetworkReply*)));
    }
    if (m_pReply) {
        disconnect(m_pReply, SIGNAL(downloadProgress(qint64, qint64)), this,
                   SLOT(slotDownloadProgress(qint64, qint64)));
        disconnect(m_pReply, SIGNAL(readyRead()), this, SLOT(slotRecviedData()));
    }
    m_pReply =
        m_bPostMethod ? m_pNetManager->post(*m_pRequest, m_bytePostData) : m_pNetManager->get(*m_pRequest);
    KeepCertificateErrors(m_pReply);
    connect(m_pReply, SIGNAL(downloadProgress(qint64, qint64)), this,
            SLOT(slotDownloadProgress(qint64, qint64)));
    connect(m_pReply, SIGNAL(readyRead()), this, SLOT(slotRecviedData()));
    m_byteRecvData.clear();
    m_pTimeoutTimer->start(m_nTimeoutInterval);
}

void CKvDownLoadObject::slotRecviedData()
{
    m_byteRecvData += m_pReply->readAll();
}

void CKvDownLoadObject::slotDownloadProgress(qint64 nReceived, qint64 nTotal)
{
    m_pTimeoutTimer->stop();
    m_nDeltaProgress = static_cast<int>(nReceived) - m_nLastReceived;
    const QPointer<CKvDownLoadObject> alive(this);
    Q_EMIT downloadProgress(nReceived, nTotal);
    if (!alive) {
        return;
    }
    m_nLastReceived = static_cast<int>(nReceived);
    m_pTimeoutTimer->start(m_nTimeoutInterval);
}

void CKvDownLoadObject::replyFinished(QNetworkReply* pReply)
{
    m_pTimeoutTimer->stop();
    if (pReply->error() != QNetworkReply::NoError) {
        if (pReply->error() != QNetworkReply::OperationCanceledError) { // the host's own doing
            CKvNetworkCause(pReply->url(), m_byteHeaderValue).WarnOfReply(pReply);
        }
        Q_EMIT NetWorkError();
    } else {
        CKvNetworkCause(pReply->url()).Succeeded();
        Q_EMIT downLoadFinished();
    }
}

void CKvDownLoadObject::slotReqTimeOut()
{
    m_pTimeoutTimer->stop();
    CKvNetworkCause(m_pReply->url(), m_byteHeaderValue)
        .Warn(QStringLiteral("nothing came for %1 ms").arg(m_nTimeoutInterval));
    Q_EMIT NetWorkError();
}

void CKvDownLoadObject::stop()
{
    KV_ON_OWN_THREAD;
    if (m_pReply) {
        m_pReply->abort();
    }
}

void CKvDownLoadObject::ConnecttedError(QNetworkReply::NetworkError errorCode)
{
    if (errorCode != QNetworkReply::NoError && !m_bErrorReported) {
        m_bErrorReported = true;
        Q_EMIT NetWorkError();
    }
}
