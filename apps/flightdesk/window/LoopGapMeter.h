// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtCore/QTimer>

/// The longest time between two turns of the thread's event loop. A timer's tick comes late by as much as
/// the loop was kept busy.
class LoopGapMeter : public QObject
{
    Q_OBJECT

public:
    explicit LoopGapMeter(QObject* parent = nullptr);

    /// Forgets what was measured.
    void restart();
    double longestMilliseconds() const { return double(m_longest) / 1e6; }

private:
    void tick();

    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_longest = 0; ///< nanoseconds
};
