// SPDX-License-Identifier: MIT
#include "operator/ServerAddress.h"

#include "words/Failure.h"

#include <KvAlgorthm.h>

void setServerAddress(const QString& text)
{
    const QString address = text.trimmed();
    if (SetServerIP(address.toUtf8())) {
        return;
    }
    const QString rest = address.section(QStringLiteral("://"), -1);
    throw Failure(Trouble::NoScheme, {address, QStringLiteral("https://") +
                                                   (rest.isEmpty() ? QStringLiteral("fly.example") : rest)});
}
