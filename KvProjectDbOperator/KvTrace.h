// SPDX-License-Identifier: MIT
#pragma once

#include "KvLog.h"

/// The level of every line that the library writes.
constexpr Level KvTraceLevel = static_cast<Level>(2);

/// Starts a line of the host's log: KV_TRACE << "Class::method" << item ...; Below the threshold none of
/// the items is evaluated, since reply bodies and statements are not cheap to turn into text.
/// A number among the items marks the place that writes the line. It names no line of these sources any more:
/// hosts and their readers match it, so it stays.
#define KV_TRACE                                                                                             \
    if (Logger::instance().loggingLevel() > KvTraceLevel) {                                                  \
    } else                                                                                                   \
        LogHelper(KvTraceLevel).stream
