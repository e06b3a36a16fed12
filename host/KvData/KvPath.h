// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

/// What is wrong with a path that SQLite would take, or explain worse; empty when nothing is.
QString Obstacle(const QString& strFile);

/// Whether SQLite may not open a file, or one of those that it has beside it. What it cannot open for another
/// reason, it may open later: no file descriptor is free now, or there is no room for a new file.
bool IsForbidden(const QString& strFile);
