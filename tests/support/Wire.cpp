// SPDX-License-Identifier: MIT
#include "Wire.h"

#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace
{
class UdpWire : public Wire
{
public:
    UdpWire() { m_socket.bind(QHostAddress::LocalHost); }
    QString link() const override { return m_link; }
    void noteUp(const QString& words) override
    {
        m_link = words.section(u' ', -1); // the port stays its own when it is started again
        m_port = quint16(m_link.section(u':', -1).toUInt());
    }
    void send(const QByteArray& bytes) override
    {
        if (m_isPlugged) {
            QVERIFY(m_socket.writeDatagram(bytes, QHostAddress::LocalHost, m_port) == bytes.size());
        }
    }
    QByteArray answer() override
    {
        m_socket.waitForReadyRead(10000);
        return m_socket.receiveDatagram().data();
    }
    void pull() override { m_isPlugged = false; }
    void plug() override { m_isPlugged = true; }

private:
    QUdpSocket m_socket;
    QString m_link = "udp:127.0.0.1:0"_l1;
    quint16 m_port = 0;
    bool m_isPlugged = true;
};

class TcpWire : public Wire
{
public:
    TcpWire()
    {
        m_server.listen(QHostAddress::LocalHost);
        m_port = m_server.serverPort();
    }
    QString link() const override { return QStringLiteral("tcp:127.0.0.1:%1").arg(m_port); }
    void send(const QByteArray& bytes) override
    {
        while (!m_socket || m_server.hasPendingConnections()) {
            QVERIFY(m_server.hasPendingConnections() || m_server.waitForNewConnection(10000));
            m_socket.reset(m_server.nextPendingConnection());
        }
        m_socket->write(bytes);
        while (m_socket->bytesToWrite() > 0) {
            QVERIFY(m_socket->waitForBytesWritten());
        }
    }
    void pull() override
    {
        m_socket.reset();
        m_server.close();
    }
    void plug() override { QVERIFY(m_server.listen(QHostAddress::LocalHost, m_port)); }

private:
    QTcpServer m_server;
    std::unique_ptr<QTcpSocket> m_socket;
    quint16 m_port;
};

/// The master of a pseudo terminal; a name of its own leads to the device, as to one of a radio.
class SerialWire : public Wire
{
public:
    SerialWire() { SerialWire::plug(); }
    ~SerialWire() override { SerialWire::pull(); }
    QString link() const override { return QStringLiteral("serial:%1:57600").arg(m_device); }
    void send(const QByteArray& bytes) override
    {
        for (int sent = 0; sent < bytes.size();) {
            pollfd master{m_master, POLLOUT, 0};
            QVERIFY(poll(&master, 1, 10000) == 1);
            const ssize_t written = write(m_master, bytes.constData() + sent, size_t(bytes.size() - sent));
            QVERIFY(written > 0);
            sent += int(written);
        }
    }
    void pull() override
    {
        QFile::remove(m_device);
        close(m_master);
    }
    void plug() override
    {
        m_master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        QVERIFY(m_master >= 0 && grantpt(m_master) == 0 && unlockpt(m_master) == 0);
        QVERIFY(QFile::link(QLatin1String(ptsname(m_master)), m_device));
    }

private:
    QTemporaryDir m_dir;
    const QString m_device = m_dir.filePath("radio"_l1);
    int m_master = -1;
};
} // namespace

std::unique_ptr<Wire> Wire::make(const QString& kind)
{
    if (kind == "udp"_l1) {
        return std::make_unique<UdpWire>();
    }
    if (kind == "tcp"_l1) {
        return std::make_unique<TcpWire>();
    }
    return std::make_unique<SerialWire>();
}
