// SPDX-License-Identifier: MIT
#include "window/ProfileView.h"

#include "window/Scale.h"
#include "window/Theme.h"

#include <QtGui/QKeyEvent>
#include <QtGui/QPainter>

#include <algorithm>
#include <utility>

namespace
{
constexpr int Gap = 6;         // pixels
constexpr double Noise = 0.05; // of a step, not worth another one
constexpr theme::Accent Accents[] = {theme::Accent::Height, theme::Accent::Speed, theme::Accent::Battery};

/// Milliseconds between two marks of the time axis.
qint64 timeStep(qint64 period, int marks)
{
    constexpr qint64 Seconds[] = {1,   2,   5,    10,   15,   30,    60,    120,  300,
                                  600, 900, 1800, 3600, 7200, 21600, 43200, 86400};
    for (const qint64 seconds : Seconds) {
        if (seconds * 1000 * marks >= period) {
            return seconds * 1000;
        }
    }
    return period;
}
} // namespace

ProfileView::ProfileView(QWidget* parent) : QWidget(parent)
{
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(tr("Height, speed and battery over time"));
    setToolTip(tr(
        "Point at a moment, or go through the flight with the arrow keys, Page Up and Down, Home and End."));
}

void ProfileView::setProfile(const FlightProfile& profile)
{
    m_profile = profile;
    m_silences = profile.silences();
    std::tie(m_from, m_to) = profile.period();
    m_to = std::max(m_to, m_from + 1000);
    m_drawn = {};
    update();
}

void ProfileView::setCursorTime(qint64 msec)
{
    m_cursor = msec;
    update();
}

QString ProfileView::clock(qint64 msec)
{
    const qint64 seconds = std::max(qint64(0), msec / 1000);
    const QString rest = QStringLiteral("%1:%2")
                             .arg(seconds / 60 % 60, seconds < 3600 ? 1 : 2, 10, QLatin1Char('0'))
                             .arg(seconds % 60, 2, 10, QLatin1Char('0'));
    return seconds < 3600 ? rest : QStringLiteral("%1:%2").arg(seconds / 3600).arg(rest);
}

QSize ProfileView::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * 24, fontMetrics().height() * 8};
}

QRect ProfileView::strip(int value) const
{
    const int left = fontMetrics().horizontalAdvance(QStringLiteral("-0000")) + Gap;
    const int bottom = fontMetrics().height() + Gap;
    const int height = (this->height() - bottom) / FlightProfile::Values;
    return {left, value * height + Gap / 2, width() - left - Gap, height - Gap};
}

double ProfileView::x(qint64 msec) const
{
    const QRect area = strip(0);
    return area.left() + double(msec - m_from) / double(m_to - m_from) * area.width();
}

QString ProfileView::valueText(int value, double number) const
{
    const QString units[] = {tr("m"), tr("m/s"), m_profile.percent ? tr("%") : tr("V")};
    const int decimals = value == FlightProfile::Battery && !m_profile.percent ? 2 : 1;
    return std::isnan(number) ? QStringLiteral("-")
                              : QStringLiteral("%1 %2").arg(number, 0, 'f', decimals).arg(units[value]);
}

const FlightProfile::Span* ProfileView::spanAt(int value, qint64 msec) const
{
    const QVector<FlightProfile::Span>& spans = m_profile.values.at(std::size_t(value));
    const auto next =
        std::upper_bound(spans.cbegin(), spans.cend(), msec,
                         [](qint64 time, const FlightProfile::Span& span) { return time < span.msec; });
    return next == spans.cbegin() ? nullptr : &*std::prev(next);
}

QString ProfileView::readout() const
{
    if (m_cursor == flightTime::Unknown || m_profile.isEmpty()) {
        return {};
    }
    QStringList texts{clock(m_cursor - m_from)};
    for (int value = 0; value < FlightProfile::Values; ++value) {
        const FlightProfile::Span* const span = spanAt(value, m_cursor);
        texts.append(valueText(value, span ? span->high : UnknownNumber));
    }
    return texts.join(QStringLiteral("   "));
}

