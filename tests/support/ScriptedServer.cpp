// SPDX-License-Identifier: MIT
#include "ScriptedServer.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtNetwork/QTcpSocket>

#include <algorithm>

QByteArray SRequest::field(const QByteArray& name) const
{
    for (const QByteArray& pair : body.split('&')) {
        const int equals = pair.indexOf('=');
        if (pair.left(equals) == name) {
            return QByteArray::fromPercentEncoding(pair.mid(equals + 1).replace('+', ' '));
        }
    }
    return {};
}

QJsonArray SRequest::records() const
{
    const QJsonDocument document = QJsonDocument::fromJson(field("data"));
    return document.isArray() ? document.array() : QJsonArray{document.object()};
}

QStringList SRequest::ids() const
{
    QStringList ids;
    for (const QJsonValue& record : records()) {
        ids.append(record.toObject().value("id").toString());
    }
    return ids;
}

ScriptedServer::ScriptedServer()
{
    listen(QHostAddress::LocalHost);
    connect(this, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* const socket = nextPendingConnection()) {
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                m_pending.remove(socket);
                socket->deleteLater();
            });
        }
    });
}

QByteArray ScriptedServer::url() const
{
    return "http://127.0.0.1:" + QByteArray::number(serverPort());
}

ScriptedServer::SReply ScriptedServer::json(const QByteArray& body, const QByteArray& status)
{
    return {"HTTP/1.1 " + status + "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" +
            body};
}

ScriptedServer::SReply ScriptedServer::file(const QByteArray& body, qint64 length)
{
    const qint64 told = length < 0 ? body.size() : length;
    return {"HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(told) + "\r\n\r\n" + body,
            told > body.size()};
}

int ScriptedServer::count(const QByteArray& path) const
{
    return static_cast<int>(std::count_if(requests.cbegin(), requests.cend(),
                                          [&path](const SRequest& r) { return r.path == path; }));
}

void ScriptedServer::sendMore(const QByteArray& path, const QByteArray& bytes)
{
    m_asked.value(path)->write(bytes);
}

void ScriptedServer::read(QTcpSocket* socket)
{
    QByteArray& data = m_pending[socket];
    data += socket->readAll();
    const int headerEnd = data.indexOf("\r\n\r\n");
    if (headerEnd < 0) {
        return;
    }
    SRequest request;
    QList<QByteArray> lines = data.left(headerEnd).split('\n');
    request.path = lines.takeFirst().split(' ').value(1);
    for (const QByteArray& line : lines) {
        const int colon = line.indexOf(':');
        request.headers.insert(line.left(colon).toLower(), line.mid(colon + 1).trimmed());
    }
    const int length = request.headers.value("content-length").toInt();
    if (data.size() < headerEnd + 4 + length) {
        return;
    }
    request.body = data.mid(headerEnd + 4, length);
    data.remove(0, headerEnd + 4 + length);
    requests.append(request);
    m_asked[request.path] = socket;
    const SReply reply = script(request);
    socket->write(reply.wire);
    if (reply.reset) {
        socket->flush();
        socket->abort();
    } else if (reply.close) {
        socket->disconnectFromHost();
    }
    emit received();
}
