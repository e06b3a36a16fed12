// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QStringList>

/// Exit codes of all commands.
enum ExitCode : int {
    Done = 0,
    NotDone = 1,
    BadUsage = 2,
};

/// Makes the table descriptions readable; they lie in a static library. To be called once, at the start.
void initFlightdeskResources();

/// Runs the command that the arguments (the program's name first) ask for.
int runFlightdesk(const QStringList& arguments);

int runRecord(const QStringList& arguments);
int runSimulate(const QStringList& arguments);
int runUpload(const QStringList& arguments);
int runStatus(const QStringList& arguments);
int runFetch(const QStringList& arguments);
