// SPDX-License-Identifier: MIT
#include "KvNetworkCause.h"

#include "KvData/KvWarnings.h"
#include "KvLog/KvSecret.h"

#include <QtCore/QStringList>
#include <QtCore/QUrlQuery>
#include <QtCore/QVariant>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QSslError>

#include <utility>

/// Each reply that is of no use, for programs: WarnOnce() tells people of changes alone.
Q_LOGGING_CATEGORY(KvReply, "kv.reply")

namespace
{
const char* const CertificateErrors = "kvCertificateErrors";

QString Tellable(const QUrl& url)
{
    return url.toString(QUrl::RemoveUserInfo | QUrl::RemoveQuery | QUrl::RemoveFragment);
}

/// A URL without a scheme has no server, and is a whole by itself.
QString Server(const QUrl& url)
{
    const QString strServer =
        url.toString(QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment);
    return strServer.isEmpty() ? Tellable(url) : strServer;
}

int HttpStatus(const QNetworkReply* pReply)
{
    return pReply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

QString Words(const QNetworkReply* pReply)
{
    constexpr int FirstRefusal = 400;
    const int nStatus = HttpStatus(pReply);
    if (nStatus < FirstRefusal && pReply->error() != QNetworkReply::NoError) {
        const QString strErrors = pReply->property(CertificateErrors).toString();
        const QString strWords = pReply->errorString();
        // Qt 6 has an error of the certificate in its words, behind a colon.
        return strErrors.isEmpty()
                   ? strWords
                   : QStringLiteral("%1 (%2)").arg(strWords.section(QLatin1Char(':'), 0, 0), strErrors);
    }
    const QUrl target = pReply->attribute(QNetworkRequest::RedirectionTargetAttribute).toUrl();
    return QStringLiteral("HTTP status %1").arg(nStatus) +
           (target.isEmpty() ? QString() : QStringLiteral(", which leads to ") + Tellable(target));
}
} // namespace

CKvNetworkCause::CKvNetworkCause(QUrl url, QByteArray byteToken)
    : m_url(std::move(url)), m_byteToken(std::move(byteToken))
{
}

void CKvNetworkCause::Warn(const QString& strCause) const
{
    WarnOnce(KvNetwork(), _WithoutSecrets(Tellable(m_url)), _WithoutSecrets(strCause), Server(m_url));
}

void CKvNetworkCause::WarnOfServer(const QString& strCause) const
{
    WarnOnce(KvNetwork(), Server(m_url), _WithoutSecrets(strCause), Server(m_url));
}

void CKvNetworkCause::WarnOfReply(const QNetworkReply* pReply, const QString& strBeside) const
{
    const QString strReply = _WithoutSecrets(Words(pReply) + QLatin1String(" at ") + Tellable(m_url));
    qCInfo(KvReply, "%d %d %s", HttpStatus(pReply), int(pReply->error()), qUtf8Printable(strReply));
    if (HttpStatus(pReply) == 0) {
        WarnOfServer(Words(pReply) + strBeside);
    } else {
        Warn(Words(pReply) + strBeside);
    }
}

void CKvNetworkCause::Succeeded() const
{
    TellWellAgain(KvNetwork(), Server(m_url), _WithoutSecrets(Tellable(m_url)),
                  QStringLiteral("answers well again"));
}

QString CKvNetworkCause::_WithoutSecrets(QString strText) const
{
    constexpr int Longest = 200;
    const auto encoding = QUrl::FullyDecoded;
    QStringList listSecret{QString::fromLatin1(m_byteToken), m_url.userInfo(), m_url.password(encoding),
                           m_url.query(encoding)};
    const auto listItem = QUrlQuery(m_url).queryItems(encoding);
    for (const auto& item : listItem) {
        listSecret.append(item.second);
    }
    for (const QString& strSecret : qAsConst(listSecret)) {
        CKvSecret(strSecret).Hide(strText);
    }
    return strText.left(Longest);
}

void KeepCertificateErrors(QNetworkReply* pReply)
{
    QObject::connect(pReply, &QNetworkReply::sslErrors, pReply, [pReply](const QList<QSslError>& listError) {
        QStringList listWords;
        for (const QSslError& error : listError) {
            listWords.append(error.errorString());
        }
        pReply->setProperty(CertificateErrors, listWords.join(QLatin1String("; ")));
    });
}
