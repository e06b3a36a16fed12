// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <utility>

/// What is wrong with a path that SQLite would take, or explain worse; empty when nothing is.
QString Obstacle(const QString& strFile);

/// Whether SQLite may not open a file, or one of those that it has beside it. What it cannot open for another
/// reason, it may open later: no file descriptor is free now, or there is no room for a new file.
bool IsForbidden(const QString& strFile);

/// The file that a path leads to now, by the numbers of its device and its own; none where there is no file,
/// and on a system that lets nobody take an open file away.
using FileIdentity = std::pair<quint64, quint64>;
FileIdentity IdentityOf(const QString& strFile);
