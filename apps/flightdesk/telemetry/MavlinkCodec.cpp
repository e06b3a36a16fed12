// SPDX-License-Identifier: MIT
#include "telemetry/MavlinkCodec.h"

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

struct Layout {
    quint32 id;
    quint8 extra;
    int length; ///< without extension fields
};

template<typename Message>
constexpr Layout Of{Message::Id, Message::Extra, Message::Length};

constexpr Layout Layouts[] = {Of<Heartbeat>,         Of<SysStatus>,      Of<GpsRawInt>,   Of<Attitude>,
                              Of<GlobalPositionInt>, Of<MissionCurrent>, Of<MissionCount>};

const Layout* layoutOf(quint32 id)
{
    for (const Layout& layout : Layouts) {
        if (layout.id == id) {
            return &layout;
        }
    }
    return nullptr;
}

uchar at(const char* data, int index)
{
    return static_cast<uchar>(data[index]);
}

Message readHeader(const QByteArray& frame)
{
    const char* data = frame.constData();
    Message message;
    if (at(data, 0) == Magic1) {
        message.system = at(data, 3);
        message.component = at(data, 4);
        message.id = at(data, 5);
        message.payload = frame.mid(Header1, at(data, 1));
    } else {
        message.system = at(data, 5);
        message.component = at(data, 6);
        message.id = at(data, 7) | quint32(at(data, 8)) << 8 | quint32(at(data, 9)) << 16;
        message.payload = frame.mid(Header2, at(data, 1));
    }
    return message;
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

quint16 checksum(const char* data, int length, quint8 extra)
{
    quint16 crc = 0xFFFF;
    const auto add = [&crc](uchar byte) {
        uchar x = byte ^ uchar(crc & 0xFF);
        x = uchar(x ^ (x << 4));
        crc = quint16((crc >> 8) ^ (x << 8) ^ (x << 3) ^ (x >> 4));
    };
    for (int i = 0; i < length; ++i) {
        add(at(data, i));
    }
    add(extra);
    return crc;
}

std::optional<Message> decode(const QByteArray& frame)
{
    if (frame.size() < PrefixLength || frameLength(frame.constData()) != frame.size()) {
        return std::nullopt;
    }
    Message message = readHeader(frame);
    const Layout* layout = layoutOf(message.id);
    if (!layout) {
        return std::nullopt;
    }
    const int header = at(frame.constData(), 0) == Magic1 ? Header1 : Header2;
    const int end = header + message.payload.size();
    const auto expected = qFromLittleEndian<quint16>(frame.constData() + end);
    if (checksum(frame.constData() + 1, end - 1, layout->extra) != expected) {
        return std::nullopt;
    }
    if (message.payload.size() < layout->length) {
        message.payload.append(layout->length - message.payload.size(), '\0');
    }
    return message;
}

QByteArray encode(const Message& message, quint8 sequence)
{
    const Layout* layout = layoutOf(message.id);
    Q_ASSERT(layout && message.payload.size() == layout->length);
    QByteArray frame;
    frame.reserve(Header1 + layout->length + ChecksumLength);
    for (const uint byte : {uint(Magic1), uint(layout->length), uint(sequence), uint(message.system),
                            uint(message.component), uint(message.id)}) {
        frame.append(char(byte));
    }
    frame.append(message.payload);
    const quint16 crc = checksum(frame.constData() + 1, frame.size() - 1, layout->extra);
    frame.append(char(crc & 0xFF));
    frame.append(char(crc >> 8));
    return frame;
}
} // namespace mavlink
