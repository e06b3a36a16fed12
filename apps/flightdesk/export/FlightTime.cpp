// SPDX-License-Identifier: MIT
#include "export/FlightTime.h"

#include <QtCore/QDateTime>

qint64 flightTime::read(const QString& text)
{
    const QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
    return time.isValid() ? time.toMSecsSinceEpoch() : Unknown;
}

QString flightTime::text(qint64 msec)
{
    return QDateTime::fromMSecsSinceEpoch(msec, Qt::UTC).toString(Qt::ISODateWithMs);
}
