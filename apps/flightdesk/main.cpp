// SPDX-License-Identifier: MIT
#include "Commands.h"

#include <KvLog.h>

#include <QtCore/QCoreApplication>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("flightdesk"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KV_VERSION));
    initFlightdeskResources();
    Logger::instance().captureQtMessages();
    return runFlightdesk(QCoreApplication::arguments());
}
