// SPDX-License-Identifier: MIT
#pragma once

#include "book/FlightProfile.h"

#include <QtCore/QPointF>
#include <QtGui/QPixmap>
#include <QtWidgets/QWidget>

#include <optional>

/// A flight's track from above, north up: start, end, breakpoint, the scale, and where the aircraft was at
/// the moment that is pointed at.
class TrackView : public QWidget
{
    Q_OBJECT

public:
    explicit TrackView(QWidget* parent = nullptr);

    void setTrack(const QVector<FlightProfile::Place>& track);
    void setBreakpoint(const std::optional<Breakpoint>& breakpoint);
    void setCursorTime(qint64 msec);

    QSize minimumSizeHint() const override;

Q_SIGNALS:
    void pointedAt(qint64 msec);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    enum class Side { Above, Below, Beside };
    struct Mark {
        QPointF at;
        QString text;
        QColor colour;
        Side side; ///< where its name stands
    };

    void fit();
    int foot() const;
    QPointF metres(double lng, double lat) const;
    QPointF pixel(const QPointF& metres) const;
    void draw();
    QVector<Mark> marks() const;
    void drawMark(QPainter& painter, const Mark& mark) const;
    void drawText(QPainter& painter, const QPointF& at, const QString& text) const;
    void drawScale(QPainter& painter) const;

    QVector<FlightProfile::Place> m_track;
    QVector<QPointF> m_metres; ///< east and north of the start
    std::optional<Breakpoint> m_breakpoint;
    double m_perPixel = 1; ///< metres
    QPointF m_centre;
    qint64 m_cursor = flightTime::Unknown;
    QPixmap m_drawn; ///< all but the aircraft; null when it has to be drawn again
};
