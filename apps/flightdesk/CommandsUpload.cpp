// SPDX-License-Identifier: MIT
#include "CommandLine.h"
#include "Commands.h"
#include "UploadSession.h"

#include <KvAlgorthm.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonArray>

namespace
{
bool signIn(const CommandLine& line)
{
    SKvUserInfo user;
    user.m_strToken = line.isSet(QStringLiteral("token")) ? line.value(QStringLiteral("token"))
                                                          : qEnvironmentVariable("KV_TOKEN");
    if (user.m_strToken.isEmpty()) {
        printUsageError(QStringLiteral("no token: give --token or set KV_TOKEN"));
        return false;
    }
    Console::hide(user.m_strToken);
    if (!SetCurUserInfo(user)) {
        printUsageError(QStringLiteral("the token cannot be sent in a request header"));
        return false;
    }
    const QString server = line.value(QStringLiteral("server"));
    if (!SetServerIP(server.toUtf8())) {
        printUsageError(QStringLiteral("--server takes an absolute http or https address"));
        return false;
    }
    return true;
}

QString words(Obstacle obstacle, bool easyFly)
{
    switch (obstacle) {
    case Obstacle::NoMissionRow:
        return QStringLiteral("the mission has no %1 row, so its rows are never sent")
            .arg(easyFly ? FlightVideoTableName : FlightMissionTableName);
    case Obstacle::NotMarkable:
        return QStringLiteral("the file is read-only, so accepted rows cannot be marked");
    case Obstacle::None:
        break;
    }
    return {};
}

QJsonObject describe(const WaitingRows& waiting, const QString& obstacle)
{
    return {{"mission", waiting.mission},
            {"kind", waiting.kind},
            {"rows", waiting.rows},
            {"file", waiting.file},
            {"obstacle", obstacle}};
}

void printResult(const UploadResult& result, bool easyFly, qint64 videoRows, Console& console)
{
    QJsonArray waiting;
    qint64 rows = 0;
    for (const WaitingRows& some : result.waiting) {
        const QString obstacle = words(some.obstacle, easyFly);
        waiting.append(describe(some, obstacle));
        rows += some.rows;
        console.line(QStringLiteral("mission %1: %2 %3 rows wait in %4%5")
                         .arg(some.mission, QString::number(some.rows), some.kind, some.file,
                              obstacle.isEmpty() ? obstacle : ": " + obstacle));
    }
    for (const QString& file : result.unreadable) {
        console.line(QStringLiteral("%1 cannot be read: locked, or no mission file").arg(file));
    }
    console.document({{"ok", result.done},
                      {"accepted", result.accepted},
                      {"waiting", rows},
                      {"remaining", waiting},
                      {"unreadable", QJsonArray::fromStringList(result.unreadable)},
                      {"reason", result.reason},
                      {"video_rows_waiting", videoRows}});
    if (result.done) {
        console.line(QStringLiteral("%1 rows accepted and marked, nothing waits").arg(result.accepted));
    } else {
        console.error(QStringLiteral("%1 rows accepted, %2 rows wait: %3")
                          .arg(result.accepted)
                          .arg(rows)
                          .arg(result.reason));
    }
    if (!easyFly && videoRows > 0) {
        console.line(QStringLiteral("%1 rows of video missions wait: upload --easy-fly").arg(videoRows));
    }
}

qint64 waitingVideoRows(const Project& project)
{
    Backlog videos(project, MissionFormat::video());
    videos.countAll();
    return videos.waiting();
}

int upload(const CommandLine& line, const Project& project, const UploadSession::Options& options)
{
    Console console(line.json());
    UploadSession session(project, options, line.log());
    QObject::connect(&session, &UploadSession::progress, [&console](qint64 accepted, qint64 all) {
        console.progress(QStringLiteral("upload"), accepted, all);
    });
    QObject::connect(&session, &UploadSession::note, [&console](const QString& text) { console.note(text); });
    QObject::connect(&session, &UploadSession::finished, &QCoreApplication::quit);
    session.start();
    QCoreApplication::exec();
    printResult(session.result(), options.easyFly, waitingVideoRows(project), console);
    return session.result().done ? Done : NotDone;
}
} // namespace

int runUpload(const QStringList& arguments)
{
    CommandLine line(
        QStringLiteral("Uploads all that waits in a project."),
        {{"server", "Address of the server, http or https.", "URL"},
         {"token", "Token of the user; better given in the environment variable KV_TOKEN.", "T"},
         {"interval", "Time between a failure and the next try (default 3000).", "MS", "3000"},
         {"patience", "Give up after that long without an accepted row (default 60).", "S", "60"},
         {"easy-fly", "Upload the video missions instead of the flight missions."}});
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    const auto interval = line.number(QStringLiteral("interval"), 10, 3600000);
    const auto patience = line.number(QStringLiteral("patience"), 1, 86400);
    if (!interval || !patience || !signIn(line)) {
        return BadUsage;
    }
    QString error;
    const auto project = Project::open(line.project(), &error);
    if (!project) {
        Console(line.json()).error(error);
        return NotDone;
    }
    Logger::instance().setLoggingLevel(Level::Info); // the reasons of failures are told at this level
    return upload(line, *project,
                  {int(*interval), int(*patience) * 1000, line.isSet(QStringLiteral("easy-fly"))});
}
