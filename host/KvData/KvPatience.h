// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QElapsedTimer>

#include <atomic>
#include <memory>

/// How long a connection still waits for locks that others hold.
///
/// One wait is all that a thread spends on them until it is back in its event loop, however many statements
/// it has to run until then: a batch whose file is locked costs one wait, and so does a mark, a pause or an
/// end. A thread without an event loop gets back what it has waited by doing other things for as long.
class CKvPatience
{
public:
    explicit CKvPatience(int nMilliseconds);

    /// Milliseconds that are left.
    int Left() const;
    /// Takes off what was waited just now.
    void Spend(qint64 nMilliseconds);

private:
    int _LeftBefore(qint64 nMilliseconds) const;

    const int m_nWhole;
    int m_nLeft;
    QElapsedTimer m_sinceSpent;
    std::shared_ptr<std::atomic<bool>> m_pTurnOver; ///< set by the thread that waited last, in its event loop
};
