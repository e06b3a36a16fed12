// SPDX-License-Identifier: MIT
#include "command/CommandLine.h"
#include "command/Commands.h"
#include "command/SignIn.h"
#include "upload/Uploader.h"
#include "words/Latin1.h"

#include <KvAlgorthm.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonArray>
#include <QtCore/QTimer>

namespace
{
constexpr int LookInterval = 500; // milliseconds
constexpr int RejectionsToEnd = 2;

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

/// Uploads what waits in a project, and always ends: when nothing waits, when the server rejects the token,
/// or when nothing has been accepted for a while.
class Upload
{
public:
    Upload(const Project& project, CommandLine& line, int interval, int patience)
        : m_console(line.console())
        , m_easyFly(line.isSet(QStringLiteral("easy-fly")))
        , m_patience(patience)
        , m_counter(project, m_easyFly ? MissionFormat::video() : MissionFormat::flight())
        , m_uploader(std::make_unique<Uploader>(line.log()))
    {
        m_uploader->setInterval(interval);
        m_uploader->setEasyFly(m_easyFly);
        Uploader* const uploader = m_uploader.get();
        QObject::connect(uploader, &Uploader::ready, uploader, [this] {
            m_sinceAccepted.start();
            m_lookTimer.start(LookInterval);
        });
        QObject::connect(uploader, &Uploader::failed, uploader,
                         [this](const RequestFailure& failure) { noteFailure(failure); });
        QObject::connect(uploader, &Uploader::rearmed, uploader,
                         [this](const QString& text) { m_console.note(text); });
        QObject::connect(uploader, &Uploader::unmarkable, uploader, [this](const QString& file) {
            m_reasons.append(QStringLiteral("accepted rows cannot be marked in %1").arg(file));
            m_console.note(m_reasons.last());
            m_sinceAccepted.start(); // the rest that follows is not the fault of the next file
        });
        QObject::connect(&m_lookTimer, &QTimer::timeout, &m_lookTimer, [this] { look(); });
    }

    /// \return whether nothing waits any more
    bool run()
    {
        m_sinceAccepted.start();
        countAll();
        m_console.progress(QStringLiteral("upload"), 0, m_backlog.waiting());
        if (m_backlog.sendable() > 0) {
            m_uploader->start();
            m_uploader->look(m_backlog, isNetworkThere());
            QCoreApplication::exec();
        }
        m_uploader.reset(); // waits for what the operator is doing
        countAll();
        return m_backlog.rows.isEmpty() && m_backlog.unreadable.isEmpty();
    }

    void print(bool done, qint64 videoRows)
    {
        QJsonArray remaining;
        for (const WaitingRows& some : qAsConst(m_backlog.rows)) {
            const QString obstacle = words(some.obstacle, m_easyFly);
            remaining.append(QJsonObject{{"mission"_l1, some.mission},
                                         {"kind"_l1, some.kind},
                                         {"rows"_l1, some.rows},
                                         {"file"_l1, some.file},
                                         {"obstacle"_l1, obstacle}});
            m_console.line(QStringLiteral("mission %1: %2 %3 rows wait in %4%5")
                               .arg(some.mission, QString::number(some.rows), some.kind, some.file,
                                    obstacle.isEmpty() ? obstacle : ": "_l1 + obstacle));
        }
        for (const QString& file : qAsConst(m_backlog.unreadable)) {
            m_console.line(QStringLiteral("%1 cannot be read: locked, or no mission file").arg(file));
        }
        const QString why = done ? QString() : reason();
        m_console.document({{"ok"_l1, done},
                            {"accepted"_l1, m_backlog.settled},
                            {"waiting"_l1, m_backlog.waiting()},
                            {"remaining"_l1, remaining},
                            {"unreadable"_l1, QJsonArray::fromStringList(m_backlog.unreadable)},
                            {"reason"_l1, why},
                            {"video_rows_waiting"_l1, videoRows}});
        if (done) {
            m_console.line(
                QStringLiteral("%1 rows accepted and marked, nothing waits").arg(m_backlog.settled));
        } else {
            m_console.error(QStringLiteral("%1 rows accepted, %2 rows wait: %3")
                                .arg(m_backlog.settled)
                                .arg(m_backlog.waiting())
                                .arg(why));
        }
        if (!m_easyFly && videoRows > 0) {
            m_console.line(
                QStringLiteral("%1 rows of video missions wait: upload --easy-fly").arg(videoRows));
        }
    }

private:
    static bool isNetworkThere()
    {
        return CKvControl::GetInstance(false, EPlaneType::Multirotor)->IsNetWorkConnected();
    }

