// SPDX-License-Identifier: MIT
#pragma once

#include "link/Link.h"

#include <QtNetwork/QUdpSocket>

/// Listens at a port; each received() is one datagram.
class UdpLink : public Link
{
    Q_OBJECT

public:
    explicit UdpLink(const LinkSettings& settings);

    QString text() const override;
    void send(const QByteArray& bytes) override;

protected:
    void attempt() override;

private:
    void read();

    QUdpSocket m_socket{this};
    QByteArray m_buffer;
    quint16 m_port;      ///< of its own once it listens, so that it comes back at the same one
    QHostAddress m_peer; ///< heard last
    quint16 m_peerPort = 0;
};
