// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QColor>
#include <QtGui/QPalette>

#include <cmath>

/// What plots draw behind their lines.
namespace scale
{
/// A step of 1, 2 or 5 times a power of ten that divides the range into so many parts at most.
inline double niceStep(double range, int parts)
{
    const double least = range / parts;
    const double power = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= least) {
            return factor * power;
        }
    }
    return 10 * power;
}

inline QColor gridColour(const QPalette& palette)
{
    QColor grid = palette.color(QPalette::Text);
    grid.setAlphaF(0.15);
    return grid;
}
} // namespace scale
