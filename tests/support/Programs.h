// SPDX-License-Identifier: MIT
#pragma once

#include "flightserver/ServerProcess.h"
#include "TestProject.h"

const QString Token = QStringLiteral("t0k3n-of-the-operator");

/// One of the project's programs as a child process, ended with the object.
struct Program : QProcess {
    Program(const QString& name, const QStringList& arguments)
    {
        start(QCoreApplication::applicationDirPath() + '/' + name, arguments);
    }
    ~Program() override
    {
        terminate();
        waitForFinished(10000); // killed if it still runs then
    }
};

using IngestServer = ServerProcess;

/// How a program ended, and what it said.
struct ProgramResult {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

inline ProgramResult runProgram(const QString& name, const QStringList& arguments)
{
    Program program(name, arguments);
    const bool ended = program.waitForFinished(-1) && program.exitStatus() == QProcess::NormalExit;
    return {ended ? program.exitCode() : -1, program.readAllStandardOutput(), program.readAllStandardError()};
}

/// A project folder, flown and uploaded with the real programs.
struct FlownProject : TestProject {
    QString ledger = path("ledger.db");
    QStringList command(const QString& name, const QStringList& more) const
    {
        return QStringList{name, "--project", path("project")} + more;
    }
    QStringList uploadCommand(const QString& url) const
    {
        return command("upload", {"--server", url, "--token", Token, "--interval", "100"});
    }
    ProgramResult desk(const QString& name, const QStringList& more) const
    {
        return runProgram("flightdesk", command(name, more));
    }
    bool simulate(int missions, int seed = 3) const
    {
        return desk("simulate", {"--missions", QString::number(missions), "--minutes", "1", "--seed",
                                 QString::number(seed)})
                   .exitCode == 0;
    }
    ProgramResult upload(const QString& url, const QStringList& more = {}) const
    {
        return runProgram("flightdesk", uploadCommand(url) + more);
    }
    /// Rows of all files, as "table/id", of which the condition holds; a row of the ledger is "received".
    QSet<QString> rows(const QString& condition = "1") const
    {
        QSet<QString> found;
        for (const QString& file : missionFiles()) {
            CKvDataBase database(file);
            if (!database.open()) {
                continue; // it is just being made
            }
            database.exec("ATTACH '" + ledger + "' AS ledger");
            for (const QString& table : Tables) {
                const QString sql = "SELECT '%1/' || id FROM %1 LEFT JOIN (SELECT id AS received FROM "
                                    "ledger.row WHERE kind = '%1') ON received = id WHERE %2";
                QSqlQuery query = database.exec(sql.arg(table, condition));
                while (query.next()) {
                    found.insert(query.value(0).toString());
                }
            }
        }
        return found;
    }
    /// Uploads everything and compares it with the server's ledger.
    void uploadAll(const QString& url, const QStringList& more = {}) const
    {
        const ProgramResult uploaded = upload(url, more);
        QVERIFY2(uploaded.exitCode == 0, uploaded.err);
        const ProgramResult status = desk("status", {"--ledger", ledger});
        QVERIFY2(status.exitCode == 0, status.out + status.err);
        QVERIFY(status.out.trimmed().endsWith("rows accepted and marked"));
    }
};
