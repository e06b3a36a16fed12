// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

/// Lets the window record, upload and download by itself, and saves a picture of each page in two sizes, in
/// light and dark.
/// \return exit code
int takeScreenshots(const QString& folder);