void ProfileView::paintEvent(QPaintEvent*)
{
    if (m_drawn.isNull()) {
        draw();
    }
    QPainter painter(this);
    painter.drawPixmap(0, 0, m_drawn);
    if (m_cursor < m_from || m_cursor > m_to || m_profile.isEmpty()) {
        return;
    }
    painter.setPen(palette().color(QPalette::Text));
    painter.drawLine(QPointF(x(m_cursor), 0),
                     QPointF(x(m_cursor), strip(FlightProfile::Values - 1).bottom()));
    if (hasFocus()) {
        painter.setPen(palette().color(QPalette::Highlight));
        painter.drawRect(rect().adjusted(0, 0, -1, -1));
    }
}

void ProfileView::draw()
{
    m_drawn = QPixmap(size() * devicePixelRatioF());
    m_drawn.setDevicePixelRatio(devicePixelRatioF());
    m_drawn.fill(palette().color(QPalette::Window));
    QPainter painter(&m_drawn);
    painter.setFont(font());
    for (int value = 0; value < FlightProfile::Values; ++value) {
        painter.fillRect(strip(value), palette().color(QPalette::Base));
    }
    if (!m_profile.isEmpty()) {
        drawSilences(painter);
        drawTimes(painter);
        for (int value = 0; value < FlightProfile::Values; ++value) {
            drawStrip(painter, value);
        }
    }
}

void ProfileView::drawTimes(QPainter& painter) const
{
    const int bottom = strip(FlightProfile::Values - 1).bottom();
    const int room = fontMetrics().horizontalAdvance(QStringLiteral("00:00:00")) + 2 * Gap;
    const qint64 step = timeStep(m_to - m_from, std::max(1, strip(0).width() / room));
    int free = 0; // from here on
    for (qint64 msec = m_from; msec <= m_to; msec += step) {
        painter.setPen(scale::gridColour(palette()));
        painter.drawLine(QPointF(x(msec), strip(0).top()), QPointF(x(msec), bottom));
        painter.setPen(palette().color(QPalette::Text));
        const int width = fontMetrics().horizontalAdvance(clock(msec - m_from));
        const int left = std::min(int(x(msec)) - width / 2, this->width() - width);
        if (left >= free) {
            painter.drawText(left, bottom + Gap / 2 + fontMetrics().ascent(), clock(msec - m_from));
            free = left + width + Gap;
        }
    }
}

/// A lost link is no line that is missing: it is seen at a glance.
void ProfileView::drawSilences(QPainter& painter) const
{
    const QColor trouble = theme::accent(palette(), theme::Accent::Trouble);
    QColor shade = trouble;
    shade.setAlphaF(0.2);
    const QString text = tr("nothing heard");
    for (const auto& [from, to] : qAsConst(m_silences)) {
        const QRectF band(QPointF(x(from), strip(0).top()),
                          QPointF(x(to), strip(FlightProfile::Values - 1).bottom()));
        painter.fillRect(band, shade);
        painter.setPen(trouble);
        if (fontMetrics().horizontalAdvance(text) + 2 * Gap < band.width()) {
            painter.drawText(band, Qt::AlignCenter, text);
        }
    }
}

void ProfileView::drawStrip(QPainter& painter, int value) const
{
    const QString titles[] = {tr("Height (m)"), tr("Speed (m/s)"),
                              m_profile.percent ? tr("Battery (%)") : tr("Battery (V)")};
    const QRect area = strip(value);
    double low = std::numeric_limits<double>::max();
    double high = std::numeric_limits<double>::lowest();
    for (const FlightProfile::Span& span : m_profile.values.at(std::size_t(value))) {
        low = span.low < low ? span.low : low;
        high = span.high > high ? span.high : high;
    }
    const bool known = low <= high;
    if (known) {
        const double step =
            scale::niceStep(std::max(high - low, 0.1) * 0.98,
                            std::max(1, std::min(4, area.height() / (fontMetrics().height() * 3 / 2))));
        const double bottom = std::min(low, std::floor(low / step + Noise) * step);
        const double line = fontMetrics().height();
        const double title = (line + Gap) / std::max(area.height(), 1); // stands above
        const double top = bottom + std::max(high - bottom, 0.1) / std::max(1 - title, 0.2);
        drawMarks(painter, value, {bottom, top, step});
        drawLine(painter, value, {bottom, top, step});
    }
    painter.setPen(theme::accent(palette(), Accents[value]));
    painter.drawText(area.adjusted(Gap, 1, 0, 0), Qt::AlignLeft | Qt::AlignTop,
                     known ? titles[value] : titles[value] + tr(": not recorded"));
}

