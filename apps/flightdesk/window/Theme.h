// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QColor>
#include <QtGui/QPalette>

/// Colours of the window, readable in light and dark.
namespace theme
{
enum class Accent { Track, Height, Speed, Battery, Breakpoint, Trouble };

bool isDark(const QPalette& palette);
QPalette palette(bool dark);
/// A colour that stands out from the palette's base.
QColor accent(const QPalette& palette, Accent accent);
} // namespace theme
