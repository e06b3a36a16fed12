// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/MavlinkCodec.h"

#include <QtCore/QByteArray>
#include <QtCore/QHash>

/// Finds the frames in what a link delivers: a stream of bytes, or datagrams.
///
/// A sound frame counts wherever it stands. One of an unknown message counts when it stands between two good
/// ones, or between one and the edge of a datagram, and its checksum fits some CRC_EXTRA; where bytes were
/// damaged lately that has to be the one with which the same message came before. All else is noise, of which
/// one byte at a time is passed over, so that no false beginning hides a frame behind it. Signatures are
/// kept, and not checked: that takes their key.
class FrameReader
{
public:
    /// What went by so far.
    struct Counts {
        quint64 frames = 0;
        quint64 bytes = 0;        ///< fed, noise included
        quint64 badChecksums = 0; ///< damaged frames where one was due
        quint64 noiseBytes = 0;   ///< bytes that belong to no frame
    };

    void feed(const QByteArray& bytes);
    /// What was fed up to here is all there is: nothing of it continues in what comes next.
    void endOfDatagram() { m_ended = true; }
    /// Takes the next frame; false until more is fed. To be called until then before the next datagram is
    /// fed.
    bool next(QByteArray* frame);

    const Counts& counts() const { return m_counts; }

private:
    enum class Verdict { Good, Bad, Undecided };

    QByteArray frameAt(int offset) const;
    bool isCutOff(int offset) const;
    Verdict verdict();
    Verdict signedVerdict(const QByteArray& frame) const;
    Verdict follower(int offset) const;
    bool isTrusted(const QByteArray& frame);
    void take(QByteArray* frame);
    void skip();

    static constexpr int CleanRun = 100; // frames without damage, after which a line counts as clean

    QByteArray m_buffer;
    int m_at = 0;                    ///< where the unread bytes begin in the buffer
    bool m_ended = false;            ///< the buffer ends where a datagram does
    bool m_inStep = false;           ///< a good frame ended right before m_at
    int m_cleanRun = CleanRun;       ///< frames since a byte was passed over, as far as they matter
    QHash<quint32, quint8> m_extras; ///< fitting CRC_EXTRA of unknown messages
    Counts m_counts;
};
