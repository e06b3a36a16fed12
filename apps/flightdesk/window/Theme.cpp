// SPDX-License-Identifier: MIT
#include "window/Theme.h"

#include <QtGui/QPainter>
#include <QtWidgets/QApplication>
#include <QtWidgets/QStyleOption>

namespace theme
{
bool isDark(const QPalette& palette)
{
    return palette.color(QPalette::Base).lightness() < 128;
}

QPalette palette(bool dark)
{
    const QColor window(dark ? "#2b2d30" : "#f3f4f5");
    const QColor base(dark ? "#18191b" : "#ffffff");
    const QColor text(dark ? "#e3e5e8" : "#1d2023");
    const QColor faint(dark ? "#878c92" : "#85898e");
    const QColor highlight(dark ? "#3b7dbd" : "#2f74b5");
    QPalette palette(text, QColor(dark ? "#383b3f" : "#e9ebed"), QColor(dark ? "#4a4e53" : "#ffffff"),
                     QColor(dark ? "#17191b" : "#a6abb0"), QColor(dark ? "#4b5056" : "#c3c8cc"), text,
                     Qt::white, base, window);
    palette.setColor(QPalette::AlternateBase, QColor(dark ? "#1d1f21" : "#f6f8f9"));
    palette.setColor(QPalette::Highlight, highlight);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(dark ? "#7db4e6" : "#1f5f9c"));
    palette.setColor(QPalette::ToolTipBase, base);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, faint);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        palette.setColor(QPalette::Disabled, role, faint);
    }
    return palette;
}

QColor accent(const QPalette& palette, Accent accent)
{
    const char* const light[] = {"#1f6fb2", "#1f6fb2", "#2e7d32", "#8a5a00", "#c62828", "#b3261e", "#8a5a00"};
    const char* const dark[] = {"#6db3f2", "#6db3f2", "#81c784", "#e0b050", "#ff8a80", "#ff8a80", "#e0b050"};
    return {isDark(palette) ? dark[int(accent)] : light[int(accent)]};
}

QVariant foreground(const std::optional<Accent>& accent)
{
    return accent ? QVariant(theme::accent(QApplication::palette(), *accent)) : QVariant();
}

Style::Style() : QProxyStyle(QStringLiteral("Fusion")) {}

int Style::pixelMetric(PixelMetric metric, const QStyleOption* option, const QWidget* widget) const
{
    const bool besideText = metric == PM_HeaderMargin || metric == PM_FocusFrameHMargin;
    return besideText ? 6 : QProxyStyle::pixelMetric(metric, option, widget);
}

QSize Style::sizeFromContents(ContentsType type, const QStyleOption* option, const QSize& size,
                              const QWidget* widget) const
{
    const QSize room = type == CT_PushButton     ? QSize(12, 0)
                       : type == CT_ItemViewItem ? QSize(0, 6)
                                                 : QSize(0, 0);
    return QProxyStyle::sizeFromContents(type, option, size, widget) + room;
}

void Style::drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                          const QWidget* widget) const
{
    QProxyStyle::drawPrimitive(element, option, painter, widget);
    const bool framed = element == PE_IndicatorCheckBox || element == PE_Frame || element == PE_FrameLineEdit;
    if (framed && !(option->state & State_HasFocus)) {
        painter->setPen(option->palette.color(QPalette::Mid));
        painter->setBrush(Qt::NoBrush);
        painter->drawRect(option->rect.adjusted(0, 0, -1, -1));
    }
}
} // namespace theme