/// Lines at round numbers, and the numbers beside them.
void ProfileView::drawMarks(QPainter& painter, int value, const Range& range) const
{
    const QRect area = strip(value);
    const double line = fontMetrics().height();
    const double first = std::ceil(range.bottom / range.step - Noise) * range.step;
    const int marks = int((range.top - first) / range.step) + 1;
    double free = area.bottom() + line; // above here
    for (int i = 0; i < marks; ++i) {
        const double mark = first + i * range.step;
        const double y = area.bottom() - (mark - range.bottom) / (range.top - range.bottom) * area.height();
        painter.setPen(scale::gridColour(palette()));
        painter.drawLine(QPointF(area.left(), y), QPointF(area.right(), y));
        painter.setPen(palette().color(QPalette::Text));
        const double label = std::max(double(area.top()), std::min(y - line / 2, area.bottom() - line));
        if (label + line <= free) { // else it would stand on the one below
            free = label;
            painter.drawText(QRectF(0, label, area.left() - Gap, line), Qt::AlignRight | Qt::AlignVCenter,
                             QString::number(mark, 'f',
                                             range.step < 0.1 ? 2
                                             : range.step < 1 ? 1
                                                              : 0));
        }
    }
}

/// From the least to the greatest of each pixel; interrupted where nothing was heard.
void ProfileView::drawLine(QPainter& painter, int value, const Range& range) const
{
    const QVector<FlightProfile::Span>& spans = m_profile.values.at(std::size_t(value));
    const QRect area = strip(value);
    const auto y = [&](double number) {
        return area.bottom() - (number - range.bottom) / (range.top - range.bottom) * area.height();
    };
    painter.setPen(QPen(theme::accent(palette(), Accents[value]), 1));
    QPolygonF line;
    for (int i = 0; i < spans.size();) {
        const auto pixel = int(x(spans.at(i).msec));
        double low = spans.at(i).low;
        double high = spans.at(i).high;
        const bool broken = i > 0 && isSilent(spans.at(i - 1).msec, spans.at(i).msec);
        for (++i; i < spans.size() && int(x(spans.at(i).msec)) == pixel; ++i) {
            low = std::fmin(low, spans.at(i).low);
            high = std::fmax(high, spans.at(i).high);
        }
        if (broken) {
            painter.drawPolyline(std::exchange(line, {}));
        }
        if (!std::isnan(low)) {
            line << QPointF(pixel, y(low)) << QPointF(pixel, y(high));
        }
    }
    painter.drawPolyline(line);
}

bool ProfileView::isSilent(qint64 from, qint64 to) const
{
    return std::any_of(m_silences.cbegin(), m_silences.cend(), [from, to](const auto& silence) {
        return silence.first < to && from < silence.second;
    });
}

void ProfileView::mouseMoveEvent(QMouseEvent* event)
{
    const QRect area = strip(0);
    const double part = double(event->pos().x() - area.left()) / std::max(1, area.width());
    Q_EMIT pointedAt(m_from + qint64(qBound(0.0, part, 1.0) * double(m_to - m_from)));
}

void ProfileView::keyPressEvent(QKeyEvent* event)
{
    constexpr int Steps = 200;
    const QHash<int, int> steps{{Qt::Key_Right, 1},    {Qt::Key_Left, -1},   {Qt::Key_PageDown, 20},
                                {Qt::Key_PageUp, -20}, {Qt::Key_End, Steps}, {Qt::Key_Home, -Steps}};
    if (!steps.contains(event->key())) {
        QWidget::keyPressEvent(event);
        return;
    }
    const qint64 now = std::max(m_cursor, m_from);
    Q_EMIT pointedAt(qBound(m_from, now + steps.value(event->key()) * (m_to - m_from) / Steps, m_to));
}

void ProfileView::resizeEvent(QResizeEvent* event)
{
    m_drawn = {};
    QWidget::resizeEvent(event);
}

void ProfileView::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) {
        m_drawn = {};
    }
    QWidget::changeEvent(event);
}
