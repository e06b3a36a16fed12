// SPDX-License-Identifier: MIT
#include "command/Console.h"

#include <KvLog.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QStringList>

#include <cstdio>
#include <unistd.h>

namespace
{
/// Names and messages come from files and servers.
QByteArray printable(const QString& text)
{
    QStringList lines = text.split(QLatin1Char('\n'));
    for (QString& line : lines) {
        line = Logger::instance().printable(line);
    }
    return lines.join(QLatin1Char('\n')).toLocal8Bit();
}

/// A JSON text holds control characters above the ASCII ones as they are.
QString withControlsEscaped(const QByteArray& json)
{
    QString text = QString::fromUtf8(json);
    for (ushort c = 0x7f; c <= 0x9f; ++c) {
        text.replace(QChar(c), QStringLiteral("\\u%1").arg(c, 4, 16, QLatin1Char('0')));
    }
    return text;
}

/// What a script was told so far.
struct Told {
    bool anything = false;
    QString error; ///< the last one
};

Told& told()
{
    static Told told;
    return told;
}

void print(FILE* stream, const QByteArray& bytes)
{
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stream);
    std::fflush(stream);
}

void printNote(const QString& text)
{
    print(stderr, printable(text) + '\n');
}
} // namespace

Console::Console(bool json) : m_json(json), m_terminal(isatty(STDERR_FILENO) != 0) {}

void Console::printError(const QString& text)
{
    told().error = text;
    printNote(QStringLiteral("flightdesk: ") + text);
}

void Console::printMissingDocument()
{
    if (!told().anything) {
        Console(true).document({{QStringLiteral("ok"), false}, {QStringLiteral("error"), told().error}});
    }
}

void Console::printUsageError(const QString& text, const char* help)
{
    printError(QStringLiteral("%1 (see %2)").arg(text, QLatin1String(help)));
}

void Console::line(const QString& text)
{
    clearBar();
    if (!m_json) {
        print(stdout, printable(text) + '\n');
    }
}

void Console::note(const QString& text)
{
    clearBar();
    printNote(text);
}

void Console::error(const QString& text)
{
    clearBar();
    printError(text);
}

void Console::document(const QJsonObject& object)
{
    clearBar();
    if (m_json) {
        told().anything = true;
        print(stdout, printable(withControlsEscaped(QJsonDocument(object).toJson(QJsonDocument::Indented))));
    }
}

void Console::record(const QJsonObject& object)
{
    if (m_json) {
        told().anything = true;
        print(stdout,
              printable(withControlsEscaped(QJsonDocument(object).toJson(QJsonDocument::Compact))) + '\n');
    }
}

void Console::status(const QString& text)
{
    constexpr int PlainInterval = 10000; // milliseconds
    if (m_terminal) {
        // What does not fit into one line is cut off by the terminal, or the next one could not replace it.
        print(stderr, "\r\x1b[?7l" + printable(text) + "\x1b[K\x1b[?7h");
        m_barShown = true;
    } else if (!m_sinceStatus.isValid() || m_sinceStatus.hasExpired(PlainInterval - 1)) {
        m_sinceStatus.start();
        printNote(text);
    }
}

void Console::progress(const QString& label, qint64 done, qint64 all)
{
    constexpr int BarWidth = 30;
    constexpr int CoarseStep = 10; // percent
    const int percent = all > 0 ? static_cast<int>(100 * qBound(qint64(0), done, all) / all) : 100;
    const int step = m_terminal ? percent : percent / CoarseStep;
    if (label == m_label && step == m_step) {
        return;
    }
    m_label = label;
    m_step = step;
    if (!m_terminal) {
        printNote(QStringLiteral("%1: %2 %").arg(label, QString::number(percent)));
        return;
    }
    const int filled = BarWidth * percent / 100;
    print(stderr,
          printable(QStringLiteral("[%1%2] %3 % %4")
                        .arg(QString(filled, QLatin1Char('#')), QString(BarWidth - filled, QLatin1Char('.')))
                        .arg(percent, 3)
                        .arg(label))
                  .prepend('\r') +
              "\x1b[K");
    m_barShown = true;
}

void Console::clearBar()
{
    if (m_barShown) {
        print(stderr, "\r\x1b[K");
        m_barShown = false;
        m_step = -1;
    }
}
