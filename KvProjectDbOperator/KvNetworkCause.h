// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

class QNetworkReply;
class QUrl;

/// A URL as it may be told: queries and user names hold secrets.
QString TellableUrl(const QUrl& url);

/// Why a reply is of no use: its HTTP status, or the network's words where none has come.
QString NetworkCause(const QNetworkReply* pReply);

/// A text of a server's or a program's in which a secret may stand, in short and without it.
QString WithoutSecret(const QString& strText, const QString& strSecret);
