// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QStringList>

/// Lets the window record, upload and download by itself, and saves a picture of each page in two sizes, in
/// light and dark.
/// \param arguments  how that is called, and the folder of the pictures
/// \return exit code
int takeScreenshots(const QStringList& arguments);
