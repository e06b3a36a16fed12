// SPDX-License-Identifier: MIT
#include "CKvUpLoadObject.h"

#include "KvAlgorthm.h"
#include "KvData/KvOwnThread.h"
#include "KvDebugProxy.h"
#include "KvNetworkCause.h"
#include "KvTrace.h"

#include <QtCore/QBuffer>
#include <QtCore/QDebug>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTimer>
#include <QtCore/QUrl>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkCookieJar>
#include <QtNetwork/QNetworkRequest>

#include <algorithm>
#include <utility>

namespace
{
// Qt has six connections for a manager and a host, and a seventh request waits until one of them ends.
constexpr int MostUnanswered = 4;
constexpr int MostAside = 3;
const char* const TimedOut = "kvTimedOut"; // of a reply

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
void DeleteLater(const QObjectList& listObject)
{
    for (QObject* const pObject : listObject) {
        pObject->deleteLater();
    }
}
} // namespace

CKvUpLoadObject::CKvUpLoadObject() : m_pNetManager(new QNetworkAccessManager), m_pRequest(new QNetworkRequest)
{
    // A newer Qt follows otherwise, and turns the POST into a GET that some page accepts.
    m_pRequest->setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    InstallDebugProxy();
}

CKvUpLoadObject::~CKvUpLoadObject()
{
    KV_ON_OWN_THREAD;
    QObjectList listLeft;
    disconnect(m_pNetManager);
    if (m_pReply) {
        disconnect(m_pReply);
        listLeft.append(m_pReply);
        m_pReply = nullptr;
    }
    for (QNetworkAccessManager* const pManager : qAsConst(m_listAside)) {
        listLeft.append(pManager);
    }
    listLeft.append(m_pNetManager); // with the cookies, so it is the last one
    m_pNetManager = nullptr;
    if (m_nReplySignals > 0) {
        m_pLeftInSignal->append(listLeft);
    } else {
        DeleteLater(listLeft);
    }
    // Timers and request stay: a host may still hold the request.
}

void CKvUpLoadObject::SetUrl(const QByteArray& byteUrl)
{
    KV_ON_OWN_THREAD;
    m_byteUrl = byteUrl;
    m_pRequest->setUrl(QUrl(QString::fromUtf8(m_byteUrl), QUrl::TolerantMode));
}

void CKvUpLoadObject::setRawHeader(const QByteArray& byteKey, const QByteArray& byteValue)
{
    KV_ON_OWN_THREAD;
    m_byteHeaderKey = byteKey;
    m_byteHeaderValue = byteValue;
}

void CKvUpLoadObject::SetFilePathArray(const QByteArray& bytePostData)
{
    KV_ON_OWN_THREAD;
    if (m_bytePostData != bytePostData) { // a body that is sent again is shared with replies that never came
        m_bytePostData = bytePostData;
    }
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
    KV_ON_OWN_THREAD;
    if (!m_pRequestTimer) {
        m_pRequestTimer = NewTimer(this, SLOT(slotRequestTimeOut()));
        m_pErrorTimer = NewTimer(this, SLOT(slotErrorTimeout()));
    }
    _SetSilentManagerAside();
    m_pRequest->setHeader(QNetworkRequest::UserAgentHeader, GetSysinfo());
    if (!m_byteHeaderKey.isEmpty()) {
        m_pRequest->setRawHeader(m_byteHeaderKey, m_byteHeaderValue);
    }
    m_pReply = Post(m_pNetManager, *m_pRequest, m_bytePostData);
    m_bReplyJudged = false;
    KeepCertificateErrors(m_pReply);
    connect(m_pReply, &QNetworkReply::uploadProgress, this, [this](qint64 nSent, qint64 nTotal) {
        _InReplySignal([&] { Q_EMIT uploadProgress(nSent, nTotal); });
    });
    connect(m_pReply, SIGNAL(readyRead()), this, SLOT(slotRecviedData()));
    connect(m_pReply, SIGNAL(finished()), this, SLOT(slotReplyFinished()));
    m_listUnanswered.append(m_pReply);
    m_pRequestTimer->start(RequestTimeout);
}

/// A manager whose requests the line has swallowed would soon send no more. It lives on until they end, as a
/// late reply counts, and a fresh one takes over, with the cookies of both.
void CKvUpLoadObject::_SetSilentManagerAside()
{
    const auto ended = [](const QPointer<QNetworkReply>& pReply) { return !pReply || pReply->isFinished(); };
    m_listUnanswered.erase(std::remove_if(m_listUnanswered.begin(), m_listUnanswered.end(), ended),
                           m_listUnanswered.end());
    if (_HasUnanswered(m_pNetManager, MostUnanswered)) {
        m_listAside.append(m_pNetManager);
        m_pNetManager = new QNetworkAccessManager;
        m_pNetManager->setCookieJar(m_listAside.constLast()->cookieJar()); // which has a new parent then
    }
    for (QNetworkAccessManager* const pManager : QList<QNetworkAccessManager*>(m_listAside)) {
        if (m_listAside.size() > MostAside || !_HasUnanswered(pManager, 1)) {
            _GiveUp(pManager);
        }
    }
}

bool CKvUpLoadObject::_HasUnanswered(const QNetworkAccessManager* pManager, int nReplies) const
{
    return std::count_if(m_listUnanswered.begin(), m_listUnanswered.end(),
                         [pManager](const QPointer<QNetworkReply>& pReply) {
                             return pReply->manager() == pManager;
                         }) >= nReplies;
}

