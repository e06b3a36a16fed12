// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

/// A line of comma separated values, in UTF-8.
inline QByteArray csvLine(QStringList values)
{
    for (QString& value : values) {
        const bool special = value.contains(QLatin1Char(',')) || value.contains(QLatin1Char('"')) ||
                             value.contains(QLatin1Char('\n')) || value.contains(QLatin1Char('\r'));
        if (special) {
            value =
                QLatin1Char('"') + value.replace(QLatin1Char('"'), QLatin1String("\"\"")) + QLatin1Char('"');
        }
    }
    return values.join(QLatin1Char(',')).toUtf8() + '\n';
}
