// SPDX-License-Identifier: MIT
#include "link/LinkSettings.h"

#include "words/Failure.h"

#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

#include <algorithm>

namespace
{
constexpr quint16 UsualPort = 14550;
constexpr qint32 UsualBaud = 57600;
constexpr qint32 LeastBaud = 1200;
constexpr qint32 MostBaud = 4000000;

[[noreturn]] void refuse(const QString& text, const QString& trouble, const char* instead)
{
    throw Failure(QStringLiteral("%1: %2; write %3").arg(text, trouble, QLatin1String(instead)));
}

/// Splits "HOST:PORT", where an IPv6 address stands in brackets; false for anything else.
bool split(const QString& place, QString* host, QString* port)
{
    static const QRegularExpression form(QStringLiteral("^(?:\\[([^\\]]*)\\]|([^:\\[\\]]*))(?::([^:]*))?$"));
    const QRegularExpressionMatch match = form.match(place);
    *host = match.captured(1) + match.captured(2);
    *port = match.captured(3);
    return match.hasMatch();
}

/// \param least  0 where a free port may be asked for
quint16 portIn(const QString& text, const QString& port, int least, const char* instead)
{
    bool isNumber = false;
    const int number = port.toInt(&isNumber);
    if (!isNumber || number < least || number > 65535) {
        refuse(text, QStringLiteral("\"%1\" is no port from %2 to 65535").arg(port).arg(least), instead);
    }
    return static_cast<quint16>(number);
}

LinkSettings udp(const QString& text, const QString& place)
{
    const char* const instead = "udp:[ADDRESS]:PORT, as in udp::14550 or udp:127.0.0.1:14550";
    LinkSettings settings;
    QString host;
    QString port;
    if (!split(place, &host, &port)) {
        refuse(text, QStringLiteral("more than an address and a port"), instead);
    }
    settings.address = host.isEmpty() ? QHostAddress(QHostAddress::AnyIPv4) : QHostAddress(host);
    static const QRegularExpression number(QStringLiteral("^\\d+$")); // Qt would read an address from one
    if (settings.address.isNull() || number.match(host).hasMatch()) {
        refuse(text, QStringLiteral("\"%1\" is no address of this machine").arg(host), instead);
    }
    settings.port = port.isEmpty() ? UsualPort : portIn(text, port, 0, instead);
    return settings;
}

LinkSettings tcp(const QString& text, const QString& place)
{
    const char* const instead = "tcp:HOST:PORT, as in tcp:192.168.4.1:5760";
    LinkSettings settings;
    settings.kind = LinkSettings::Kind::Tcp;
    QString port;
    if (!split(place, &settings.host, &port) || settings.host.isEmpty()) {
        refuse(text, QStringLiteral("no host and port"), instead);
    }
    settings.port = portIn(text, port, 1, instead);
    return settings;
}

/// The path of a device may hold colons of its own; what follows the last one is the speed if it is a number.
LinkSettings serial(const QString& text, const QString& place)
{
    const char* const instead = "serial:DEVICE:BAUD, as in serial:/dev/ttyUSB0:57600";
    static const QRegularExpression form(QStringLiteral("^(/.*?)(?::(\\d*))?$"));
    const QRegularExpressionMatch match = form.match(place);
    if (!match.hasMatch()) {
        refuse(text, QStringLiteral("no path of a device"), instead);
    }
    LinkSettings settings;
    settings.kind = LinkSettings::Kind::Serial;
    settings.host = match.captured(1);
    settings.baud = match.captured(2).isEmpty() ? UsualBaud : match.captured(2).toInt();
    if (settings.baud < LeastBaud || settings.baud > MostBaud) {
        refuse(text, QStringLiteral("no speed from %1 to %2").arg(LeastBaud).arg(MostBaud), instead);
    }
    return settings;
}
} // namespace

LinkSettings LinkSettings::parse(const QString& text)
{
    const QString kind = text.section(QLatin1Char(':'), 0, 0);
    const QString place = text.section(QLatin1Char(':'), 1);
    if (kind == QLatin1String("udp")) {
        return udp(text, place);
    }
    if (kind == QLatin1String("tcp")) {
        return tcp(text, place);
    }
    if (kind == QLatin1String("serial")) {
        return serial(text, place);
    }
    refuse(text, QStringLiteral("unknown kind of link"),
           "udp:[ADDRESS]:PORT, tcp:HOST:PORT or serial:DEVICE:BAUD");
}

QVector<LinkSettings> LinkSettings::parseAll(const QStringList& texts)
{
    QVector<LinkSettings> all;
    for (const QString& text : texts) {
        const LinkSettings settings = parse(text);
        const auto other = std::find_if(all.cbegin(), all.cend(), [&settings](const LinkSettings& known) {
            return known.isSamePort(settings);
        });
        if (other != all.cend()) {
            throw Failure(QStringLiteral("%1: on the same port as %2; give each link a port of its own")
                              .arg(text, other->text()));
        }
        all.append(settings);
    }
    return all;
}

QString LinkSettings::text() const
{
    const auto withPort = [this](const QString& where) {
        return QStringLiteral("%1:%2")
            .arg(where.contains(QLatin1Char(':')) ? QStringLiteral("[%1]").arg(where) : where)
            .arg(port);
    };
    switch (kind) {
    case Kind::Udp:
        return QStringLiteral("udp:") + withPort(address.toString());
    case Kind::Tcp:
        return QStringLiteral("tcp:") + withPort(host);
    case Kind::Serial:
        break;
    }
    return QStringLiteral("serial:%1:%2").arg(host).arg(baud);
}

bool LinkSettings::isSamePort(const LinkSettings& other) const
{
    const auto any = [](const LinkSettings& settings) {
        return settings.address == QHostAddress(QHostAddress::AnyIPv4) ||
               settings.address == QHostAddress(QHostAddress::AnyIPv6);
    };
    if (kind != other.kind || port != other.port) {
        return false;
    }
    if (kind == Kind::Udp) {
        return port != 0 && (address == other.address || any(*this) || any(other));
    }
    const auto device = [](const LinkSettings& settings) { // which has several names
        const QString path = QFileInfo(settings.host).canonicalFilePath();
        return path.isEmpty() ? settings.host : path;
    };
    return kind == Kind::Serial ? device(*this) == device(other) : host == other.host;
}
