// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QStringList>

/// Whether the arguments (the program's name first) ask for the window or pictures of it. Only then is a
/// display needed.
bool wantsWindow(const QStringList& arguments);

/// Runs the window.
/// \return exit code
int runWindow(int argc, char* argv[]);
