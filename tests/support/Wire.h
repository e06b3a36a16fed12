// SPDX-License-Identifier: MIT
#pragma once

#include "flightdesk/words/Latin1.h"

#include <QtNetwork/QNetworkDatagram>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

#include <memory>

/// The aircraft's side of a link to a station, which can be pulled and plugged in again.
class Wire
{
public:
    virtual ~Wire() = default;
    static std::unique_ptr<Wire> make(const QString& kind);

    /// What the station is told to listen to.
    virtual QString link() const = 0;
    /// What the station says when it has the link.
    virtual void noteUp(const QString& words) { Q_UNUSED(words) }
    /// Bytes in pieces that fit into a datagram.
    virtual void send(const QByteArray& bytes) = 0;
    /// What the station sends next, if anything.
    virtual QByteArray answer() { return {}; }
    virtual void pull() = 0;
    virtual void plug() = 0;
};
