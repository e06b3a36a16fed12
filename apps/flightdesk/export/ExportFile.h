// SPDX-License-Identifier: MIT
#pragma once

#include "export/FormatWriter.h"

#include <QtCore/QFile>
#include <QtCore/QSaveFile>

/// A file for other programs, into which flights are written. What the path names before stays until all of
/// them are: it is replaced whole by commit(), or not at all.
class ExportFile
{
public:
    /// \param path  "-" is standard output; a device is written to as it is. Throws Failure when it cannot be
    /// written.
    ExportFile(const QString& path, const ExportFormat& format);

    /// What a flight's records became; its gaps tell what is missing.
    qint64 add(Flight& flight) { return m_writer->add(flight); }
    /// Throws Failure.
    void commit();

    static bool isStandardOutput(const QString& path) { return path == QLatin1String("-"); }
    /// A name for a flight's own file: when it began, how it is called and the end of its id.
    static QString name(Flight& flight, const ExportFormat& format);

private:
    QFileDevice& device()
    {
        return m_file.fileName().isEmpty() ? static_cast<QFileDevice&>(m_output) : m_file;
    }

    QSaveFile m_file;
    QFile m_output;
    std::unique_ptr<FormatWriter> m_writer;
};

/// What is missing of a flight, in words; empty when nothing is.
QString words(const FlightGaps& gaps, qint64 written);
/// And that it was not recorded to its end, or what of its log was not.
QString missingWords(const Flight& flight, qint64 written);
