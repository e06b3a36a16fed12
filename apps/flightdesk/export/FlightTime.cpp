// SPDX-License-Identifier: MIT
#include "export/FlightTime.h"

#include <QtCore/QDateTime>

#include <cstdio>

namespace
{
constexpr qint64 Day = 86400000; // milliseconds

/// A number of so many digits; -1 when there are others among them.
int digits(const QString& text, int from, int count)
{
    int number = 0;
    for (int i = from; i < from + count; ++i) {
        const int digit = text.at(i).unicode() - u'0';
        if (digit < 0 || digit > 9) {
            return -1;
        }
        number = 10 * number + digit;
    }
    return number;
}

/// Time of the usual text, 2026-07-05T08:00:00.000Z, many times faster than by Qt: there are millions.
qint64 readUsual(const QString& text)
{
    if (text.size() != 24 || text.at(10) != QLatin1Char('T') || text.at(23) != QLatin1Char('Z') ||
        text.at(19) != QLatin1Char('.')) {
        return flightTime::Unknown;
    }
    const QDate date(digits(text, 0, 4), digits(text, 5, 2), digits(text, 8, 2));
    const QTime time(digits(text, 11, 2), digits(text, 14, 2), digits(text, 17, 2), digits(text, 20, 3));
    return date.isValid() && time.isValid()
               ? (date.toJulianDay() - QDate(1970, 1, 1).toJulianDay()) * Day + time.msecsSinceStartOfDay()
               : flightTime::Unknown;
}
} // namespace

qint64 flightTime::read(const QString& text)
{
    const qint64 usual = readUsual(text);
    if (usual != Unknown) {
        return usual;
    }
    const QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
    return time.isValid() ? time.toMSecsSinceEpoch() : Unknown;
}

QString flightTime::text(qint64 msec)
{
    const qint64 day = (msec >= 0 ? msec : msec - Day + 1) / Day;
    const QDate date = QDate(1970, 1, 1).addDays(day);
    const auto inDay = int(msec - day * Day);
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", date.year(), date.month(),
                  date.day(), inDay / 3600000, inDay / 60000 % 60, inDay / 1000 % 60, inDay % 1000);
    return QString::fromLatin1(text);
}
