// SPDX-License-Identifier: MIT
#pragma once

#include "window/Theme.h"

#include <QtCharts/QChartView>
#include <QtCharts/QLineSeries>
#include <QtCharts/QScatterSeries>
#include <QtCharts/QValueAxis>

#include <optional>

#if QT_VERSION_MAJOR == 5
QT_CHARTS_USE_NAMESPACE // with Qt 6 they stand in none
#endif

/// A plot of one line.
class Plot : public QChartView
{
    Q_OBJECT

public:
    Plot(const QString& xTitle, const QString& yTitle, theme::Accent accent, QWidget* parent = nullptr);

    virtual void setPoints(const QVector<QPointF>& points);

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void drawBackground(QPainter* painter, const QRectF& area) override;
    virtual void applyColours();
    void setRange(QValueAxis* axis, double low, double high, double step);
    QValueAxis* xAxis() const { return m_x; }
    QValueAxis* yAxis() const { return m_y; }
    void addSeries(QXYSeries* series);
    /// A step of 1, 2 or 5 times a power of ten that divides the range into so many parts at most.
    static double niceStep(double range, int parts);

private:
    const theme::Accent m_accent;
    QLineSeries* m_line;
    QValueAxis* m_x;
    QValueAxis* m_y;
};

/// A track over the ground, in metres, with one scale for both directions, and perhaps a breakpoint on it.
class TrackPlot : public Plot
{
    Q_OBJECT

public:
    explicit TrackPlot(QWidget* parent = nullptr);

    void setPoints(const QVector<QPointF>& points) override;
    void setBreakpoint(const std::optional<QPointF>& place);
    /// Metres that one pixel stands for, across and up.
    QPointF scale() const;

protected:
    void applyColours() override;

private:
    void fit();

    QScatterSeries* m_breakpoint;
    QScatterSeries* m_aircraft;
    QRectF m_bounds;
};
