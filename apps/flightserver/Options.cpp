// SPDX-License-Identifier: MIT
#include "Options.h"

#include "PgLedger.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

#include <stdexcept>

namespace
{
const QCommandLineOption HostOption(QStringLiteral("host"),
                                    QStringLiteral("Address to listen on (default 127.0.0.1)."),
                                    QStringLiteral("ADDRESS"), QStringLiteral("127.0.0.1"));
const QCommandLineOption PortOption(QStringLiteral("port"),
                                    QStringLiteral("Port to listen on (default 0: any free one)."),
                                    QStringLiteral("N"), QStringLiteral("0"));
const QCommandLineOption
    TokenOption(QStringLiteral("token"),
                QStringLiteral("Take requests whose \"token\" header is this one, as owner \"demo\", beside "
                               "those with a token of the ledger."),
                QStringLiteral("TOKEN"));
const QCommandLineOption RequireTokenOption(
    QStringLiteral("require-token"),
    QStringLiteral("Refuse everybody as long as no token has been given out. On a loopback "
                   "address whoever comes may send until then."));
const QCommandLineOption TlsCertOption(QStringLiteral("tls-cert"),
                                       QStringLiteral("Serve https with this certificate (PEM)."),
                                       QStringLiteral("FILE"));
const QCommandLineOption TlsKeyOption(QStringLiteral("tls-key"),
                                      QStringLiteral("Private key of the certificate (PEM)."),
                                      QStringLiteral("FILE"));
const QCommandLineOption LedgerOption(
    QStringLiteral("ledger"),
    QStringLiteral(
        "SQLite file, or postgresql://HOST[,HOST...]/NAME for a fleet, that keeps what was received "
        "(default: memory, gone with the process)."),
    QStringLiteral("FILE|URI"), QLatin1String(LedgerInMemory));
const QCommandLineOption
    RequireSyncOption(QStringLiteral("require-sync"),
                      QStringLiteral("With postgresql://: accept nothing without a synchronous standby."));
const QCommandLineOption
    MemoryOption(QStringLiteral("memory"),
                 QStringLiteral("Bytes that all requests together may hold (default 256M)."),
                 QStringLiteral("SIZE"));
const QCommandLineOption
    MaxBodyOption(QStringLiteral("max-body"),
                  QStringLiteral("Longest body of a request (default 512M, never above --memory)."),
                  QStringLiteral("SIZE"));
const QCommandLineOption MaxConnectionsOption(QStringLiteral("max-connections"),
                                              QStringLiteral("Open connections (default 16384)."),
                                              QStringLiteral("N"));
const QCommandLineOption AdminOption(QStringLiteral("admin"),
                                     QStringLiteral("Answer GET /health, /ready and /metrics there."),
                                     QStringLiteral("ADDRESS:PORT"));
const QCommandLineOption AccessLogOption(QStringLiteral("access-log"),
                                         QStringLiteral("Write one line for each request."),
                                         QStringLiteral("FILE"));
const QCommandLineOption
    AllButNewestOption(QStringLiteral("all-but-newest"),
                       QStringLiteral("For token revoke: keep the owner's newest token."));
const QCommandLineOption
    FaultOption(QStringLiteral("fault"),
                QStringLiteral("Misbehave after AFTER requests, for COUNT requests: http=N, status=N, "
                               "delay=MS, stall, cut, garbage, empty, drop (stored, reply cut). "
                               "May be repeated; the first one that applies wins."),
                QStringLiteral("WHAT[:AFTER[:COUNT]]"));

int portOf(const QString& text, const char* option)
{
    bool ok = false;
    const int port = text.toUShort(&ok);
    if (!ok) {
        throw std::runtime_error(std::string(option) + " takes a number from 0 to 65535");
    }
    return port;
}

std::string withoutBrackets(const QString& host)
{
    const bool isBracketed = host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']'));
    return (isBracketed ? host.mid(1, host.size() - 2) : host).toStdString();
}

// "ADDRESS:PORT", the address of IPv6 in brackets.
Place placeOf(QString text)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    if (colon <= 0) {
        throw std::runtime_error("--admin takes ADDRESS:PORT");
    }
    const int port = portOf(text.mid(colon + 1), "the port of --admin");
    text.truncate(colon);
    return {withoutBrackets(text), port};
}

