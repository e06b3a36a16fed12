// SPDX-License-Identifier: MIT
#pragma once

#include "record/FlightRecorder.h"

#include <QtCore/QJsonObject>

/// A recorded flight for people: what of it was recorded, and how it ended.
QString flightWords(const RecordedFlight& flight);
/// And for scripts.
QJsonObject flightJson(const RecordedFlight& flight);
