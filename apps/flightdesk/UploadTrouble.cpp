// SPDX-License-Identifier: MIT
#include "UploadTrouble.h"

#include <QtCore/QRegularExpression>

std::optional<UploadTrouble> UploadTrouble::in(const QString& line)
{
    constexpr int LongestMessage = 200;
    if (line.startsWith(QLatin1String("CKvUpLoadObject::slotRequestTimeOut"))) {
        return UploadTrouble{false, QStringLiteral("the server gave no answer for 20 s")};
    }
    if (line.startsWith(QLatin1String("CKvUpLoadObject::slotErrorTimeout"))) {
        return UploadTrouble{false, QStringLiteral("no usable answer: the server cannot be reached, or "
                                                   "something else answers in its place")};
    }
    static const QRegularExpression refusal(
        QStringLiteral("^CKvUpLoadObject::slotReplyFinished (-?\\d+)(?: (.*))?$"));
    const QRegularExpressionMatch match = refusal.match(line);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const QString status = match.captured(1);
    const bool token = status == QLatin1String("401") || status == QLatin1String("403");
    return UploadTrouble{
        token, QStringLiteral("the server %1: %2 %3")
                   .arg(token ? QStringLiteral("rejected the token") : QStringLiteral("refused the rows"),
                        status, match.captured(2).left(LongestMessage))
                   .trimmed()};
}
