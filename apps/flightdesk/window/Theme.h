// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QColor>
#include <QtGui/QPalette>
#include <QtWidgets/QProxyStyle>

#include <optional>

/// Looks of the window, readable in light and dark.
namespace theme
{
enum class Accent { Track, Height, Speed, Battery, Breakpoint, Trouble, Warning };

bool isDark(const QPalette& palette);
QPalette palette(bool dark);
/// A colour that stands out from the palette's base.
QColor accent(const QPalette& palette, Accent accent);

/// What a model says of a cell's text; nothing for usual ones.
QVariant foreground(const std::optional<Accent>& accent);

/// Fusion with room around texts, and with frames that are seen in the dark as well.
class Style : public QProxyStyle
{
    Q_OBJECT

public:
    Style();

    int pixelMetric(PixelMetric metric, const QStyleOption* option, const QWidget* widget) const override;
    QSize sizeFromContents(ContentsType type, const QStyleOption* option, const QSize& size,
                           const QWidget* widget) const override;
    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override;
};
} // namespace theme
