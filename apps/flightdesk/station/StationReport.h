// SPDX-License-Identifier: MIT
#pragma once

#include "station/StationState.h"

#include <QtCore/QJsonObject>

/// How a station stands, for people and for scripts.
struct StationReport {
    StationState state;
    qint64 waiting = 0; ///< rows for upload
    qint64 freeBytes = 0;
    QString upload; ///< what the upload does, in words; empty without one

    QString line() const;
    QJsonObject json() const;
};
