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
const QCommandLineOption TokenOption("token", "Refuse requests whose \"token\" header differs.", "TOKEN");
const QCommandLineOption TlsCertOption("tls-cert", "Serve https with this certificate (PEM).", "FILE");
const QCommandLineOption TlsKeyOption("tls-key", "Private key of the certificate (PEM).", "FILE");
const QCommandLineOption LedgerOption("ledger", "SQLite file that keeps what was received (default: memory).",
                                      "FILE", ":memory:");
const QCommandLineOption FaultOption("fault",
                                     "Misbehave after AFTER requests, for COUNT requests: http=N, status=N, "
                                     "delay=MS, stall, cut, garbage, empty, drop (stored, reply cut). "
                                     "May be repeated; the first one that applies wins.",
                                     "WHAT[:AFTER[:COUNT]]");

Options readValues(const QCommandLineParser& parser)
{
    Options options;
    options.host = parser.value(HostOption).toStdString();
    bool ok = false;
    options.port = parser.value(PortOption).toUShort(&ok);
    if (!ok) {
        throw std::runtime_error("--port takes a number from 0 to 65535");
    }
    if (parser.isSet(TokenOption)) {
        options.token = parser.value(TokenOption).toStdString();
        if (options.token->empty()) {
            throw std::runtime_error("--token must not be empty");
        }
    }
    options.tlsCertificate = parser.value(TlsCertOption).toStdString();
    options.tlsKey = parser.value(TlsKeyOption).toStdString();
    if (options.tlsCertificate.empty() != options.tlsKey.empty()) {
        throw std::runtime_error("--tls-cert and --tls-key go together");
    }
    options.ledger = parser.value(LedgerOption).toStdString();
    if (options.ledger.empty()) {
        throw std::runtime_error("--ledger must not be empty");
    }
    for (const QString& fault : parser.values(FaultOption)) {
        options.faults.push_back(parseFault(fault));
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
    parser.addOptions(
        {HostOption, PortOption, TokenOption, TlsCertOption, TlsKeyOption, LedgerOption, FaultOption});
    if (!parser.parse(application.arguments())) {
        throw std::runtime_error(parser.errorText().toStdString());
    }
    if (parser.isSet(help)) {
        parser.showHelp();
    }
    if (parser.isSet(version)) {
        parser.showVersion();
    }
    const QStringList extra = parser.positionalArguments();
    if (!extra.isEmpty()) {
        throw std::runtime_error("unexpected argument: " + extra.first().toStdString());
    }
    return readValues(parser);
}
