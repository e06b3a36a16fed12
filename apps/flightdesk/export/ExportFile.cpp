// SPDX-License-Identifier: MIT
#include "export/ExportFile.h"

#include "words/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

#include <cstdio>

ExportFile::ExportFile(const QString& path, const ExportFormat& format)
{
    bool open = false;
    const QFileInfo there(path);
    if (isStandardOutput(path)) {
        open = m_output.open(stdout, QIODevice::WriteOnly);
    } else if (there.exists() && !there.isFile()) { // a device or a pipe, which no file may replace
        m_output.setFileName(path);
        open = m_output.open(QIODevice::WriteOnly);
    } else {
        m_file.setFileName(path);
        open = m_file.open(QIODevice::WriteOnly);
    }
    if (!open) {
        throw Failure(QStringLiteral("%1 cannot be written: %2").arg(path, device().errorString()));
    }
    m_writer = format.makeWriter(device());
}

void ExportFile::commit()
{
    m_writer->finish();
    const bool written = m_file.fileName().isEmpty() ? m_output.flush() && m_output.error() == QFile::NoError
                                                     : m_file.commit();
    if (!written) {
        throw Failure(
            QStringLiteral("%1 was not written: %2")
                .arg(device().fileName().isEmpty() ? QStringLiteral("standard output") : device().fileName(),
                     device().errorString()));
    }
}

QString ExportFile::name(Flight& flight, const ExportFormat& format)
{
    static const QRegularExpression strange(QStringLiteral("[^A-Za-z0-9.-]+"));
    constexpr int LongestName = 40;
    constexpr int EndOfId = 8; // its beginning is a time, and the same for flights recorded together
    QStringList parts;
    if (const qint64 start = flight.start(); start != flightTime::Unknown) {
        parts += QDateTime::fromMSecsSinceEpoch(start, Qt::UTC).toString(QStringLiteral("yyyyMMdd-hhmmss"));
    }
    parts += flight.mission().name.left(LongestName);
    parts += flight.mission().id.right(EndOfId);
    parts.removeAll({});
    return parts.join(QLatin1Char('_')).replace(strange, QStringLiteral("_")) + QLatin1Char('.') +
           QLatin1String(format.name);
}

QString words(const FlightGaps& gaps, qint64 written)
{
    QStringList words;
    const auto say = [&words](qint64 count, const QString& text) {
        if (count > 0) {
            words += text.arg(count);
        }
    };
    if (written == 0) {
        words += QStringLiteral("it has nothing that this format holds");
    }
    say(gaps.noPlace, QStringLiteral("%1 positions have no place, as there was no fix"));
    say(gaps.unstamped, QStringLiteral("%1 frames were stored without their time and have that of the last "
                                       "position or status before them"));
    say(gaps.damaged, gaps.damagedBytes > 0
                          ? QStringLiteral("%1 messages (%2 bytes) are no telemetry and were left out")
                                .arg(QStringLiteral("%1"), QString::number(gaps.damagedBytes))
                          : QStringLiteral("%1 damaged records were left out"));
    say(gaps.unreadable, QStringLiteral("%1 rows cannot be read"));
    return words.join(QStringLiteral("; "));
}

QString missingWords(const Flight& flight, qint64 written)
{
    QStringList missing{flight.mission().incompleteWords(), flight.mission().lostWords(),
                        words(flight.gaps, written)};
    missing.removeAll({});
    return missing.join(QStringLiteral("; "));
}
