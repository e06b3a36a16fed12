// SPDX-License-Identifier: MIT
#include "CKvFlightDataDbOperator.h"

#include <QtCore/QPointer>

#include <utility>

/// Runs a step of the flow that leads to a next file or mission, and then the steps that it leads to in turn.
/// They call this function as their last act; running them nested instead would take a stack as deep as there
/// are finished files in the project or stale ids in the queue.
void CKvFlightDataDbOperator::_GoOn(ENextStep eStep, const QString& strFile)
{
    m_eNextStep = eStep;
    m_strNextFile = strFile;
    if (m_bFlowRunning) {
        return;
    }
    const QPointer<CKvFlightDataDbOperator> alive(this);
    m_bFlowRunning = true;
    while (alive && m_eNextStep != ENextStep::None) {
        const QString strNext = m_strNextFile;
        _RunStep(std::exchange(m_eNextStep, ENextStep::None), strNext);
    }
    if (alive) {
        m_bFlowRunning = false;
    }
}

/// Emits a signal whose receivers may do anything: a step that begins inside one runs there, to its end,
/// while the step that emits waits. False when one of them has deleted the operator.
bool CKvFlightDataDbOperator::_EmitInFlow(const std::function<void()>& emitSignal)
{
    const QPointer<CKvFlightDataDbOperator> alive(this);
    const bool bRunning = std::exchange(m_bFlowRunning, false);
    emitSignal();
    if (alive) {
        m_bFlowRunning = bRunning;
    }
    return alive;
}
