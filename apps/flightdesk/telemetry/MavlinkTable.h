// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

/// What of each message's public definition is needed to tell a sound frame from a damaged one.
namespace mavlink
{
struct MessageFacts {
    quint32 id;
    quint8 extra; ///< CRC_EXTRA: a byte of the definition that the checksum covers
    quint8 least; ///< bytes of payload without extension fields
    quint8 most;  ///< with all of them
};

/// Null for a message that is not in the table.
const MessageFacts* factsOf(quint32 id);
} // namespace mavlink
