// SPDX-License-Identifier: MIT
#include "command/Commands.h"
#include "tour/ScreenshotTour.h"
#include "window/WindowCommand.h"

#include <KvLog.h>

int main(int argc, char* argv[])
{
    QCoreApplication::setApplicationName(QStringLiteral("flightdesk"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KV_VERSION));
    Logger::instance().captureQtMessages();
    return runFlightdesk(
        argc, argv,
        {{"window", "Open the window; --project DIR names its project.", runWindow, makeWindowApplication},
         {"record", "Record telemetry logs, one mission for each vehicle.", runRecord},
         {"simulate", "Record simulated flights.", runSimulate},
         {"station", "Record what aircraft tell over radio and network, and upload it.", runStation},
         {"upload", "Upload all that waits.", runUpload},
         {"status", "Show what is recorded, uploaded and waiting.", runStatus},
         {"export", "Write flights as files for other programs.", runExport},
         {"logbook", "List the flights with place, times and sums.", runLogbook},
         {"fetch", "Download a file.", runFetch},
         {"--screenshot", nullptr, takeScreenshots, makePictureApplication}});
}
