// SPDX-License-Identifier: MIT
#include "command/SignIn.h"

#include "command/Console.h"
#include "operator/ServerAddress.h"
#include "words/Failure.h"

#include <KvAlgorthm.h>

bool signIn(const QString& server, const std::optional<QString>& token)
{
    SKvUserInfo user;
    user.m_strToken = token.value_or(QString());
    if (user.m_strToken.isEmpty()) {
        user.m_strToken = qEnvironmentVariable("KV_TOKEN");
    }
    if (user.m_strToken.isEmpty()) {
        Console::printUsageError(token ? QStringLiteral("no token: give --token or set KV_TOKEN")
                                       : QStringLiteral("no token: set KV_TOKEN"));
        return false;
    }
    if (!SetCurUserInfo(user)) {
        Console::printUsageError(QStringLiteral("the token cannot be sent in a request header"));
        return false;
    }
    try {
        setServerAddress(server);
    } catch (const Failure& failure) {
        Console::printUsageError(QStringLiteral("--server: ") + failure.words());
        return false;
    }
    return true;
}
