// SPDX-License-Identifier: MIT
#include "command/SignIn.h"

#include "command/Console.h"

#include <KvAlgorthm.h>

bool signIn(const QString& server, const QString& token)
{
    SKvUserInfo user;
    user.m_strToken = token.isEmpty() ? qEnvironmentVariable("KV_TOKEN") : token;
    if (user.m_strToken.isEmpty()) {
        Console::printUsageError(QStringLiteral("no token: give --token or set KV_TOKEN"));
        return false;
    }
    if (!SetCurUserInfo(user)) {
        Console::printUsageError(QStringLiteral("the token cannot be sent in a request header"));
        return false;
    }
    if (!SetServerIP(server.toUtf8())) {
        Console::printUsageError(QStringLiteral("--server takes an absolute http or https address"));
        return false;
    }
    return true;
}
