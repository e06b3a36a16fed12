// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QUrl>

class QNetworkReply;

/// What the log is told of the requests to a URL. URLs stand there without queries and user names, and what a
/// server or a program says without these and without the request's token.
class CKvNetworkCause
{
public:
    explicit CKvNetworkCause(QUrl url, QByteArray byteToken = {});

    /// Warns of a request that failed for a cause that is the URL's own.
    void Warn(const QString& strCause) const;
    /// Warns of one that failed for a cause that goes for all of its server.
    void WarnOfServer(const QString& strCause) const;
    /// Warns of a reply that is of no use: its HTTP status, or the network's words where none has come, and
    /// what is said beside.
    void WarnOfReply(const QNetworkReply* pReply, const QString& strBeside = {}) const;
    /// Tells that what was told of the URL or of its server is over.
    void Succeeded() const;

private:
    QString _WithoutSecrets(QString strText) const;

    QUrl m_url;
    QByteArray m_byteToken;
};

/// Has a reply remember what is wrong with a certificate, which its own words do not say.
void KeepCertificateErrors(QNetworkReply* pReply);
