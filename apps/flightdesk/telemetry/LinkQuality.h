// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>

/// How many frames of a link's senders were lost on their way, as the gaps in their sequence numbers tell.
class LinkQuality
{
public:
    struct Sender {
        quint64 frames = 0; ///< that came
        quint64 lost = 0;
        quint8 sequence = 0; ///< the latest
    };

    /// Takes a frame as FrameReader gives it.
    void take(const QByteArray& frame);

    quint64 lost() const { return m_lost; }
    /// Frames of all components of a system.
    Sender sender(quint8 system) const;

private:
    static quint16 key(quint8 system, quint8 component) { return quint16(system << 8 | component); }

    QHash<quint16, Sender> m_senders;
    quint64 m_lost = 0;
};
