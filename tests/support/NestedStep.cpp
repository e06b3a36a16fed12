// SPDX-License-Identifier: MIT
// The steps of the upload as the nested calls that they stand for.
#include "KvProjectDbOperator/CKvFlightDataDbOperator.h"

#include <QtCore/QPointer>

void CKvFlightDataDbOperator::_GoOn(ENextStep eStep, const QString& strFile)
{
    _RunStep(eStep, strFile);
}

bool CKvFlightDataDbOperator::_EmitInFlow(const std::function<void()>& emitSignal)
{
    const QPointer<CKvFlightDataDbOperator> alive(this);
    emitSignal();
    return alive;
}
