// SPDX-License-Identifier: MIT
#include "KvDebugProxy.h"

#include "KvAlgorthm.h"

#include <QtNetwork/QNetworkProxy>

void InstallDebugProxy()
{
    if (EnabledFiddler()) {
        QNetworkProxy::setApplicationProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), 8888));
    }
}
