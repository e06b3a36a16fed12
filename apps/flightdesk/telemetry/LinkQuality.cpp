// SPDX-License-Identifier: MIT
#include "telemetry/LinkQuality.h"

#include "telemetry/MavlinkCodec.h"

namespace
{
// Numbers go from 0 to 255 and begin anew. What seems to be behind a longer gap began anew, or is late.
constexpr int LongestGap = 127;
constexpr int Latest = 8;
} // namespace

void LinkQuality::take(const QByteArray& frame)
{
    const mavlink::Header header = mavlink::headerOf(frame);
    Sender& sender = m_senders[key(header.system, header.component)];
    const quint8 gap = sender.frames == 0 ? 0 : quint8(header.sequence - sender.sequence - 1);
    if (gap <= LongestGap) {
        sender.lost += gap;
        m_lost += gap;
    }
    if (gap <= 0xFF - Latest) {
        sender.sequence = header.sequence;
    }
    ++sender.frames;
}

LinkQuality::Sender LinkQuality::sender(quint8 system) const
{
    Sender all;
    for (auto sender = m_senders.cbegin(); sender != m_senders.cend(); ++sender) {
        if (sender.key() >> 8 == system) {
            all.frames += sender->frames;
            all.lost += sender->lost;
        }
    }
    return all;
}
