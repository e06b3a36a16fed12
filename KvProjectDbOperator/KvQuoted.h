// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

/// An id as statements hold it; it is not escaped.
inline QString Quoted(const QString& strID)
{
    return QLatin1Char('\'') + strID + QLatin1Char('\'');
}