    void countAll()
    {
        m_counter.countAll();
        m_backlog = m_counter.backlog();
    }

    void look()
    {
        const qint64 settled = m_backlog.settled;
        m_counter.recount();
        m_backlog = m_counter.backlog();
        if (isOver()) {
            countAll(); // only a full count knows what has been recorded meanwhile
        }
        if (m_backlog.settled != settled) {
            m_sinceAccepted.start();
            m_rejections = 0;
            m_failure.reset();
            m_console.progress(QStringLiteral("upload"), m_backlog.settled,
                               m_backlog.settled + m_backlog.waiting());
        }
        if (isOver()) {
            QCoreApplication::quit();
        } else {
            m_uploader->look(m_backlog, isNetworkThere());
        }
    }

    [[nodiscard]] bool isOver() const
    {
        return m_backlog.sendable() == 0 || m_rejections >= RejectionsToEnd ||
               m_sinceAccepted.hasExpired(m_patience - 1);
    }

    void noteFailure(const RequestFailure& failure)
    {
        if (!m_failure || m_failure->words != failure.words) {
            m_console.note(failure.words);
        }
        m_failure = failure;
        m_rejections += failure.tokenRejected ? 1 : 0;
    }

    [[nodiscard]] QString reason() const
    {
        QStringList reasons = m_reasons;
        if (m_failure) {
            reasons.append(m_failure->words);
        }
        if (!isNetworkThere()) {
            reasons.append(QStringLiteral("there is no network connection"));
        }
        if (reasons.isEmpty() && m_backlog.sendable() > 0) {
            reasons.append(QStringLiteral("nothing was accepted for %1 s").arg(m_patience / 1000));
        }
        if (m_backlog.waiting() > m_backlog.sendable()) {
            reasons.append(QStringLiteral("some rows cannot be sent"));
        }
        if (!m_backlog.unreadable.isEmpty()) {
            reasons.append(QStringLiteral("%1 files cannot be read").arg(m_backlog.unreadable.size()));
        }
        return reasons.join(QStringLiteral("; "));
    }

    Console& m_console;
    const bool m_easyFly;
    const qint64 m_patience; ///< milliseconds without an accepted row
    BacklogCounter m_counter;
    Backlog m_backlog;
    std::unique_ptr<Uploader> m_uploader;
    QTimer m_lookTimer;
    QElapsedTimer m_sinceAccepted;
    int m_rejections = 0; ///< of the token, since a row was accepted
    std::optional<RequestFailure> m_failure;
    QStringList m_reasons;
};

} // namespace

int runUpload(const QStringList& arguments)
{
    CommandLine line(
        QStringLiteral("Uploads all that waits in a project."),
        {{"server"_l1, "Address of the server, http or https."_l1, "URL"_l1},
         {"token"_l1, "Token of the user; better given in the environment variable KV_TOKEN."_l1, "T"_l1},
         {"interval"_l1, "Time between a failure and the next try (default 3000)."_l1, "MS"_l1, "3000"_l1},
         {"patience"_l1, "Give up after that long without an accepted row (default 60)."_l1, "S"_l1, "60"_l1},
         {"easy-fly"_l1, "Upload the video missions instead of the flight missions."_l1}});
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    const auto interval = line.number(QStringLiteral("interval"), 10, 3600000);
    const auto patience = line.number(QStringLiteral("patience"), 1, 86400);
    if (!interval || !patience ||
        !signIn(line.value(QStringLiteral("server")), line.value(QStringLiteral("token")))) {
        return BadUsage;
    }
    const Project project = Project::open(line.project());
    Upload upload(project, line, int(*interval), int(*patience) * 1000);
    const bool done = upload.run();
    BacklogCounter videos(project, MissionFormat::video());
    videos.countAll();
    upload.print(done, videos.backlog().waiting());
    return done ? Done : NotDone;
}
