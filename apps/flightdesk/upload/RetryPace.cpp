// SPDX-License-Identifier: MIT
#include "upload/RetryPace.h"

#include <QtCore/QRandomGenerator>

namespace
{
constexpr int Longest = 60000; // milliseconds
}

RetryPace RetryPace::growing(int milliseconds)
{
    return {milliseconds, qMax(milliseconds, Longest)};
}

void RetryPace::noteFailed()
{
    m_middle = m_middle > m_longest / 2 ? m_longest : m_middle * 2;
    draw();
}

void RetryPace::reset()
{
    m_middle = m_first;
    draw();
}

/// From half to one and a half of the middle.
void RetryPace::draw()
{
    m_interval = m_longest == 0 ? m_first : m_middle / 2 + QRandomGenerator::global()->bounded(m_middle + 1);
}
