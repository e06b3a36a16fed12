// SPDX-License-Identifier: MIT
#include "QueuedUploads.h"

#include "KvAlgorthm.h"
#include "KvProjectDbOperator/CKvUpLoadObject.h"

#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkRequest>

namespace QueuedUploads
{
int refused = 0;
std::function<void(const QString&)> posted;
QStringList sent;
QStringList accepted;

namespace
{
QList<CKvUpLoadObject*> objects;
int posts = 0;
int outstanding = 0;
} // namespace

void reset()
{
    while (!objects.isEmpty()) {
        delete objects.constFirst();
    }
    posted = nullptr;
    sent.clear();
    accepted.clear();
    refused = posts = outstanding = 0;
}

bool areOutstanding()
{
    return outstanding > 0;
}
} // namespace QueuedUploads

CKvUpLoadObject::CKvUpLoadObject() : m_pNetManager(new QNetworkAccessManager), m_pRequest(new QNetworkRequest)
{
    QueuedUploads::objects.append(this);
}

CKvUpLoadObject::~CKvUpLoadObject()
{
    delete m_pNetManager;
    delete m_pRequest;
    QueuedUploads::objects.removeOne(this);
}

void CKvUpLoadObject::SetUrl(const QByteArray& byteUrl)
{
    m_byteUrl = byteUrl;
}

void CKvUpLoadObject::PostNetWorkReplyMessage()
{
    ++QueuedUploads::outstanding;
    const bool refused = ++QueuedUploads::posts == QueuedUploads::refused;
    const QStringList ids = m_listRecordID.isEmpty() ? QStringList{m_strRecordKey} : m_listRecordID;
    const QString path = QString::fromLatin1(m_byteUrl.mid(GetServerIP().size()));
    QueuedUploads::posted(path + u' ' + m_strRecordKey + u' ' + m_listRecordID.join(u' '));
    QueuedUploads::sent += ids;
    const auto answer = [this, refused, ids] {
        --QueuedUploads::outstanding;
        if (refused) {
            Q_EMIT NetWorkError();
        } else {
            QueuedUploads::accepted += ids;
            Q_EMIT upLoadFinished("{}");
        }
    };
    QMetaObject::invokeMethod(this, answer, Qt::QueuedConnection);
}

// What the network would have called, or is not asked here.
void CKvUpLoadObject::setRawHeader(const QByteArray&, const QByteArray&) {}
void CKvUpLoadObject::SetFilePathArray(const QByteArray&) {}
void CKvUpLoadObject::slotRequestData() {}
void CKvUpLoadObject::slotReplyFinished() {}
void CKvUpLoadObject::upLoadError(QNetworkReply::NetworkError) {}
void CKvUpLoadObject::slotRecviedData() {}
void CKvUpLoadObject::slotRequestTimeOut() {}
void CKvUpLoadObject::slotErrorTimeout() {}
