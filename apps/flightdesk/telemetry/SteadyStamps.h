// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

/// Stamps of a clock that someone may set meanwhile, in an order that never runs backwards. As long as the
/// clock is left alone they stay as they are; where it is set back, or ahead by more than a day, time goes on
/// from the latest stamp.
class SteadyStamps
{
public:
    /// \param usec  microseconds since 1970, as the clock told them
    qint64 next(qint64 usec);

private:
    bool goesOn(qint64 usec) const;

    qint64 m_last = -1; ///< the latest given out; none yet below 0
    qint64 m_shift = 0; ///< what the clock was set back by
};
