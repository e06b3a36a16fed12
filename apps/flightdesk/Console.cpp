// SPDX-License-Identifier: MIT
#include "Console.h"

#include <QtCore/QJsonDocument>

#include <cstdio>

#ifdef Q_OS_WIN
#include <io.h>
#else
#include <unistd.h>
#endif

namespace
{
QString& secret()
{
    static QString text;
    return text;
}

bool isErrorTerminal()
{
#ifdef Q_OS_WIN
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(STDERR_FILENO) != 0;
#endif
}

/// Names and messages come from files and servers: no control character of theirs reaches a terminal.
QByteArray printable(QString text)
{
    constexpr int ShortestSecret = 4; // less is no secret, but part of other words
    if (secret().size() >= ShortestSecret) {
        text.replace(secret(), QStringLiteral("***"));
    }
    for (QChar& c : text) {
        if (c.category() == QChar::Other_Control && c != QLatin1Char('\n')) {
            c = QLatin1Char('?');
        }
    }
    return text.toLocal8Bit();
}

void print(FILE* stream, const QByteArray& bytes)
{
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stream);
    std::fflush(stream);
}
} // namespace

Console::Console(bool json) : m_json(json), m_terminal(isErrorTerminal()) {}

void Console::hide(const QString& text)
{
    secret() = text;
}

void Console::printError(const QString& text)
{
    print(stderr, printable(text) + '\n');
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
    printError(text);
}

void Console::error(const QString& text)
{
    note(QStringLiteral("flightdesk: ") + text);
}

void Console::document(const QJsonObject& object)
{
    clearBar();
    if (m_json) {
        print(stdout, printable(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented))));
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
        printError(QStringLiteral("%1: %2 %").arg(label, QString::number(percent)));
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
