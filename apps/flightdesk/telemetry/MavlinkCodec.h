// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QtGlobal>

#include <optional>

/// MAVLink 1 and 2 frames.
namespace mavlink
{
constexpr uchar Magic1 = 0xFE;
constexpr uchar Magic2 = 0xFD;
/// Bytes at a frame's beginning that tell its length.
constexpr int PrefixLength = 3;
/// Length of the longest frame: MAVLink 2, 255 bytes of payload, signed.
constexpr int LongestFrame = 280;

/// What stands before a frame's payload.
struct Header {
    quint32 id = 0;
    quint8 sequence = 0;
    quint8 system = 0;
    quint8 component = 0;
    int length = 0; ///< its own, up to the payload
    int payload = 0;
};

/// A received frame whose checksum is right.
struct Message {
    quint32 id = 0;
    quint8 system = 0;
    quint8 component = 0;
    QByteArray payload; ///< zeros that MAVLink 2 cut off are put back
};

enum class Soundness {
    Sound,
    Unknown, ///< a message that is not in the table, or not with that length; its checksum cannot be told
    Damaged, ///< wrong in its checksum, or such as no sender makes it
};

/// Length of the frame that begins at `data`, of which at least PrefixLength bytes can be read; 0 when none
/// begins there.
int frameLength(const char* data);

/// Of a frame that is as long as it says.
Header headerOf(const QByteArray& frame);

bool isSigned(const QByteArray& frame);
Soundness judge(const QByteArray& frame);

/// X.25 checksum with the message's CRC_EXTRA appended.
quint16 checksum(const char* data, int length, quint8 extra);

/// The CRC_EXTRA with which the frame's checksum would be right. Of 256 frames that were damaged on their way
/// one has any.
std::optional<quint8> impliedExtra(const QByteArray& frame);

/// Reads a sound frame; nothing for any other.
std::optional<Message> decode(const QByteArray& frame);

/// A MAVLink 1 frame of a message of the table.
QByteArray encode(const Message& message, quint8 sequence);
} // namespace mavlink
