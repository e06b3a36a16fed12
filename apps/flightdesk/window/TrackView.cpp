// SPDX-License-Identifier: MIT
#include "window/TrackView.h"

#include "window/Scale.h"
#include "window/Theme.h"

#include <QtCore/QtMath>
#include <QtGui/QMouseEvent>
#include <QtGui/QPainter>
#include <QtGui/QPainterPath>

#include <algorithm>

namespace
{
constexpr double Room = 1.25; // for the marks
constexpr int Margin = 10;
constexpr double Reach = 20; // pixels within which the mouse finds the track
} // namespace

TrackView::TrackView(QWidget* parent) : QWidget(parent)
{
    setMouseTracking(true);
    setAccessibleName(tr("Track"));
}

void TrackView::setTrack(const QVector<FlightProfile::Place>& track)
{
    m_track = track;
    m_metres.clear();
    for (const FlightProfile::Place& place : track) {
        m_metres.append(metres(place.lng, place.lat));
    }
    fit();
}

void TrackView::setBreakpoint(const std::optional<Breakpoint>& breakpoint)
{
    m_breakpoint = breakpoint;
    m_drawn = {};
    update();
}

void TrackView::setCursorTime(qint64 msec)
{
    m_cursor = msec;
    update();
}

QSize TrackView::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * 18, fontMetrics().height() * 7};
}

/// East and north of the start, across the antimeridian as well.
QPointF TrackView::metres(double lng, double lat) const
{
    constexpr double PerDegree = 111319.5;
    const FlightProfile::Place& start = m_track.constFirst();
    return {std::remainder(lng - start.lng, 360) * PerDegree * std::cos(qDegreesToRadians(start.lat)),
            (lat - start.lat) * PerDegree};
}

void TrackView::fit()
{
    QRectF bounds;
    for (const QPointF& place : qAsConst(m_metres)) {
        bounds |= QRectF(place, QSizeF(0.1, 0.1)); // an empty rectangle would not count
    }
    m_centre = bounds.center();
    const int room = std::max(1, height() - foot());
    m_perPixel =
        std::max({bounds.width() * Room / std::max(1, width()), bounds.height() * Room / room, 0.02});
    m_drawn = {};
    update();
}

/// What the scale takes, below the track.
int TrackView::foot() const
{
    return fontMetrics().height() + 2 * Margin;
}

QPointF TrackView::pixel(const QPointF& metres) const
{
    return {width() / 2.0 + (metres.x() - m_centre.x()) / m_perPixel,
            (height() - foot()) / 2.0 - (metres.y() - m_centre.y()) / m_perPixel};
}

void TrackView::paintEvent(QPaintEvent*)
{
    if (m_drawn.isNull()) {
        draw();
    }
    QPainter painter(this);
    painter.drawPixmap(0, 0, m_drawn);
    const auto next =
        std::upper_bound(m_track.cbegin(), m_track.cend(), m_cursor,
                         [](qint64 time, const FlightProfile::Place& place) { return time < place.msec; });
    if (next != m_track.cbegin()) {
        const int at = int(std::distance(m_track.cbegin(), next)) - 1;
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(palette().color(QPalette::Base), 2));
        painter.setBrush(palette().color(QPalette::Text));
        painter.drawEllipse(pixel(m_metres.at(at)), 6, 6);
    }
}

void TrackView::draw()
{
    m_drawn = QPixmap(size() * devicePixelRatioF());
    m_drawn.setDevicePixelRatio(devicePixelRatioF());
    m_drawn.fill(palette().color(QPalette::Base));
    if (m_track.isEmpty()) {
        return;
    }
    QPainter painter(&m_drawn);
    painter.setFont(font());
    painter.setRenderHint(QPainter::Antialiasing);
    QPolygonF line;
    for (const QPointF& place : qAsConst(m_metres)) {
        const QPointF point = pixel(place);
        if (line.isEmpty() || (point - line.constLast()).manhattanLength() >= 1) {
            line.append(point);
        }
    }
    painter.setPen(QPen(theme::accent(palette(), theme::Accent::Track), 1.5));
    painter.drawPolyline(line);
    for (const Mark& mark : marks()) {
        drawMark(painter, mark);
    }
    drawScale(painter);
}

