// SPDX-License-Identifier: MIT
#include "telemetry/SteadyStamps.h"

namespace
{
constexpr qint64 LongestPause = 24LL * 3600 * 1000 * 1000; // microseconds
} // namespace

qint64 SteadyStamps::next(qint64 usec)
{
    if (m_last < 0 || goesOn(usec)) {
        m_shift = 0; // also when the clock is back where it was
    } else if (!goesOn(usec + m_shift)) {
        m_shift = m_last - usec;
    }
    m_last = usec + m_shift;
    return m_last;
}

bool SteadyStamps::goesOn(qint64 usec) const
{
    return usec >= m_last && usec - m_last <= LongestPause;
}
