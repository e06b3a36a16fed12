// SPDX-License-Identifier: MIT
#include "window/Plot.h"

#include <QtCore/QEvent>
#include <QtCore/QtMath>
#include <QtGui/QPen>
#include <QtWidgets/QGraphicsLayout>

#include <algorithm>
#include <cmath>

Plot::Plot(const QString& xTitle, const QString& yTitle, theme::Accent accent, QWidget* parent)
    : QChartView(parent)
    , m_accent(accent)
    , m_line(new QLineSeries(this))
    , m_x(new QValueAxis(this))
    , m_y(new QValueAxis(this))
{
    setRenderHint(QPainter::Antialiasing);
    setFrameShape(QFrame::NoFrame);
    setFocusPolicy(Qt::NoFocus);
    chart()->legend()->hide();
    chart()->setMargins(QMargins(2, 2, 2, 2));
    chart()->layout()->setContentsMargins(0, 0, 0, 0);
    chart()->setBackgroundVisible(false);
    m_x->setTitleText(xTitle);
    m_y->setTitleText(yTitle);
    chart()->addAxis(m_x, Qt::AlignBottom);
    chart()->addAxis(m_y, Qt::AlignLeft);
    addSeries(m_line);
    Plot::setPoints({});
    Plot::applyColours();
}

void Plot::addSeries(QXYSeries* series)
{
    chart()->addSeries(series);
    series->attachAxis(m_x);
    series->attachAxis(m_y);
}

void Plot::setPoints(const QVector<QPointF>& points)
{
    m_line->replace(points);
    const auto [low, high] =
        std::minmax_element(points.begin(), points.end(), [](QPointF a, QPointF b) { return a.y() < b.y(); });
    const double minutes = points.isEmpty() ? 1 : qMax(points.last().x(), 0.1);
    setRange(m_x, 0, minutes, niceStep(minutes, 6));
    const double bottom = points.isEmpty() ? 0 : low->y();
    const double top = points.isEmpty() ? 1 : qMax(high->y(), bottom + 0.1);
    const double step = niceStep(top - bottom, 3);
    constexpr double Noise = 0.05; // of a step, not worth another one
    constexpr double Room = 0.2;
    setRange(m_y, std::floor(bottom / step + Noise) * step, top + Room * step, step);
}

double Plot::niceStep(double range, int parts)
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

void Plot::setRange(QValueAxis* axis, double low, double high, double step)
{
    axis->setTickType(QValueAxis::TicksDynamic);
    axis->setTickInterval(step);
    axis->setLabelFormat(step < 0.1 ? QStringLiteral("%.2f")
                         : step < 1 ? QStringLiteral("%.1f")
                                    : QStringLiteral("%.0f"));
    axis->setRange(low, high);
}

/// The same room beside each plot, so that plots above each other have one time axis.
void Plot::resizeEvent(QResizeEvent* event)
{
    QChartView::resizeEvent(event);
    const qreal line = fontMetrics().height();
    const qreal labels = fontMetrics().horizontalAdvance(QStringLiteral("-0000"));
    const qreal below = m_x->titleText().isEmpty() ? 1.5 * line : 3 * line;
    chart()->setPlotArea(QRectF(rect()).adjusted(labels + 2 * line, line / 2, -line, -below));
}

/// The chart's own background does not follow a plot area that is set.
void Plot::drawBackground(QPainter* painter, const QRectF& area)
{
    QChartView::drawBackground(painter, area);
    painter->fillRect(chart()->mapRectToScene(chart()->plotArea()), palette().color(QPalette::Base));
}

void Plot::changeEvent(QEvent* event)
{
    QChartView::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        applyColours();
    }
}

void Plot::applyColours()
{
    const QPalette colours = palette();
    const QColor& text = colours.color(QPalette::Text);
    QColor grid = text;
    grid.setAlphaF(0.15);
    setBackgroundBrush(colours.color(QPalette::Window));
    for (QValueAxis* axis : {m_x, m_y}) {
        axis->setLabelsColor(text);
        axis->setTitleBrush(text);
        axis->setTitleFont(font());
        axis->setLabelsFont(font());
        axis->setGridLineColor(grid);
        axis->setLinePenColor(grid);
    }
    m_line->setPen(QPen(theme::accent(colours, m_accent), 1.5));
}

TrackPlot::TrackPlot(QWidget* parent)
    : Plot(tr("East (m)"), tr("North (m)"), theme::Accent::Track, parent)
    , m_breakpoint(new QScatterSeries(this))
    , m_aircraft(new QScatterSeries(this))
{
    addSeries(m_aircraft);
    addSeries(m_breakpoint);
    m_aircraft->setMarkerSize(9);
    m_breakpoint->setMarkerSize(14);
    m_breakpoint->setMarkerShape(QScatterSeries::MarkerShapeRectangle);
    m_breakpoint->setPointLabelsFormat(tr("breakpoint"));
    m_breakpoint->setPointLabelsVisible(true);
    m_breakpoint->setPointLabelsClipping(false);
    connect(chart(), &QChart::plotAreaChanged, this, &TrackPlot::fit);
    TrackPlot::applyColours();
}

void TrackPlot::setPoints(const QVector<QPointF>& points)
{
    Plot::setPoints(points);
    m_aircraft->replace(points.isEmpty() ? points : QVector<QPointF>{points.last()});
    m_bounds = QRectF();
    for (const QPointF& point : points) {
        m_bounds |= QRectF(point, QSizeF(1, 1)); // an empty rectangle would not count
    }
    fit();
}

void TrackPlot::setBreakpoint(const std::optional<QPointF>& place)
{
    m_breakpoint->replace(place ? QVector<QPointF>{*place} : QVector<QPointF>());
}

QPointF TrackPlot::scale() const
{
    const QRectF area = chart()->plotArea();
    return {(xAxis()->max() - xAxis()->min()) / area.width(),
            (yAxis()->max() - yAxis()->min()) / area.height()};
}

/// Widens the range in one direction until both have the same scale.
void TrackPlot::fit()
{
    constexpr double Margin = 1.15;
    const QRectF area = chart()->plotArea();
    if (area.width() < 1 || area.height() < 1) {
        return;
    }
    const double metresPerPixel =
        Margin * std::max({m_bounds.width() / area.width(), m_bounds.height() / area.height(), 0.05});
    const QPointF centre = m_bounds.center();
    const QPointF half(area.width() * metresPerPixel / 2, area.height() * metresPerPixel / 2);
    const double step = niceStep(2 * std::min(half.x(), half.y()), 5);
    setRange(xAxis(), centre.x() - half.x(), centre.x() + half.x(), step);
    setRange(yAxis(), centre.y() - half.y(), centre.y() + half.y(), step);
}

void TrackPlot::applyColours()
{
    Plot::applyColours();
    const QPalette colours = palette();
    m_aircraft->setColor(theme::accent(colours, theme::Accent::Track));
    m_aircraft->setBorderColor(colours.color(QPalette::Base));
    m_breakpoint->setColor(theme::accent(colours, theme::Accent::Breakpoint));
    m_breakpoint->setBorderColor(colours.color(QPalette::Base));
    m_breakpoint->setPointLabelsColor(colours.color(QPalette::Text));
    m_breakpoint->setPointLabelsFont(font());
}
