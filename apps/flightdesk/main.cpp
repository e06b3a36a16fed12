// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "window/Window.h"

#include <KvLog.h>

#include <QtCore/QCoreApplication>

int main(int argc, char* argv[])
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        arguments.append(QString::fromLocal8Bit(argv[i]));
    }
    QCoreApplication::setApplicationName(QStringLiteral("flightdesk"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KV_VERSION));
    initFlightdeskResources();
    Logger::instance().captureQtMessages();
    if (wantsWindow(arguments)) {
        return runWindow(argc, argv);
    }
    const QCoreApplication application(argc, argv);
    return runFlightdesk(arguments);
}
