// SPDX-License-Identifier: MIT
#pragma once

#include "book/FlightProfile.h"

#include <QtGui/QPixmap>
#include <QtWidgets/QWidget>

/// Height, speed and battery of a flight above each other on one time axis, with a cursor that follows the
/// mouse, or the arrow keys, through all of them.
class ProfileView : public QWidget
{
    Q_OBJECT

public:
    explicit ProfileView(QWidget* parent = nullptr);

    void setProfile(const FlightProfile& profile);
    void setCursorTime(qint64 msec);
    /// The values at the cursor, in words; empty without a cursor.
    QString readout() const;

    /// As a pilot reads it: minutes and seconds since the start.
    static QString clock(qint64 msec);

    QSize minimumSizeHint() const override;

Q_SIGNALS:
    void pointedAt(qint64 msec);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    /// Of the numbers of a strip.
    struct Range {
        double bottom;
        double top;
        double step; ///< from mark to mark
    };

    QRect strip(int value) const;
    double x(qint64 msec) const;
    void draw();
    void drawTimes(QPainter& painter) const;
    void drawStrip(QPainter& painter, int value) const;
    void drawMarks(QPainter& painter, int value, const Range& range) const;
    void drawLine(QPainter& painter, int value, const Range& range) const;
    void drawSilences(QPainter& painter) const;
    bool isSilent(qint64 from, qint64 to) const;
    const FlightProfile::Span* spanAt(int value, qint64 msec) const;
    QString valueText(int value, double number) const;

    FlightProfile m_profile;
    QVector<std::pair<qint64, qint64>> m_silences;
    qint64 m_from = 0;
    qint64 m_to = 0;
    qint64 m_cursor = flightTime::Unknown;
    QPixmap m_drawn; ///< all but the cursor; null when it has to be drawn again
};
