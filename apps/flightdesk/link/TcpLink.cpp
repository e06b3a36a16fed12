// SPDX-License-Identifier: MIT
#include "link/TcpLink.h"

namespace
{
// Milliseconds
constexpr int ConnectTimeout = 2000;
constexpr int SilenceTimeout = 3000; // a vehicle says something each second
constexpr int FirstTimeout = 60000;  // or nothing, before it is spoken to
constexpr qint64 SendBuffer = 64LL * 1024;
} // namespace

TcpLink::TcpLink(const LinkSettings& settings) : Link(settings)
{
    m_silence.setSingleShot(true);
    connect(&m_silence, &QTimer::timeout, this,
            [this] { giveUp(isUp() ? QStringLiteral("nothing is heard") : QStringLiteral("no answer")); });
    connect(&m_socket, &QTcpSocket::connected, this, [this] {
        m_silence.start(FirstTimeout);
        noteUp();
    });
    connect(&m_socket, &QTcpSocket::readyRead, this, &TcpLink::read);
    connect(&m_socket, &QTcpSocket::errorOccurred, this, [this] { giveUp(m_socket.errorString()); });
}

void TcpLink::attempt()
{
    m_silence.start(ConnectTimeout);
    m_socket.connectToHost(settings().host, settings().port);
}

void TcpLink::read()
{
    m_silence.start(SilenceTimeout);
    Q_EMIT received(m_socket.readAll());
}

void TcpLink::giveUp(const QString& why)
{
    m_silence.stop();
    if (m_socket.bytesAvailable() > 0) {
        Q_EMIT received(m_socket.readAll());
    }
    m_socket.blockSignals(true); // aborting may tell of another error
    m_socket.abort();
    m_socket.blockSignals(false);
    noteDown(why);
}

void TcpLink::send(const QByteArray& bytes)
{
    if (isUp() && m_socket.bytesToWrite() < SendBuffer) {
        m_socket.write(bytes);
    }
}
