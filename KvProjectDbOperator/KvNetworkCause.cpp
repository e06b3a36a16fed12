// SPDX-License-Identifier: MIT
#include "KvNetworkCause.h"

#include <QtCore/QUrl>
#include <QtNetwork/QNetworkReply>

QString TellableUrl(const QUrl& url)
{
    return url.toString(QUrl::RemoveUserInfo | QUrl::RemoveQuery | QUrl::RemoveFragment);
}

QString NetworkCause(const QNetworkReply* pReply)
{
    const int nStatus = pReply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (nStatus == 0) {
        // A reply that came late, of a request before, has the last one looked at.
        return pReply->isFinished() ? pReply->errorString() : QStringLiteral("no answer yet");
    }
    const QUrl target = pReply->attribute(QNetworkRequest::RedirectionTargetAttribute).toUrl();
    return QStringLiteral("HTTP status %1").arg(nStatus) +
           (target.isEmpty() ? QString() : QStringLiteral(", which leads to ") + TellableUrl(target));
}

QString WithoutSecret(const QString& strText, const QString& strSecret)
{
    constexpr int Longest = 200;
    QString strTold = strText;
    if (!strSecret.isEmpty()) {
        strTold.replace(strSecret, QLatin1String("***"));
    }
    return strTold.left(Longest);
}
