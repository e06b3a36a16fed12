// SPDX-License-Identifier: MIT
#pragma once

#include "flightserver/ServerProcess.h"
#include "TestProject.h"

const QString Token = QStringLiteral("t0k3n-of-the-operator");

/// One of the project's programs as a child process, ended with the object.
struct Program : QProcess {
    Program(const QString& name, const QStringList& arguments)
    {
        start(QCoreApplication::applicationDirPath() + u'/' + name, arguments);
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
    QString ledger = path("ledger.db"_l1);
    QStringList command(const QString& name, const QStringList& more) const
    {
        return QStringList{name, "--project"_l1, path("project"_l1)} + more;
    }
    QStringList uploadCommand(const QString& url) const
    {
        return command("upload"_l1, {"--server"_l1, url, "--token"_l1, Token, "--interval"_l1, "100"_l1});
    }
    ProgramResult desk(const QString& name, const QStringList& more) const
    {
        return runProgram("flightdesk"_l1, command(name, more));
    }
    bool simulate(int missions, int seed = 3) const
    {
        return desk("simulate"_l1, {"--missions"_l1, QString::number(missions), "--minutes"_l1, "1"_l1,
                                    "--seed"_l1, QString::number(seed)})
                   .exitCode == 0;
    }
    ProgramResult upload(const QString& url, const QStringList& more = {}) const
    {
        return runProgram("flightdesk"_l1, uploadCommand(url) + more);
    }
    /// Rows of all files, as "table/id", of which the condition holds; a row of the ledger is "received".
    QSet<QString> rows(const QString& condition = "1"_l1) const
    {
        QSet<QString> found;
        for (const QString& file : missionFiles()) {
            CKvDataBase database(file);
            if (!database.open()) {
                continue; // it is just being made
            }
            database.exec("ATTACH '"_l1 + ledger + "' AS ledger"_l1);
            for (const QString& table : Tables) {
                const QString sql = "SELECT '%1/' || id FROM %1 LEFT JOIN (SELECT id AS received FROM "
                                    "ledger.row WHERE kind = '%1') ON received = id WHERE %2"_l1;
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
        QVERIFY2(uploaded.exitCode == 0, uploaded.err.constData());
        const ProgramResult status = desk("status"_l1, {"--ledger"_l1, ledger});
        QVERIFY2(status.exitCode == 0, (status.out + status.err).constData());
        QVERIFY(status.out.trimmed().endsWith("rows accepted and marked"));
    }
};
