// SPDX-License-Identifier: MIT
#pragma once

#include "flightdesk/words/Latin1.h"

#include <QtCore/QByteArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QUrl>
#include <QtNetwork/QSslSocket>

/// A request as it goes over the line; with a length of -1 that of the body.
inline QByteArray postText(const QByteArray& path, const QByteArray& token, const QByteArray& body,
                           qint64 length = -1)
{
    return "POST " + path + " HTTP/1.1\r\nHost: server\r\nToken: " + token +
           "\r\nContent-Length: " + QByteArray::number(length < 0 ? body.size() : length) + "\r\n\r\n" + body;
}

/// A batch of monitor messages.
inline QByteArray logBody(const QByteArray& rows)
{
    return "flight_mission_id=m1&data=[" + rows + ']';
}

inline QByteArray logRow(const QByteArray& id)
{
    return R"({"id":")" + id + R"(","message":"bWVzc2FnZQ"})";
}

/// A connection on which a test says what it likes. It waits without an event loop.
class RawClient
{
public:
    explicit RawClient(const QString& url)
    {
        const QUrl address(url);
        if (address.scheme() == "https"_l1) {
            m_socket.setPeerVerifyMode(QSslSocket::VerifyNone);
            m_socket.connectToHostEncrypted(address.host(), static_cast<quint16>(address.port()));
            m_socket.waitForEncrypted(Patience);
        } else {
            m_socket.connectToHost(address.host(), static_cast<quint16>(address.port()));
            m_socket.waitForConnected(Patience);
        }
    }

    void send(const QByteArray& bytes)
    {
        m_socket.write(bytes);
        while (m_socket.bytesToWrite() > 0 && m_socket.waitForBytesWritten(Patience)) {
        }
    }
    /// The status in the JSON of the next answer; -1 where none comes, -2 where HTTP's own differs from it.
    int status()
    {
        int head = -1;
        while ((head = m_in.indexOf("\r\n\r\n")) < 0 && receive()) {
        }
        const int length = m_in.mid(m_in.indexOf("Content-Length: ") + 16).split('\r')[0].toInt();
        while (head >= 0 && m_in.size() < head + 4 + length && receive()) {
        }
        if (head < 0 || m_in.size() < head + 4 + length) {
            return -1;
        }
        const int http = m_in.mid(9, 3).toInt();
        const int status = QJsonDocument::fromJson(m_in.mid(head + 4, length))["status"_l1].toInt(-1);
        m_in.remove(0, head + 4 + length);
        return http == (status == 0 ? 200 : status) ? status : -2;
    }
    int post(const QByteArray& path, const QByteArray& token, const QByteArray& body)
    {
        send(postText(path, token, body));
        return status();
    }
    /// Everything up to the end of the connection.
    QByteArray rest()
    {
        while (receive()) {
        }
        return m_in;
    }
    /// Whether the server closes the connection within the patience.
    bool isClosed() { return rest().isEmpty() && m_socket.state() == QAbstractSocket::UnconnectedState; }
    QSslSocket& socket() { return m_socket; }

private:
    static constexpr int Patience = 15000;
    bool receive()
    {
        if (m_socket.bytesAvailable() == 0 && !m_socket.waitForReadyRead(Patience)) {
            return false;
        }
        m_in += m_socket.readAll();
        return true;
    }
    QSslSocket m_socket;
    QByteArray m_in;
};

/// What GET brings, head and body.
inline QByteArray get(const QString& url, const QByteArray& path)
{
    RawClient client(url);
    client.send("GET " + path + " HTTP/1.1\r\nHost: server\r\n\r\n");
    return client.rest();
}
