// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>

/// The longest time between two turns of the thread's event loop. A timer's tick comes late by as much as
/// the loop was kept busy.
class LoopGapMeter
{
public:
    LoopGapMeter()
    {
        constexpr int Tick = 5; // milliseconds, the least that is measured
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] {
            m_longest = qMax(m_longest, m_clock.nsecsElapsed());
            m_clock.start();
        });
        m_timer.start(Tick);
        restart();
    }

    /// Forgets what was measured.
    void restart()
    {
        m_longest = 0;
        m_clock.start();
    }
    double longestMilliseconds() const { return double(m_longest) / 1e6; }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_longest = 0; ///< nanoseconds
};
