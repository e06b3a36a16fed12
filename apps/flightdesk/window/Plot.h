// SPDX-License-Identifier: MIT
#pragma once

#include "window/Theme.h"

#include <QtCharts/QChartView>
#include <QtCharts/QLineSeries>
#include <QtCharts/QScatterSeries>
#include <QtCharts/QValueAxis>

#include <optional>

/// A plot of one line.
class Plot : public QtCharts::QChartView
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
    void setRange(QtCharts::QValueAxis* axis, double low, double high, double step);
    QtCharts::QValueAxis* xAxis() const { return m_x; }
    QtCharts::QValueAxis* yAxis() const { return m_y; }
    void addSeries(QtCharts::QXYSeries* series);

private:
    const theme::Accent m_accent;
    QtCharts::QLineSeries* m_line;
    QtCharts::QValueAxis* m_x;
    QtCharts::QValueAxis* m_y;
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

    QtCharts::QScatterSeries* m_breakpoint;
    QtCharts::QScatterSeries* m_aircraft;
    QRectF m_bounds;
};