/// Those that lie on each other get one name for all.
QVector<TrackView::Mark> TrackView::marks() const
{
    constexpr double Near = 12; // pixels
    QVector<Mark> all{{pixel(m_metres.constFirst()), tr("start"),
                       theme::accent(palette(), theme::Accent::Speed), Side::Below},
                      {pixel(m_metres.constLast()), tr("end"), palette().color(QPalette::Text), Side::Above}};
    if (m_breakpoint) {
        all.append({pixel(metres(m_breakpoint->lng, m_breakpoint->lat)), tr("breakpoint"),
                    theme::accent(palette(), theme::Accent::Breakpoint), Side::Beside});
    }
    QVector<Mark> apart;
    for (const Mark& mark : qAsConst(all)) {
        const auto same = std::find_if(apart.begin(), apart.end(), [&mark](const Mark& other) {
            return (other.at - mark.at).manhattanLength() < Near;
        });
        if (same == apart.end()) {
            apart.append(mark);
        } else {
            *same = {mark.at, same->text + tr(", ") + mark.text, mark.colour, same->side};
        }
    }
    return apart;
}

/// A dot and its name, which stays inside and off the names of the other marks: the start's stands below, the
/// end's above and the breakpoint's beside.
void TrackView::drawMark(QPainter& painter, const Mark& mark) const
{
    painter.setPen(QPen(palette().color(QPalette::Base), 1));
    painter.setBrush(mark.colour);
    painter.drawEllipse(mark.at, 5, 5);
    const int line = fontMetrics().height();
    const int width = fontMetrics().horizontalAdvance(mark.text);
    const double down = mark.side == Side::Below ? line + 4 : mark.side == Side::Above ? -8 : line / 3.0;
    const double across = mark.side != Side::Beside           ? -width / 2.0
                          : mark.at.x() > this->width() * 0.6 ? -width - 9.0
                                                              : 9.0;
    const double x = qBound(2.0, mark.at.x() + across, std::max(2.0, double(this->width() - width - 2)));
    drawText(painter, QPointF(x, qBound(double(line), mark.at.y() + down, double(height() - foot()))),
             mark.text);
}

/// On the track as well as off it.
void TrackView::drawText(QPainter& painter, const QPointF& at, const QString& text) const
{
    constexpr int Ground = 3; // pixels around the letters
    QPainterPath letters;
    letters.addText(at, font(), text);
    painter.strokePath(letters, QPen(palette().color(QPalette::Base), Ground));
    painter.setPen(palette().color(QPalette::Text));
    painter.drawText(at, text);
}

/// A bar of a round length, and where north is.
void TrackView::drawScale(QPainter& painter) const
{
    const double length = scale::niceStep(width() * m_perPixel / 4, 1) / 2;
    const QString text = length < 1000 ? tr("%1 m").arg(length) : tr("%1 km").arg(length / 1000);
    const double y = height() - Margin;
    const QPointF end(Margin + length / m_perPixel, y);
    painter.setPen(QPen(palette().color(QPalette::Text), 1.5));
    painter.drawPolyline(QPolygonF{{QPointF(Margin, y - 5), QPointF(Margin, y), end, end - QPointF(0, 5)}});
    painter.drawText(QPointF(Margin + 4, y - 5), text);
    const double north = width() - 2 * Margin;
    painter.drawPolyline(
        QPolygonF{{QPointF(north - 4, y - 10), QPointF(north, y - 18), QPointF(north + 4, y - 10)}});
    painter.drawLine(QPointF(north, y - 18), QPointF(north, y));
    painter.drawText(QPointF(north - 8 - fontMetrics().horizontalAdvance(tr("N")), y - 5), tr("N"));
}

void TrackView::mouseMoveEvent(QMouseEvent* event)
{
#if QT_VERSION_MAJOR == 5
    const QPointF mouse = event->localPos();
#else
    const QPointF mouse = event->position(); // the same, under its new name
#endif
    double nearest = Reach;
    qint64 msec = flightTime::Unknown;
    for (int i = 0; i < m_metres.size(); ++i) {
        const double away = (pixel(m_metres.at(i)) - mouse).manhattanLength();
        if (away < nearest) {
            nearest = away;
            msec = m_track.at(i).msec;
        }
    }
    if (msec != flightTime::Unknown) {
        Q_EMIT pointedAt(msec);
    }
}

void TrackView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    fit();
}

void TrackView::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) {
        m_drawn = {};
    }
    QWidget::changeEvent(event);
}
