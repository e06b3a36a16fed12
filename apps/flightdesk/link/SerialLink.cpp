// SPDX-License-Identifier: MIT
#include "link/SerialLink.h"

#include "words/Failure.h"

#include <QtCore/QFileInfo>

namespace
{
constexpr qint64 SendBuffer = 4LL * 1024; // what is not sent soon is not worth sending
}

SerialLink::SerialLink(const LinkSettings& settings) : Link(settings)
{
    m_port.setPortName(settings.host);
    m_port.setBaudRate(settings.baud);
    connect(&m_port, &QSerialPort::readyRead, this, [this] { Q_EMIT received(m_port.readAll()); });
    connect(&m_port, &QSerialPort::errorOccurred, this, &SerialLink::noteError);
}

void SerialLink::check(const LinkSettings& settings)
{
    const QFileInfo device(settings.host);
    if (!device.exists()) {
        return; // it may be plugged in later
    }
    const QString link = settings.text() + QStringLiteral(": ");
    if (!device.isReadable() || !device.isWritable()) {
        throw Failure(
            link +
            QStringLiteral("no permission; add the user to the group %1 of the device").arg(device.group()));
    }
    QSerialPort port(settings.host);
    if (device.isFile() || device.isDir() ||
        (!port.open(QIODevice::ReadWrite) && port.error() != QSerialPort::PermissionError)) {
        throw Failure(link + QStringLiteral("no serial line; write the path of a device, as in "
                                            "serial:/dev/ttyUSB0:57600"));
    }
}

void SerialLink::attempt()
{
    if (m_port.open(QIODevice::ReadWrite)) {
        noteUp();
    } else {
        noteDown(m_port.errorString());
    }
}

/// Most errors are of one operation; these two end what a line can do.
void SerialLink::noteError(QSerialPort::SerialPortError error)
{
    const bool isGone = error == QSerialPort::ResourceError || error == QSerialPort::ReadError;
    if (isGone && m_port.isOpen()) {
        m_port.close();
        noteDown(QStringLiteral("the device is gone"));
    }
}

void SerialLink::send(const QByteArray& bytes)
{
    if (isUp() && m_port.bytesToWrite() < SendBuffer) {
        m_port.write(bytes);
    }
}
