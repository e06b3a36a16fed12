// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QJsonArray>
#include <QtCore/QList>
#include <QtCore/QStringList>
#include <QtNetwork/QTcpServer>

#include <functional>

class QTcpSocket;

/// One request as it came over the wire.
struct PostedRequest {
    QByteArray path;
    QHash<QByteArray, QByteArray> headers; ///< names in lower case
    QByteArray body;

    /// A member of the form body, decoded as any form decoder does it.
    QByteArray field(const QByteArray& name) const;
    /// The records of "data", one for a single object.
    QJsonArray records() const;
    QStringList ids() const;
    /// The records as "table/id".
    QSet<QString> rows() const;
};

/// An HTTP server on the loopback interface whose replies are scripted by the test. It is the one to upload
/// to, and there is a network.
class ScriptedServer : public QTcpServer
{
public:
    /// What to send back: bytes as they are. Empty: never answer.
    struct Reply {
        QByteArray wire;
        bool close = false; ///< close the connection after the bytes
        bool reset = false; ///< break it instead
        bool slow = false;  ///< a byte every few milliseconds
    };
    using Script = std::function<Reply(const PostedRequest&)>;

    explicit ScriptedServer(const Reply& always = accepted());
    QByteArray url() const;

    /// A body with its right length, or another one.
    static Reply file(const QByteArray& body, int length = -1);
    /// An HTTP status and a body, which is the Location too where the status is 30x; or "silence", "slam"
    /// (closed without a byte), "cut" or "reset" (closed or broken within the body); or "slowly" and a
    /// status and a body.
    static Reply reply(const QString& words);
    static Reply accepted() { return reply(R"(200 {"status":0,"message":""})"); }

    Script script;
    /// Asked while a request comes in, of whose body so much is there: true breaks the connection.
    std::function<bool(const PostedRequest& request, int received)> hangUp;
    QList<PostedRequest> requests; ///< every request so far
    QSet<QString> stored;          ///< the rows of those that were answered by accepted()
    QStringList paths() const;
    /// Returns once a request that is made now has been answered, and so what was posted before is here.
    void settle();
    /// Sends further bytes on the connection over which the path was asked for last.
    void sendMore(const QByteArray& path, const QByteArray& bytes);

private:
    void read(QTcpSocket* socket);
    QHash<QByteArray, QTcpSocket*> m_asked;
};
