// SPDX-License-Identifier: MIT
#include "KvPatience.h"

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QTimer>

#include <algorithm>

CKvPatience::CKvPatience(int nMilliseconds, CKvPatience* (*pCommon)())
    : m_pCommon(pCommon), m_nWhole(nMilliseconds), m_nLeft(nMilliseconds)
{
}

CKvPatience* CKvPatience::OfVisits()
{
    thread_local CKvPatience common(Visits);
    return &common;
}

int CKvPatience::Left() const
{
    const int nLeft = _LeftBefore(0);
    return m_pCommon ? std::min(nLeft, m_pCommon()->Left()) : nLeft;
}

/// What was left before a wait that has ended just now: waiting itself gives nothing back.
int CKvPatience::_LeftBefore(qint64 nMilliseconds) const
{
    if (m_nLeft == m_nWhole || (m_pTurnOver && *m_pTurnOver)) {
        return m_nWhole;
    }
    return static_cast<int>(std::min<qint64>(m_nWhole, m_nLeft + m_sinceSpent.elapsed() - nMilliseconds));
}

void CKvPatience::Spend(qint64 nMilliseconds)
{
    if (m_pCommon) {
        m_pCommon()->Spend(nMilliseconds);
    }
    const int nMost = std::max(0, m_nWhole - 1); // so that some of it counts as spent
    m_nLeft = static_cast<int>(std::clamp<qint64>(_LeftBefore(nMilliseconds) - nMilliseconds, 0, nMost));
    m_sinceSpent.start();
    m_pTurnOver.reset();
    if (QAbstractEventDispatcher* const pLoop = QAbstractEventDispatcher::instance()) {
        m_pTurnOver = std::make_shared<std::atomic<bool>>(false);
        QTimer::singleShot(0, pLoop, [pOver = m_pTurnOver] { *pOver = true; });
    }
}
