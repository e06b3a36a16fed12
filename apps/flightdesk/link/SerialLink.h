// SPDX-License-Identifier: MIT
#pragma once

#include "link/Link.h"

#include <QtSerialPort/QSerialPort>

/// Opens a serial device, 8 data bits, no parity, one stop bit, no flow control.
class SerialLink : public Link
{
    Q_OBJECT

public:
    explicit SerialLink(const LinkSettings& settings);

    /// Throws Failure when the device is there and will never do: nobody may read it, or it is no serial
    /// line.
    static void check(const LinkSettings& settings);

    void send(const QByteArray& bytes) override;

protected:
    void attempt() override;

private:
    void noteError(QSerialPort::SerialPortError error);

    QSerialPort m_port{this};
};
