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
/// Short visits to files have a second limit in common, so that a walk through many that are locked costs no
/// more than a few.
class CKvPatience
{
public:
    explicit CKvPatience(int nMilliseconds, CKvPatience* (*pCommon)() = nullptr);
    /// What all visits of the calling thread have in common.
    static CKvPatience* OfVisits();
    static constexpr int Visits = 1000; // milliseconds

    /// Milliseconds that are left.
    int Left() const;
    /// Takes off what was waited just now.
    void Spend(qint64 nMilliseconds);

private:
    int _LeftBefore(qint64 nMilliseconds) const;

    CKvPatience* (*const m_pCommon)(); ///< asked each time, as connections go from thread to thread
    const int m_nWhole;
    int m_nLeft;
    QElapsedTimer m_sinceSpent;
    std::shared_ptr<std::atomic<bool>> m_pTurnOver; ///< set by the thread that waited last, in its event loop
};
