// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <limits>

/// Milliseconds since 1970 UTC as records write them and as other programs read them.
namespace flightTime
{
constexpr qint64 Unknown = std::numeric_limits<qint64>::min();

/// ISO 8601; a time without a zone is local time. Unknown when the text is no time.
qint64 read(const QString& text);
/// ISO 8601 in UTC with milliseconds.
QString text(qint64 msec);
} // namespace flightTime
