// SPDX-License-Identifier: MIT
#include "book/FlightProfile.h"

#include "export/FlightFigures.h"

#include <KvAlgorthm.h>

#include <algorithm>

namespace
{
constexpr int Looks = 4000; // more than a screen is wide
constexpr int LooksAtOnce = 500;
constexpr int LooksInStretch = 2;
const char* const LookSql = "SELECT rowid, %1 FROM %2 WHERE flight_mission_id = '%3' AND rowid IN (%4) "
                            "ORDER BY rowid";
const char* const SpanSql = "SELECT %1 FROM %2 WHERE flight_mission_id = '%3' AND rowid >= %4 AND rowid < %5";

double number(const QVariant& value)
{
    bool isNumber = false;
    const double number = value.toDouble(&isNumber);
    return isNumber && !value.isNull() && std::isfinite(number) ? number : UnknownNumber;
}

/// A flight's rows of one table.
class Rows
{
public:
    struct Look {
        qint64 row = 0;
        qint64 msec = 0;
        QVector<double> values;
    };

    Rows(Flight& flight, const QString& table, const QStringList& columns, std::function<void()> step)
        : m_flight(flight)
        , m_table(table)
        , m_quotedId(QString(flight.mission().id).replace(QLatin1Char('\''), QLatin1String("''")))
        , m_last(flight.lastRow(table))
        , m_step(std::move(step))
    {
        const QStringList there = flight.file().columns(table);
        for (const QString& column : columns) {
            m_columns.append(RowWalk::valueOf(column, there));
        }
    }

    bool isLong() const { return m_last > Looks; }

    /// At rows of equal distance, the last one among them; at all where they are few.
    QVector<Look> look() const
    {
        const qint64 distance = std::max(qint64(1), m_last / Looks);
        QVector<Look> looks;
        for (qint64 row = 1; row <= m_last;) {
            QStringList rows;
            for (; rows.size() < LooksAtOnce && row <= m_last; row += distance) {
                rows.append(QString::number(row));
            }
            if (row > m_last) {
                rows.append(QString::number(m_last));
            }
            lookAt(rows, &looks);
        }
        return looks;
    }

    /// The least and the greatest of columns between looks.
    std::array<QVector<FlightProfile::Span>, 2> spans(const QVector<Look>& looks,
                                                      const QVector<int>& columns) const
    {
        QStringList values;
        for (const int column : columns) {
            values.append(QStringLiteral("min(%1), max(%1)").arg(m_columns.at(column)));
        }
        std::array<QVector<FlightProfile::Span>, 2> spans;
        for (int i = 0; i < looks.size(); i += LooksInStretch) {
            m_step();
            const int end = i + LooksInStretch;
            const qint64 beyond = end < looks.size() ? looks.at(end).row : m_last + 1;
            m_flight.file().readSome(
                QString::fromLatin1(SpanSql).arg(values.join(QLatin1Char(',')), m_table, m_quotedId,
                                                 QString::number(looks.at(i).row), QString::number(beyond)),
                [&](const QSqlQuery& query) {
                    for (int value = 0; value < columns.size(); ++value) {
                        spans.at(std::size_t(value))
                            .append({looks.at(i).msec, number(query.value(2 * value)),
                                     number(query.value(2 * value + 1))});
                    }
                    return true;
                });
        }
        return spans;
    }

private:
    void lookAt(const QStringList& rows, QVector<Look>* looks) const
    {
        m_step();
        m_flight.file().readSome(QString::fromLatin1(LookSql).arg(m_columns.join(QLatin1Char(',')), m_table,
                                                                  m_quotedId, rows.join(QLatin1Char(','))),
                                 [&](const QSqlQuery& query) {
                                     Look look{
                                         query.value(0).toLongLong(),
                                         m_flight.corrected(flightTime::read(query.value(1).toString())),
                                         {}};
                                     for (int column = 1; column < m_columns.size(); ++column) {
                                         look.values.append(number(query.value(column + 1)));
                                     }
                                     if (look.msec != flightTime::Unknown) {
                                         looks->append(look);
                                     }
                                     return true;
                                 });
    }

