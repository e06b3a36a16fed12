// SPDX-License-Identifier: MIT
#include "operator/OperatorLink.h"

#include <KvProjectDbOperator/CKvFlightDataDbOperator.h>

void OperatorLink::connectTo(CKvFlightDataDbOperator* pOperator) const
{
    connect(this, SIGNAL(missionFile(QString)), pOperator, SLOT(SetFlightMissionFilePath(QString)));
    connect(this, SIGNAL(missionId(QString)), pOperator, SLOT(SetFilghtMissionID(QString)));
    connect(this, SIGNAL(message(QByteArray)), pOperator, SLOT(slotWriteFlightMonitor(QByteArray)));
    connect(this, SIGNAL(positions(QJsonArray, QString, QString)), pOperator,
            SLOT(slotParseJson(QJsonArray, QString, QString)));
    connect(this, SIGNAL(records(QJsonArray, QString, QString, uint, QString)), pOperator,
            SLOT(slotParseJson(QJsonArray, QString, QString, uint, QString)));
    connect(this, SIGNAL(breakpoint(int, double, double, QString, double)), pOperator,
            SLOT(slotUpdateBreakpoint(int, double, double, QString, double)));
    connect(this, SIGNAL(missionValue(QVariant, QVariant, QVariant, QVariant)), pOperator,
            SLOT(slotUpdateGeneralOneValue(QVariant, QVariant, QVariant, QVariant)));
    connect(this, SIGNAL(checkNewData()), pOperator, SLOT(slotCheckNewData()));
    connect(this, SIGNAL(startUploadTimer(bool)), pOperator, SLOT(slotStartUploadTimer(bool)));
    connect(this, SIGNAL(resetUploadFlow()), pOperator, SLOT(slotResetUploadFlow()));
}
