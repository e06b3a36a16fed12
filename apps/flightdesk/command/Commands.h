// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <memory>

/// Exit codes of all commands.
enum ExitCode : int {
    Done = 0,
    NotDone = 1,
    BadUsage = 2,
};

using Application = std::unique_ptr<QCoreApplication>;

/// An application without a display.
Application makePlainApplication(int& argc, char** argv);

/// One of the program's commands.
struct Command {
    const char* name;
    const char* summary; ///< its line in the program's help; none when it has a sentence of its own there
    /// \param arguments  how the command is called, and what stands behind
    /// \return exit code
    int (*run)(const QStringList& arguments);
    /// Nothing, and a word on standard error, when the command cannot run here.
    Application (*makeApplication)(int& argc, char** argv) = makePlainApplication;
};

/// Runs the command that the arguments ask for; without one the first of all.
/// \return exit code
int runFlightdesk(int argc, char** argv, const QVector<Command>& commands);

int runRecord(const QStringList& arguments);
int runSimulate(const QStringList& arguments);
int runStation(const QStringList& arguments);
int runUpload(const QStringList& arguments);
int runStatus(const QStringList& arguments);
int runExport(const QStringList& arguments);
int runLogbook(const QStringList& arguments);
int runFetch(const QStringList& arguments);
