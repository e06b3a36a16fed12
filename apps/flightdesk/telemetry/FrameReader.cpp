// SPDX-License-Identifier: MIT
#include "telemetry/FrameReader.h"

namespace
{
// Nobody sends that many bytes of unknown messages in a row; what waits for its follower is bounded by it.
constexpr int LongestUnknown = 8192;
constexpr int MostUnknownMessages = 1000;

bool isMagic(char byte)
{
    return uchar(byte) == mavlink::Magic1 || uchar(byte) == mavlink::Magic2;
}
} // namespace

void FrameReader::feed(const QByteArray& bytes)
{
    m_buffer.remove(0, m_at);
    m_at = 0;
    m_buffer += bytes;
    m_counts.bytes += quint64(bytes.size());
}

bool FrameReader::next(QByteArray* frame)
{
    while (m_at < m_buffer.size()) {
        switch (verdict()) {
        case Verdict::Good:
            take(frame);
            return true;
        case Verdict::Bad:
            skip();
            break;
        case Verdict::Undecided:
            return false;
        }
    }
    m_ended = false;
    return false;
}

/// A view of the buffer.
QByteArray FrameReader::frameAt(int offset) const
{
    const char* data = m_buffer.constData() + offset;
    return QByteArray::fromRawData(data, mavlink::frameLength(data));
}

bool FrameReader::isCutOff(int offset) const
{
    const int rest = m_buffer.size() - offset;
    return rest < mavlink::PrefixLength || rest < mavlink::frameLength(m_buffer.constData() + offset);
}

/// On what begins at m_at.
FrameReader::Verdict FrameReader::verdict()
{
    if (!isMagic(m_buffer.at(m_at))) {
        return Verdict::Bad;
    }
    if (isCutOff(m_at)) {
        return m_ended ? Verdict::Bad : Verdict::Undecided;
    }
    const QByteArray frame = frameAt(m_at);
    const mavlink::Soundness soundness = mavlink::judge(frame);
    if (soundness == mavlink::Soundness::Unknown && m_inStep) {
        const Verdict followed = follower(m_at + frame.size());
        return followed == Verdict::Good && !isTrusted(frame) ? Verdict::Bad : followed;
    }
    if (soundness == mavlink::Soundness::Sound) {
        return signedVerdict(frame);
    }
    const bool wasDue = m_inStep && soundness == mavlink::Soundness::Damaged;
    m_counts.badChecksums += wasDue ? 1 : 0;
    return Verdict::Bad;
}

/// The checksum does not cover a signature: one that has lost a byte would take the next frame's first.
FrameReader::Verdict FrameReader::signedVerdict(const QByteArray& frame) const
{
    const int last = m_at + frame.size() - 1;
    if (!mavlink::isSigned(frame) || !isMagic(m_buffer.at(last))) {
        return Verdict::Good;
    }
    if (isCutOff(last)) {
        return m_ended ? Verdict::Good : Verdict::Undecided;
    }
    return mavlink::judge(frameAt(last)) == mavlink::Soundness::Sound ? Verdict::Bad : Verdict::Good;
}

/// Whether a good frame, or the datagram's edge, follows at the offset; more unknown ones may lie between.
FrameReader::Verdict FrameReader::follower(int offset) const
{
    while (offset < m_buffer.size()) {
        if (!isMagic(m_buffer.at(offset)) || offset - m_at > LongestUnknown) {
            return Verdict::Bad;
        }
        if (isCutOff(offset)) {
            return m_ended ? Verdict::Bad : Verdict::Undecided;
        }
        const QByteArray frame = frameAt(offset);
        const mavlink::Soundness soundness = mavlink::judge(frame);
        if (soundness != mavlink::Soundness::Unknown) {
            return soundness == mavlink::Soundness::Sound ? Verdict::Good : Verdict::Bad;
        }
        offset += frame.size();
    }
    return m_ended ? Verdict::Good : Verdict::Undecided;
}

/// A known message whose id was damaged looks like an unknown one that stands where it should.
bool FrameReader::isTrusted(const QByteArray& frame)
{
    const auto extra = mavlink::impliedExtra(frame);
    if (!extra) {
        return false;
    }
    const quint32 id = mavlink::headerOf(frame).id;
    const auto before = m_extras.constFind(id);
    const bool asBefore = before != m_extras.constEnd() && *before == *extra;
    if (m_extras.size() >= MostUnknownMessages) {
        m_extras.clear();
    }
    m_extras.insert(id, *extra);
    return asBefore || m_cleanRun == CleanRun;
}

void FrameReader::take(QByteArray* frame)
{
    *frame = m_buffer.mid(m_at, mavlink::frameLength(m_buffer.constData() + m_at));
    m_at += frame->size();
    m_inStep = true;
    m_cleanRun = qMin(m_cleanRun + 1, CleanRun);
    ++m_counts.frames;
}

void FrameReader::skip()
{
    ++m_at;
    m_inStep = false;
    m_cleanRun = 0;
    ++m_counts.noiseBytes;
}