    Flight& m_flight;
    const QString m_table;
    const QString m_quotedId;
    const qint64 m_last;
    const std::function<void()> m_step;
    QStringList m_columns; ///< the time first
};

enum PositionValue { Lng, Lat, RelativeAlt, Alt, GroundSpeed };
enum StatusValue { Volts, Percent };

bool isKnown(const QVector<Rows::Look>& looks, int value)
{
    return std::any_of(looks.cbegin(), looks.cend(),
                       [value](const Rows::Look& look) { return !std::isnan(look.values.at(value)); });
}

QVector<FlightProfile::Span> asSpans(const QVector<Rows::Look>& looks, int value)
{
    QVector<FlightProfile::Span> spans;
    for (const Rows::Look& look : looks) {
        spans.append({look.msec, look.values.at(value), look.values.at(value)});
    }
    return spans;
}

void readTrack(const QVector<Rows::Look>& looks, QVector<FlightProfile::Place>* track)
{
    for (const Rows::Look& look : looks) {
        const double lng = look.values.at(Lng);
        const double lat = look.values.at(Lat);
        if (std::abs(lng) <= 180 && std::abs(lat) <= 90) {
            track->append({look.msec, lng, lat});
        }
    }
}

/// Heights above the first one, for flights that tell none above the start.
void lower(QVector<FlightProfile::Span>* heights)
{
    const auto first =
        std::find_if(heights->cbegin(), heights->cend(),
                     [](const FlightProfile::Span& height) { return !std::isnan(height.low); });
    const double start = first == heights->cend() ? 0 : first->low;
    for (FlightProfile::Span& height : *heights) {
        height.low -= start;
        height.high -= start;
    }
}
} // namespace

std::pair<qint64, qint64> FlightProfile::period() const
{
    std::pair<qint64, qint64> period{std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::min()};
    const auto widen = [&period](qint64 msec) {
        period = {std::min(period.first, msec), std::max(period.second, msec)};
    };
    for (const QVector<Span>& spans : values) {
        if (!spans.isEmpty()) {
            widen(spans.constFirst().msec);
            widen(spans.constLast().msec);
        }
    }
    if (period.first > period.second) {
        return {0, 0};
    }
    period.second = std::max(period.second, end);
    return period;
}

QVector<std::pair<qint64, qint64>> FlightProfile::silences() const
{
    QVector<qint64> heard;
    for (const Value value : {Height, Battery}) { // positions and states
        for (const Span& span : values[value]) {
            heard.append(span.msec);
        }
    }
    if (heard.size() < 2) {
        return {};
    }
    std::sort(heard.begin(), heard.end());
    QVector<qint64> gaps;
    for (int i = 1; i < heard.size(); ++i) {
        gaps.append(heard.at(i) - heard.at(i - 1));
    }
    const auto middle = gaps.begin() + gaps.size() / 2;
    std::nth_element(gaps.begin(), middle, gaps.end());
    const qint64 longest = std::max(FlightFigures::LinkTimeout, 5 * *middle);
    heard.append(std::max(heard.constLast(), end));
    QVector<std::pair<qint64, qint64>> silences;
    for (int i = 1; i < heard.size(); ++i) {
        if (heard.at(i) - heard.at(i - 1) > longest) {
            silences.append({heard.at(i - 1), heard.at(i)});
        }
    }
    return silences;
}

FlightProfile FlightProfile::of(const QVector<FlightSample>& samples)
{
    FlightProfile profile;
    for (const FlightSample& sample : samples) {
        const auto msec = qint64(sample.seconds * 1000);
        if (!std::isnan(sample.lng)) {
            profile.track.append({msec, sample.lng, sample.lat});
        }
        profile.values[Height].append({msec, sample.height, sample.height});
        profile.values[Speed].append({msec, sample.speed, sample.speed});
        profile.values[Battery].append({msec, sample.volts, sample.volts});
    }
    return profile;
}

void FlightProfile::read(Flight& flight, const std::function<void()>& step, const Take& take)
{
    const QString time = QStringLiteral("time");
    const Rows positions(flight, PosDataTableName,
                         {time, QStringLiteral("lng"), QStringLiteral("lat"), QStringLiteral("relative_alt"),
                          QStringLiteral("alt"), QStringLiteral("speed")},
                         step);
    const Rows statuses(flight, UasStatusTableName,
                        {time, QStringLiteral("battery_voltage"), QStringLiteral("battery_remaining")}, step);
    const QVector<Rows::Look> places = positions.look();
    const QVector<Rows::Look> conditions = statuses.look();
    const int height = isKnown(places, RelativeAlt) ? RelativeAlt : Alt;
    FlightProfile profile;
    profile.end = flight.end();
    profile.percent = !isKnown(conditions, Volts) && isKnown(conditions, Percent);
    const int battery = profile.percent ? Percent : Volts;
    readTrack(places, &profile.track);
    profile.values = {asSpans(places, height), asSpans(places, GroundSpeed), asSpans(conditions, battery)};
    const auto tell = [&profile, &take, height] {
        FlightProfile told = profile;
        if (height == Alt) {
            lower(&told.values[Height]);
        }
        take(told);
    };
    tell();
    if (!positions.isLong() && !statuses.isLong()) {
        return;
    }
    if (positions.isLong()) {
        const auto spans = positions.spans(places, {1 + height, 1 + GroundSpeed});
        profile.values[Height] = spans[0];
        profile.values[Speed] = spans[1];
    }
    if (statuses.isLong()) {
        profile.values[Battery] = statuses.spans(conditions, {1 + battery})[0];
    }
    tell();
}
