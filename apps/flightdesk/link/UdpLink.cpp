// SPDX-License-Identifier: MIT
#include "link/UdpLink.h"

#include <QtCore/QVariant>

namespace
{
constexpr int LongestDatagram = 65536;
constexpr int ReceiveBuffer = 8 * 1024 * 1024; // the system gives as much of it as it allows
constexpr int AtOnce = 256;                    // datagrams between two looks at timers
} // namespace

UdpLink::UdpLink(const LinkSettings& settings)
    : Link(settings), m_buffer(LongestDatagram, '\0'), m_port(settings.port)
{
    connect(&m_socket, &QUdpSocket::readyRead, this, &UdpLink::read);
}

QString UdpLink::text() const
{
    LinkSettings own = settings();
    own.port = m_port;
    return own.text();
}

void UdpLink::attempt()
{
    m_socket.abort();
    if (!m_socket.bind(settings().address, m_port, QAbstractSocket::DontShareAddress)) {
        noteDown(m_socket.errorString());
        return;
    }
    m_socket.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, ReceiveBuffer);
    m_port = m_socket.localPort();
    noteUp();
}

void UdpLink::read()
{
    for (int i = 0; i < AtOnce && m_socket.hasPendingDatagrams(); ++i) {
        const qint64 size = m_socket.readDatagram(m_buffer.data(), m_buffer.size(), &m_peer, &m_peerPort);
        if (size > 0) {
            Q_EMIT received(QByteArray(m_buffer.constData(), static_cast<int>(size)));
        }
    }
}

void UdpLink::send(const QByteArray& bytes)
{
    if (!m_peer.isNull()) {
        m_socket.writeDatagram(bytes, m_peer, m_peerPort);
    }
}
