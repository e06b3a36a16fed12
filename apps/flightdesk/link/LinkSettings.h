// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtNetwork/QHostAddress>

/// A way on which bytes come in, as it is written on a command line:
/// "udp:[ADDRESS]:PORT", "tcp:HOST:PORT" or "serial:DEVICE:BAUD".
struct LinkSettings {
    enum class Kind { Udp, Tcp, Serial };

    Kind kind = Kind::Udp;
    QHostAddress address; ///< that a UDP link listens at
    QString host;         ///< that a TCP link connects to, or the path of a serial device
    quint16 port = 0;
    qint32 baud = 0;

    /// Throws Failure, which says what to write instead.
    static LinkSettings parse(const QString& text);
    /// Several links, no two of them on one port. Throws Failure.
    static QVector<LinkSettings> parseAll(const QStringList& texts);

    /// As it is written, with what was left out.
    QString text() const;
    bool isSamePort(const LinkSettings& other) const;
};
