// SPDX-License-Identifier: MIT
#include "operator/ServerAddress.h"

#include "words/Failure.h"

#include <KvAlgorthm.h>

QString addressWithScheme(const QString& text)
{
    const QString rest = text.trimmed().section(QStringLiteral("://"), -1);
    return QStringLiteral("https://") + (rest.isEmpty() ? QStringLiteral("fly.example") : rest);
}

void setServerAddress(const QString& text)
{
    const QString address = text.trimmed();
    if (SetServerIP(address.toUtf8())) {
        return;
    }
    throw Failure(Trouble::NoScheme, {address, addressWithScheme(address)});
}
