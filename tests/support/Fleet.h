// SPDX-License-Identifier: MIT
#pragma once

#include "flightserver/PgSchema.h"
#include "flightserver/ServerProcess.h"
#include "Postgres.h"

#include <QtCore/QSet>

#include <array>

/// Two databases that follow each other, and two servers on them.
struct Fleet {
    explicit Fleet(const QStringList& options = {"--token"_l1, "secret"_l1})
    {
        primary->followSynchronously();
        initLedger(primary->uri().toStdString());
        const QStringList arguments = QStringList{"--ledger"_l1, uri()} + options;
        servers = {std::make_unique<ServerProcess>(arguments), std::make_unique<ServerProcess>(arguments)};
    }
    /// Both hosts, so that whichever can be written is found.
    QString uri() const
    {
        return QStringLiteral("postgresql://fleet@%1,%2/flights?target_session_attrs=read-write")
            .arg(hosts.first(), hosts.last());
    }
    /// What a keeper does when the primary does not answer: it makes sure that it never will again, promotes
    /// the standby and lets it go on alone.
    void failOver()
    {
        primary->kill(SIGKILL);
        standby->followSynchronously("");
        standby->promote();
        std::swap(primary, standby);
    }
    QSet<QByteArray> ids() const
    {
        const PgRows rows = primary->select("SELECT id FROM record");
        QSet<QByteArray> found;
        for (int row = 0; row < rows.count(); ++row) {
            found.insert(QByteArray::fromStdString(rows.text(row, 0)));
        }
        return found;
    }

    std::unique_ptr<Postgres> primary = std::make_unique<Postgres>();
    std::unique_ptr<Postgres> standby = std::make_unique<Postgres>(primary.get());
    const QStringList hosts{primary->place(), standby->place()};
    std::array<std::unique_ptr<ServerProcess>, 2> servers;
};
