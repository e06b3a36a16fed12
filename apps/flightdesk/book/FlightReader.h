// SPDX-License-Identifier: MIT
#pragma once

#include "book/FlightEvents.h"
#include "book/FlightProfile.h"
#include "export/FlightFigures.h"
#include "export/FormatWriter.h"

#include <QtCore/QObject>
#include <QtCore/QThreadPool>

#include <atomic>

/// Reads flights for the book, on threads of its own: the one that is open, and the figures of all.
class FlightReader : public QObject
{
    Q_OBJECT

public:
    explicit FlightReader(QObject* parent = nullptr);
    /// Stops at the next record.
    ~FlightReader() override;

    /// Reads the profile of a flight, then its events; one that is being read is left.
    void open(const QString& file, const QString& mission);
    /// Reads the figures of a flight when its turn comes.
    /// \param soon  before others
    void figure(const QString& file, const QString& mission, bool soon = false);
    /// Writes a flight into a file of another program's format; it is written to its end.
    void exportTo(const QString& path, const ExportFormat& format, const QString& file,
                  const QString& mission);
    /// Leaves all that was asked for but exports.
    void forget();

Q_SIGNALS:
    void profiled(const QString& mission, const FlightProfile& profile);
    void happened(const QString& mission, const QVector<FlightEvent>& events);
    void figured(const QString& file, const QString& mission, const FlightFigures& figures);
    /// What was written, or why nothing was.
    void exported(const QString& text, bool failed);

private:
    void readPage(const QString& file, const QString& mission, int turn);
    void readFigures(const QString& file, const QString& mission, int turn);

    QThreadPool m_pages;
    QThreadPool m_figures;
    QThreadPool m_exports;
    std::atomic_int m_page{0}; ///< counts; who was asked for before stops
    std::atomic_int m_book{0};
};
