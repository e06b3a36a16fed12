// SPDX-License-Identifier: MIT
#pragma once

#include "command/Commands.h"

/// An application for the window; nothing where there is no display.
Application makeWindowApplication(int& argc, char** argv);
/// An application whose window is only drawn into pictures.
Application makePictureApplication(int& argc, char** argv);

int runWindow(const QStringList& arguments);
