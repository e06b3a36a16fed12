// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/MavlinkMessages.h"

#include <QtCore/QByteArray>
#include <QtCore/QtGlobal>

#include <optional>

/// MAVLink 1 and 2 frames, as far as the host reads and writes them.
namespace mavlink
{
constexpr uchar Magic1 = 0xFE;
constexpr uchar Magic2 = 0xFD;
/// Bytes at a frame's beginning that tell its length.
constexpr int PrefixLength = 3;
/// Length of the longest frame: MAVLink 2, 255 bytes of payload, signed.
constexpr int LongestFrame = 280;

/// A received frame whose checksum is right.
struct Message {
    quint32 id = 0;
    quint8 system = 0;
    quint8 component = 0;
    QByteArray payload; ///< zeros that MAVLink 2 cut off are put back
};

/// Length of the frame that begins at `data`, of which at least PrefixLength bytes can be read; 0 when none
/// begins there.
int frameLength(const char* data);

/// X.25 checksum with the message's CRC_EXTRA appended.
quint16 checksum(const char* data, int length, quint8 extra);

/// Reads a frame of one of the messages of MavlinkMessages.h; nothing for any other, or when the checksum is
/// wrong.
std::optional<Message> decode(const QByteArray& frame);

/// A MAVLink 1 frame of one of these messages.
QByteArray encode(const Message& message, quint8 sequence);
} // namespace mavlink