void CKvUpLoadObject::_GiveUp(QNetworkAccessManager* pManager)
{
    for (const QPointer<QNetworkReply>& pReply : qAsConst(m_listUnanswered)) {
        if (pReply->manager() == pManager) {
            disconnect(pReply, nullptr, this, nullptr);
        }
    }
    m_listAside.removeOne(pManager);
    if (m_nReplySignals > 0) {
        m_pLeftInSignal->append(pManager);
    } else {
        pManager->deleteLater();
    }
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

/// Handles a signal of a reply. A receiver of what is emitted then may run an event loop, in which this
/// object is deleted or gives a manager up; the reply goes on with its signal after that, so both live until
/// then.
void CKvUpLoadObject::_InReplySignal(const std::function<void()>& handle)
{
    const QPointer<CKvUpLoadObject> alive(this);
    const std::shared_ptr<QObjectList> pLeft = m_pLeftInSignal;
    const bool bOutermost = m_nReplySignals++ == 0;
    handle();
    if (alive) {
        --m_nReplySignals;
    }
    if (bOutermost) {
        DeleteLater(std::exchange(*pLeft, {}));
    }
}

void CKvUpLoadObject::slotReplyFinished()
{
    const auto* const pFinished = qobject_cast<const QNetworkReply*>(sender());
    _InReplySignal([this, pFinished] { _JudgeReply(pFinished); });
}

/// Whichever reply has finished, it is the last one that is judged.
void CKvUpLoadObject::_JudgeReply(const QNetworkReply* pFinished)
{
    m_pRequestTimer->stop();
    const bool bAgain = m_bReplyJudged;
    const QByteArray body = m_pReply->readAll();
    m_bReplyJudged = m_pReply->isFinished() || !body.isEmpty();
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (document.isEmpty()) {
        KV_TRACE << "CKvUpLoadObject::slotReplyFinished"
                 << "jsDoc.isEmpty()" << body;
        _WarnOfNoObject(pFinished, bAgain);
        m_pErrorTimer->start(ErrorDelay);
        return;
    }
    const QJsonObject object = document.object();
    if (object.isEmpty()) {
        KV_TRACE << "CKvUpLoadObject::slotReplyFinished"
                 << "JsObj.isEmpty()";
        _WarnOfNoObject(pFinished, bAgain);
        m_pErrorTimer->start(ErrorDelay);
        return;
    }
    const int nStatus = object.value(QLatin1String("status")).toInt(0);
    const QString strMessage = object.value(QLatin1String("message")).toString();
    if (nStatus == 0 || nStatus == 1) {
        _Cause(m_pReply).Succeeded();
        Q_EMIT upLoadFinished(body);
    } else if (nStatus == 401 || nStatus == 403) {
        KV_TRACE << "CKvUpLoadObject::slotReplyFinished" << nStatus << strMessage;
        _Cause(m_pReply).WarnOfServer(
            QStringLiteral("refuses the token: status %1, \"%2\"").arg(nStatus).arg(strMessage));
        Q_EMIT NoLogin();
    } else {
        qDebug() << "CKvUpLoadObject::slotReplyFinished" << nStatus << strMessage;
        KV_TRACE << "CKvUpLoadObject::slotReplyFinished" << nStatus << strMessage;
        _Cause(m_pReply).Warn(
            QStringLiteral("the server refuses the rows: status %1, \"%2\"").arg(nStatus).arg(strMessage));
        Q_EMIT NetWorkError();
    }
}

/// What the signals do not say, for a log that the trace does not reach.
CKvNetworkCause CKvUpLoadObject::_Cause(const QNetworkReply* pReply) const
{
    return CKvNetworkCause(pReply->url(), m_byteHeaderValue);
}

/// A host may have two requests under way: that the answer to one of them ends both is no news, nor that
/// nothing is left of a reply that was judged before.
void CKvUpLoadObject::_WarnOfNoObject(const QNetworkReply* pFinished, bool bAgain) const
{
    if (pFinished && pFinished != m_pReply && !m_pReply->isFinished()) {
        if (pFinished->property(TimedOut).toBool()) {
            _Cause(pFinished).Warn(
                QStringLiteral("the answer came after another request had been sent, which fails with it"));
        }
    } else if (!bAgain) {
        _Cause(m_pReply).WarnOfReply(m_pReply, QStringLiteral("; no JSON object came as the reply"));
    }
}

void CKvUpLoadObject::slotRequestTimeOut()
{
    m_pRequestTimer->stop();
    m_pReply->setProperty(TimedOut, true);
    KV_TRACE << "CKvUpLoadObject::slotRequestTimeOut" << 119;
    _Cause(m_pReply).WarnOfServer(QStringLiteral("no byte of an answer for %1 s").arg(RequestTimeout / 1000));
    Q_EMIT NetWorkError();
}

void CKvUpLoadObject::slotErrorTimeout()
{
    KV_TRACE << "CKvUpLoadObject::slotErrorTimeout" << 125;
    m_pErrorTimer->stop();
    Q_EMIT NetWorkError();
}

void CKvUpLoadObject::upLoadError(QNetworkReply::NetworkError errorCode)
{
    if (errorCode != QNetworkReply::NoError) {
        Q_EMIT NetWorkError();
    }
}
