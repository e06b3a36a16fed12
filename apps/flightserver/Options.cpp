// SPDX-License-Identifier: MIT
#include "Options.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

#include <stdexcept>

namespace
{
const QCommandLineOption HostOption("host", "Address to listen on (default 127.0.0.1).", "ADDRESS",
                                    "127.0.0.1");
const QCommandLineOption PortOption("port", "Port to listen on (default 0: any free one).", "N", "0");
const QCommandLineOption
    TokenOption("token",
                "Take requests whose \"token\" header is this one, as owner \"demo\", beside "
                "those with a token of the ledger.",
                "TOKEN");
const QCommandLineOption
    RequireTokenOption("require-token",
                       "Refuse everybody as long as no token has been given out. On a loopback "
                       "address whoever comes may send until then.");
const QCommandLineOption TlsCertOption("tls-cert", "Serve https with this certificate (PEM).", "FILE");
const QCommandLineOption TlsKeyOption("tls-key", "Private key of the certificate (PEM).", "FILE");
const QCommandLineOption LedgerOption("ledger", "SQLite file that keeps what was received (default: memory).",
                                      "FILE", LedgerInMemory);
const QCommandLineOption MemoryOption("memory", "Bytes that all requests together may hold (default 256M).",
                                      "SIZE");
const QCommandLineOption
    MaxBodyOption("max-body", "Longest body of a request (default 512M, never above --memory).", "SIZE");
const QCommandLineOption MaxConnectionsOption("max-connections", "Open connections (default 16384).", "N");
const QCommandLineOption AdminOption("admin", "Answer GET /health, /ready and /metrics there.",
                                     "ADDRESS:PORT");
const QCommandLineOption AccessLogOption("access-log", "Write one line for each request.", "FILE");
const QCommandLineOption AllButNewestOption("all-but-newest",
                                            "For token revoke: keep the owner's newest token.");
const QCommandLineOption FaultOption("fault",
                                     "Misbehave after AFTER requests, for COUNT requests: http=N, status=N, "
                                     "delay=MS, stall, cut, garbage, empty, drop (stored, reply cut). "
                                     "May be repeated; the first one that applies wins.",
                                     "WHAT[:AFTER[:COUNT]]");

int portOf(const QString& text, const char* option)
{
    bool ok = false;
    const int port = text.toUShort(&ok);
    if (!ok) {
        throw std::runtime_error(std::string(option) + " takes a number from 0 to 65535");
    }
    return port;
}

// "ADDRESS:PORT", the address of IPv6 in brackets.
Place placeOf(QString text)
{
    const int colon = text.lastIndexOf(':');
    if (colon <= 0) {
        throw std::runtime_error("--admin takes ADDRESS:PORT");
    }
    const int port = portOf(text.mid(colon + 1), "the port of --admin");
    text.truncate(colon);
    const bool isBracketed = text.startsWith('[') && text.endsWith(']');
    return {(isBracketed ? text.mid(1, text.size() - 2) : text).toStdString(), port};
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
    options.place = {parser.value(HostOption).toStdString(), portOf(parser.value(PortOption), "--port")};
    options.token = parser.value(TokenOption).toStdString();
    if (parser.isSet(TokenOption) && options.token.empty()) {
        throw std::runtime_error("--token must not be empty");
    }
    options.requireToken = parser.isSet(RequireTokenOption);
    readTls(parser, options);
    options.ledger = parser.value(LedgerOption).toStdString();
    if (options.ledger.empty()) {
        throw std::runtime_error("--ledger must not be empty");
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
    return options;
}
} // namespace

Options parseOptions(const QCoreApplication& application)
{
    QCommandLineParser parser;
    parser.setApplicationDescription("Reference ingest server for flight records.");
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    parser.addOptions({HostOption, PortOption, TokenOption, RequireTokenOption, TlsCertOption, TlsKeyOption,
                       LedgerOption, MemoryOption, MaxBodyOption, MaxConnectionsOption, AdminOption,
                       AccessLogOption, AllButNewestOption, FaultOption});
    parser.addPositionalArgument(
        "token", "Instead of serving: token add NAME, token list, token revoke NAME.", "[token ...]");
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
