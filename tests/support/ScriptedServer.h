// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QJsonArray>
#include <QtCore/QList>
#include <QtNetwork/QTcpServer>

#include <functional>

class QTcpSocket;

/// One request as it came over the wire.
struct SRequest {
    QByteArray path;
    QHash<QByteArray, QByteArray> headers; ///< names in lower case
    QByteArray body;

    /// A member of the form body, decoded as any form decoder does it.
    QByteArray field(const QByteArray& name) const;
    /// The records of "data", one for a single object.
    QJsonArray records() const;
    QStringList ids() const;
};

/// An HTTP server on the loopback interface whose replies are scripted by the test.
class ScriptedServer : public QTcpServer
{
    Q_OBJECT

public:
    /// What to send back: bytes as they are. Empty: never answer.
    struct SReply {
        QByteArray wire;
        bool close = false; ///< close the connection after the bytes
        bool reset = false; ///< break it instead
    };
    using Script = std::function<SReply(const SRequest&)>;

    ScriptedServer();
    QByteArray url() const;

    static SReply json(const QByteArray& body, const QByteArray& status = "200 OK");
    static SReply accepted() { return json(R"({"status":0,"message":""})"); }
    static SReply silence() { return {}; }
    /// A body with its right length, or another one.
    static SReply file(const QByteArray& body, qint64 length = -1);
    static SReply cut() { return {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"sta", true}; }
    static SReply slam() { return {"", true}; }

    Script script = [](const SRequest&) { return accepted(); };
    QList<SRequest> requests; ///< every request so far
    int count(const QByteArray& path) const;
    /// Sends further bytes on the connection over which the path was asked for last.
    void sendMore(const QByteArray& path, const QByteArray& bytes);

signals:
    void received();

private:
    void read(QTcpSocket* socket);
    QHash<QTcpSocket*, QByteArray> m_pending;
    QHash<QByteArray, QTcpSocket*> m_asked;
};
