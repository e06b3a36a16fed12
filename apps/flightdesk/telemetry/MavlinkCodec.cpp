// SPDX-License-Identifier: MIT
#include "telemetry/MavlinkCodec.h"

#include "telemetry/MavlinkTable.h"

#include <QtCore/QtEndian>

namespace mavlink
{
namespace
{
constexpr int Header1 = 6;
constexpr int Header2 = 10;
constexpr int ChecksumLength = 2;
constexpr int SignatureLength = 13;
constexpr uchar SignedFlag = 0x01;

uchar at(const char* data, int index)
{
    return static_cast<uchar>(data[index]);
}

void add(quint16* crc, uchar byte)
{
    uchar x = byte ^ uchar(*crc & 0xFF);
    x = uchar(x ^ (x << 4));
    *crc = quint16((*crc >> 8) ^ (x << 8) ^ (x << 3) ^ (x >> 4));
}

quint16 checksumWithoutExtra(const char* data, int length)
{
    quint16 crc = 0xFFFF;
    for (int i = 0; i < length; ++i) {
        add(&crc, at(data, i));
    }
    return crc;
}

bool isWhole(const QByteArray& frame)
{
    return frame.size() >= PrefixLength && frameLength(frame.constData()) == frame.size();
}

/// Whether the message is the table's: other definitions may use its id. Version 2 cuts off zeros, and may
/// have fields that are newer than the table.
bool isKnown(const Header& header, const MessageFacts* facts)
{
    return facts &&
           (header.length == Header2 || (header.payload >= facts->least && header.payload <= facts->most));
}

bool hasUnknownFlags(const QByteArray& frame, const Header& header)
{
    return header.length == Header2 && (at(frame.constData(), 2) & ~SignedFlag) != 0;
}
} // namespace

int frameLength(const char* data)
{
    switch (at(data, 0)) {
    case Magic1:
        return Header1 + at(data, 1) + ChecksumLength;
    case Magic2:
        return Header2 + at(data, 1) + ChecksumLength +
               ((at(data, 2) & SignedFlag) != 0 ? SignatureLength : 0);
    default:
        return 0;
    }
}

Header headerOf(const QByteArray& frame)
{
    const char* data = frame.constData();
    if (at(data, 0) == Magic1) {
        return {at(data, 5), at(data, 2), at(data, 3), at(data, 4), Header1, at(data, 1)};
    }
    const quint32 id = at(data, 7) | quint32(at(data, 8)) << 8 | quint32(at(data, 9)) << 16;
    return {id, at(data, 4), at(data, 5), at(data, 6), Header2, at(data, 1)};
}

bool isSigned(const QByteArray& frame)
{
    return at(frame.constData(), 0) == Magic2 && (at(frame.constData(), 2) & SignedFlag) != 0;
}

Soundness judge(const QByteArray& frame)
{
    if (!isWhole(frame)) {
        return Soundness::Damaged;
    }
    const Header header = headerOf(frame);
    const MessageFacts* facts = factsOf(header.id);
    if (hasUnknownFlags(frame, header)) {
        return Soundness::Damaged;
    }
    if (!isKnown(header, facts)) {
        return Soundness::Unknown;
    }
    const int end = header.length + header.payload;
    const auto expected = qFromLittleEndian<quint16>(frame.constData() + end);
    return checksum(frame.constData() + 1, end - 1, facts->extra) == expected ? Soundness::Sound
                                                                              : Soundness::Damaged;
}

quint16 checksum(const char* data, int length, quint8 extra)
{
    quint16 crc = checksumWithoutExtra(data, length);
    add(&crc, extra);
    return crc;
}

std::optional<quint8> impliedExtra(const QByteArray& frame)
{
    const Header header = headerOf(frame);
    const int end = header.length + header.payload;
    const quint16 before = checksumWithoutExtra(frame.constData() + 1, end - 1);
    const auto expected = qFromLittleEndian<quint16>(frame.constData() + end);
    for (int extra = 0; extra < 256; ++extra) {
        quint16 crc = before;
        add(&crc, uchar(extra));
        if (crc == expected) {
            return quint8(extra);
        }
    }
    return std::nullopt;
}

std::optional<Message> decode(const QByteArray& frame)
{
    if (judge(frame) != Soundness::Sound) {
        return std::nullopt;
    }
    const Header header = headerOf(frame);
    Message message{header.id, header.system, header.component, frame.mid(header.length, header.payload)};
    const int least = factsOf(header.id)->least;
    if (message.payload.size() < least) {
        message.payload.append(least - message.payload.size(), '\0');
    }
    return message;
}

QByteArray encode(const Message& message, quint8 sequence)
{
    const MessageFacts* facts = factsOf(message.id);
    Q_ASSERT(facts && message.id <= 0xFF && message.payload.size() == facts->least);
    QByteArray frame;
    frame.reserve(Header1 + facts->least + ChecksumLength);
    for (const uint byte : {uint(Magic1), uint(facts->least), uint(sequence), uint(message.system),
                            uint(message.component), uint(message.id)}) {
        frame.append(char(byte));
    }
    frame.append(message.payload);
    const quint16 crc = checksum(frame.constData() + 1, frame.size() - 1, facts->extra);
    frame.append(char(crc & 0xFF));
    frame.append(char(crc >> 8));
    return frame;
}
} // namespace mavlink
