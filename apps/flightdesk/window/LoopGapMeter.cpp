// SPDX-License-Identifier: MIT
#include "LoopGapMeter.h"

namespace
{
constexpr int Tick = 5; // milliseconds, the least that is measured
}

LoopGapMeter::LoopGapMeter(QObject* parent) : QObject(parent)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &LoopGapMeter::tick);
    m_timer.start(Tick);
    m_clock.start();
}

void LoopGapMeter::restart()
{
    m_longest = 0;
    m_clock.start();
}

void LoopGapMeter::tick()
{
    m_longest = qMax(m_longest, m_clock.nsecsElapsed());
    m_clock.start();
}
