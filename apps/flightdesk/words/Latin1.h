// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QLatin1String>

/// A text of ASCII letters, for keys and words of which there are many in a row.
constexpr QLatin1String operator""_l1(const char* text, std::size_t size) noexcept
{
    return QLatin1String(text, static_cast<int>(size));
}
