// SPDX-License-Identifier: MIT
#include "ScriptedServer.h"

#include "KvAlgorthm.h"
#include "KvData.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QMap>
#include <QtCore/QTimer>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QSignalSpy>

#include <algorithm>

namespace
{
/// One timer for all bytes: with one for each, the first is overtaken under load, and Qt posts again.
void sendSlowly(QTcpSocket* socket, const QByteArray& wire)
{
    auto* const timer = new QTimer(socket);
    QObject::connect(timer, &QTimer::timeout, socket, [socket, timer, wire, sent = 0]() mutable {
        socket->putChar(wire.at(sent++));
        if (sent == wire.size()) {
            timer->stop();
        }
    });
    timer->start(10);
}
} // namespace

QByteArray PostedRequest::field(const QByteArray& name) const
{
    for (const QByteArray& pair : body.split('&')) {
        const int equals = pair.indexOf('=');
        if (pair.left(equals) == name) {
            return QByteArray::fromPercentEncoding(pair.mid(equals + 1).replace('+', ' '));
        }
    }
    return {};
}

QJsonArray PostedRequest::records() const
{
    const QJsonDocument document = QJsonDocument::fromJson(field("data"));
    return document.isArray() ? document.array() : QJsonArray{document.object()};
}

QStringList PostedRequest::ids() const
{
    QStringList ids;
    const QJsonArray all = records();
    for (const QJsonValue& record : all) {
        ids.append(record.toObject().value("id"_l1).toString());
    }
    return ids;
}

QSet<QString> PostedRequest::rows() const
{
    static const QHash<QByteArray, QString> tables = {
        {"/flight/upload", "flight_mission/"_l1},
        {"/flight/posupload", "pos_data/"_l1},
        {"/flight/uasstatusupload", "uas_status/"_l1},
        {"/flight/detailupload", "flight_monitor_detail_log/"_l1},
        {"/flight/upload4video", "flight_video_mission/"_l1}};
    QSet<QString> rows;
    for (const QString& id : ids()) {
        rows.insert(tables.value(path) + id);
    }
    return rows;
}

ScriptedServer::ScriptedServer(const Reply& always)
    : script([always](const PostedRequest&) { return always; })
{
    listen(QHostAddress::LocalHost);
    SetServerIP(url());
    CKvControl::GetInstance(false, EPlaneType::Multirotor)->SetNetWorkConnected(true);
    connect(this, &QTcpServer::newConnection, this, [this] {
        QTcpSocket* const socket = nextPendingConnection();
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
        connect(socket, &QTcpSocket::disconnected, socket, &QTcpSocket::deleteLater);
    });
}

QByteArray ScriptedServer::url() const
{
    return "http://127.0.0.1:" + QByteArray::number(serverPort());
}

ScriptedServer::Reply ScriptedServer::file(const QByteArray& body, int length)
{
    return {"HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(length < 0 ? body.size() : length) +
            "\r\n\r\n" + body};
}

ScriptedServer::Reply ScriptedServer::reply(const QString& words)
{
    if (words.startsWith("slowly "_l1)) {
        Reply slow = reply(words.section(u' ', 1));
        slow.slow = true;
        return slow;
    }
    const QByteArray half = file("{\"sta", 9).wire;
    const QByteArray status = words.section(u' ', 0, 0).toLatin1();
    const QByteArray body = words.section(u' ', 1).toUtf8();
    Reply whole = file(body);
    whole.wire.replace("200 OK", status + (status.startsWith("30") ? " there\r\nLocation: " + body : " so"));
    const QMap<QString, Reply> broken = {{"silence"_l1, {}},
                                         {"slam"_l1, {"", true}},
                                         {"cut"_l1, {half, true}},
                                         {"reset"_l1, {half, false, true}}};
    return broken.value(words, whole);
}

QStringList ScriptedServer::paths() const
{
    QStringList paths;
    for (const PostedRequest& request : requests) {
        paths.append(QString::fromUtf8(request.path));
    }
    return paths;
}

void ScriptedServer::settle()
{
    QNetworkAccessManager manager;
    manager.setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    const QNetworkReply* const reply =
        manager.get(QNetworkRequest(QUrl(QString::fromUtf8(url() + "/settled"))));
    QSignalSpy(reply, &QNetworkReply::finished).wait();
    const auto last = std::find_if(requests.begin(), requests.end(),
                                   [](const PostedRequest& request) { return request.path == "/settled"; });
    requests.erase(last);
}

void ScriptedServer::sendMore(const QByteArray& path, const QByteArray& bytes)
{
    m_asked.value(path)->write(bytes);
}

void ScriptedServer::read(QTcpSocket* socket)
{
    const QByteArray data = socket->peek(socket->bytesAvailable());
    const int headerEnd = data.indexOf("\r\n\r\n");
    PostedRequest request;
    QList<QByteArray> lines = data.left(headerEnd).split('\n');
    request.path = lines.takeFirst().split(' ').value(1);
    for (const QByteArray& line : lines) {
        const int colon = line.indexOf(':');
        request.headers.insert(line.left(colon).toLower(), line.mid(colon + 1).trimmed());
    }
    if (headerEnd > 0 && hangUp && hangUp(request, data.size() - headerEnd - 4)) {
        socket->abort();
        return;
    }
    const int length = request.headers.value("content-length").toInt();
    if (headerEnd < 0 || data.size() < headerEnd + 4 + length) {
        return;
    }
    request.body = data.mid(headerEnd + 4, length);
    socket->read(headerEnd + 4 + length);
    requests.append(request);
    m_asked[request.path] = socket;
    const Reply reply = script(request);
    if (reply.wire == accepted().wire) {
        stored += request.rows();
    }
    if (reply.slow) {
        sendSlowly(socket, reply.wire);
        return;
    }
    socket->write(reply.wire);
    if (reply.reset) {
        socket->flush();
        socket->abort();
    } else if (reply.close) {
        socket->disconnectFromHost();
    }
}