// A number with K, M or G behind it, or none.
std::size_t sizeOf(QString text, const char* option)
{
    constexpr qulonglong Least = 64 << 10;
    constexpr qulonglong Most = qulonglong{1} << 40;
    const int unit = QStringLiteral("KMG").indexOf(text.right(1).toUpper());
    const int shift = text.isEmpty() || unit < 0 ? 0 : 10 * (unit + 1);
    if (shift > 0) {
        text.chop(1);
    }
    bool ok = false;
    const qulonglong number = text.toULongLong(&ok);
    if (!ok || number > (Most >> shift) || (number << shift) < Least) {
        throw std::runtime_error(std::string(option) +
                                 " takes a number of bytes from 64K to 1024G, as in 256M");
    }
    return static_cast<std::size_t>(number << shift);
}

Limits readLimits(const QCommandLineParser& parser)
{
    Limits limits;
    if (parser.isSet(MemoryOption)) {
        limits.memory = sizeOf(parser.value(MemoryOption), "--memory");
    }
    if (parser.isSet(MaxBodyOption)) {
        limits.maxBody = sizeOf(parser.value(MaxBodyOption), "--max-body");
    }
    if (parser.isSet(MaxConnectionsOption)) {
        bool ok = false;
        limits.maxConnections = parser.value(MaxConnectionsOption).toUInt(&ok);
        if (!ok || limits.maxConnections == 0) {
            throw std::runtime_error("--max-connections takes a number above 0");
        }
    }
    return limits;
}

void readTls(const QCommandLineParser& parser, Options& options)
{
    options.tlsCertificate = parser.value(TlsCertOption).toStdString();
    options.tlsKey = parser.value(TlsKeyOption).toStdString();
    if (options.tlsCertificate.empty() != options.tlsKey.empty()) {
        throw std::runtime_error("--tls-cert and --tls-key go together");
    }
}

Options readValues(const QCommandLineParser& parser)
{
    Options options;
    options.place = {withoutBrackets(parser.value(HostOption)), portOf(parser.value(PortOption), "--port")};
    const QByteArray token = parser.value(TokenOption).toLatin1(); // as the header carries it
    if (QString::fromLatin1(token) != parser.value(TokenOption)) {
        throw std::runtime_error("--token holds a character that is not Latin-1, which no header can carry");
    }
    options.token = token.toStdString();
    if (parser.isSet(TokenOption) && options.token.empty()) {
        throw std::runtime_error("--token must not be empty");
    }
    options.requireToken = parser.isSet(RequireTokenOption);
    readTls(parser, options);
    options.ledger = parser.value(LedgerOption).toStdString();
    if (options.ledger.empty()) {
        throw std::runtime_error("--ledger must not be empty");
    }
    options.requireSync = parser.isSet(RequireSyncOption);
    if (options.requireSync && !isDatabase(options.ledger)) {
        throw std::runtime_error("--require-sync belongs to --ledger postgresql://...");
    }
    if (parser.isSet(AdminOption)) {
        options.admin = placeOf(parser.value(AdminOption));
    }
    options.accessLog = parser.value(AccessLogOption).toStdString();
    options.allButNewest = parser.isSet(AllButNewestOption);
    options.limits = readLimits(parser);
    for (const QString& fault : parser.values(FaultOption)) {
        options.faults.push_back(parseFault(fault));
    }
    for (const QString& word : parser.positionalArguments()) {
        options.command.push_back(word.toStdString());
    }
    if (options.allButNewest && (options.command.size() < 2 || options.command[1] != "revoke")) {
        throw std::runtime_error("--all-but-newest belongs to token revoke");
    }
    return options;
}
} // namespace

Options parseOptions(const QCoreApplication& application)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Reference ingest server for flight records."));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    parser.addOptions({HostOption, PortOption, TokenOption, RequireTokenOption, TlsCertOption, TlsKeyOption,
                       LedgerOption, RequireSyncOption, MemoryOption, MaxBodyOption, MaxConnectionsOption,
                       AdminOption, AccessLogOption, AllButNewestOption, FaultOption});
    parser.addPositionalArgument(
        QStringLiteral("token"),
        QStringLiteral(
            "Instead of serving: token add NAME, token list, token revoke NAME; ledger init, which "
            "makes the tables of one on PostgreSQL."),
        QStringLiteral("[token ...|ledger init]"));
    if (!parser.parse(application.arguments())) {
        throw std::runtime_error(parser.errorText().toStdString());
    }
    if (parser.isSet(help)) {
        parser.showHelp();
    }
    if (parser.isSet(version)) {
        parser.showVersion();
    }
    return readValues(parser);
}
