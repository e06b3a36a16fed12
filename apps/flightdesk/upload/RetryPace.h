// SPDX-License-Identifier: MIT
#pragma once

/// When a request is tried again. Clients that grow their pace wait longer the longer failures go on, each a
/// time of its own: where many have lost one server, they do not come back to it all at once.
class RetryPace
{
public:
    /// The same time after each failure.
    static RetryPace fixed(int milliseconds) { return {milliseconds, 0}; }
    /// \param milliseconds  after the first failure; twice as much after each, up to a minute
    static RetryPace growing(int milliseconds);

    /// Milliseconds from the next failure to the try that follows it.
    int interval() const { return m_interval; }
    void noteFailed();
    /// All is well again, or may be.
    void reset();

private:
    RetryPace(int first, int longest) : m_first(first), m_longest(longest) { reset(); }
    void draw();

    int m_first;
    int m_longest;    ///< 0 where it is fixed
    int m_middle = 0; ///< of what is drawn from
    int m_interval = 0;
};
