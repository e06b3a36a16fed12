// SPDX-License-Identifier: MIT
#include "command/CommandLine.h"
#include "command/Commands.h"
#include "command/SignIn.h"
#include "project/ProjectLock.h"
#include "upload/Uploader.h"
#include "words/Failure.h"
#include "words/Latin1.h"

#include <KvAlgorthm.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonArray>
#include <QtCore/QSet>
#include <QtCore/QTimer>

#include <algorithm>

namespace
{
constexpr int LookInterval = 500; // milliseconds
constexpr int RejectionsToEnd = 2;

/// Rows of a mission in a file, of all kinds.
struct WaitingMission {
    WaitingRows first;
    qint64 rows = 0;
};

QVector<WaitingMission> missionsOf(const Backlog& backlog)
{
    QVector<WaitingMission> missions;
    for (const WaitingRows& rows : backlog.rows) {
        const auto known =
            std::find_if(missions.begin(), missions.end(), [&rows](const WaitingMission& mission) {
                return mission.first.file == rows.file && mission.first.mission == rows.mission;
            });
        if (known == missions.end()) {
            missions.append({rows, rows.rows});
        } else {
            known->rows += rows.rows;
        }
    }
    return missions;
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
        m_uploader->setPace(RetryPace::growing(interval));
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
        QObject::connect(
            uploader, &Uploader::unmarkable, uploader, [this](const QString& file, const QString& words) {
                m_reasons.append(words);
                m_unmarkable.insert(file);
                m_console.note(words);
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

    /// The reason first: a project may have many flights that wait.
    void print(bool done, qint64 videoRows)
    {
        const QString why = done ? QString() : reason();
        if (done) {
            m_console.line(
                QStringLiteral("%1 rows accepted and marked, nothing waits").arg(m_backlog.settled));
        } else {
            m_console.error(why);
            m_console.line(QStringLiteral("%1 rows accepted, %2 rows wait%3")
                               .arg(m_backlog.settled)
                               .arg(m_backlog.waiting())
                               .arg(m_backlog.rows.isEmpty() ? QString() : QStringLiteral(":")));
            printWaiting();
        }
        if (!m_easyFly && videoRows > 0) {
            m_console.line(
                QStringLiteral("%1 rows of video missions wait: upload --easy-fly").arg(videoRows));
        }
        QJsonArray remaining;
        for (const WaitingRows& some : qAsConst(m_backlog.rows)) {
            remaining.append(QJsonObject{{"mission"_l1, some.mission},
                                         {"kind"_l1, some.kind},
                                         {"rows"_l1, some.rows},
                                         {"file"_l1, some.file},
                                         {"obstacle"_l1, obstacleWords(some.obstacle)}});
        }
        m_console.document({{"ok"_l1, done},
                            {"accepted"_l1, m_backlog.settled},
                            {"waiting"_l1, m_backlog.waiting()},
                            {"remaining"_l1, remaining},
                            {"unreadable"_l1, QJsonArray::fromStringList(m_backlog.unreadable)},
                            {"reason"_l1, why},
                            {"video_rows_waiting"_l1, videoRows}});
    }

private:
    void printWaiting()
    {
        constexpr int MostFlights = 10;
        const QVector<WaitingMission> missions = missionsOf(m_backlog);
        for (const WaitingMission& mission : missions.mid(0, MostFlights)) {
            const QString obstacle = obstacleWords(mission.first.obstacle);
            m_console.line(QStringLiteral("  %1 rows of mission %2 in %3%4")
                               .arg(QString::number(mission.rows), mission.first.mission, mission.first.file,
                                    obstacle.isEmpty() ? obstacle : ": "_l1 + obstacle));
        }
        if (missions.size() > MostFlights) {
            m_console.line(QStringLiteral("  and %1 missions more").arg(missions.size() - MostFlights));
        }
        for (const QString& file : m_backlog.unreadable.mid(0, MostFlights)) {
            m_console.line(QStringLiteral("  %1 cannot be read: locked, or no mission file").arg(file));
        }
    }

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
            return;
        }
        m_uploader->look(m_backlog, isNetworkThere());
        tellTrouble();
    }

    /// How long it is still tried.
    void tellTrouble()
    {
        const auto& trouble = m_uploader->trouble();
        const QString what = !isNetworkThere() ? troubleHeadline(Trouble::NoNetwork)
                             : trouble         ? trouble->failure.headline
                                               : QString();
        if (!what.isEmpty()) {
            const int next = m_uploader->secondsToTry();
            m_console.status(
                QStringLiteral("%1. %2, giving up in %3 s")
                    .arg(what,
                         next > 0 ? QStringLiteral("Next try in %1 s").arg(next)
                                  : QStringLiteral("Trying again"),
                         QString::number((m_patience - m_sinceAccepted.elapsed() + 999) / 1000)));
        }
    }

    [[nodiscard]] bool isOver() const
    {
        return sendable() == 0 || m_rejections >= RejectionsToEnd ||
               m_sinceAccepted.hasExpired(m_patience - 1);
    }

    /// A file that takes no marks would keep the rest waiting until the patience ends.
    qint64 sendable() const
    {
        qint64 rows = 0;
        for (const WaitingRows& some : m_backlog.rows) {
            rows += some.obstacle == Obstacle::None && !m_unmarkable.contains(some.file) ? some.rows : 0;
        }
        return rows;
    }

    /// A token that is rejected is tried once more at once, by another operator: the server may have erred.
    void noteFailure(const RequestFailure& failure)
    {
        if (!m_failure || m_failure->words != failure.words) {
            m_console.note(failure.words);
        }
        m_failure = failure;
        if (!failure.tokenRejected) {
            return;
        }
        ++m_rejections;
        if (m_rejections < RejectionsToEnd) {
            m_uploader->start();
            m_uploader->look(m_backlog, isNetworkThere());
        } else {
            QTimer::singleShot(0, m_uploader.get(), [this] { look(); });
        }
    }

    [[nodiscard]] QString reason() const
    {
        QStringList reasons = m_reasons;
        if (!isNetworkThere()) {
            reasons.append(troubleWords(Trouble::NoNetwork));
        } else if (m_failure) {
            reasons.append(m_failure->words);
        }
        if (reasons.isEmpty() && sendable() > 0) {
            reasons.append(QStringLiteral("Nothing was accepted for %1 s.").arg(m_patience / 1000));
        }
        for (const WaitingRows& some : m_backlog.rows) {
            const QString obstacle = obstacleWords(some.obstacle);
            if (!obstacle.isEmpty()) {
                const QString words = troubleWords(Trouble::NotSendable, {obstacle});
                reasons.append(reasons.contains(words) ? QString() : words);
            }
        }
        reasons.removeAll({});
        if (!m_backlog.unreadable.isEmpty()) {
            reasons.append(QStringLiteral("%1 files cannot be read.").arg(m_backlog.unreadable.size()));
        }
        return reasons.join(QLatin1Char(' '));
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
    QSet<QString> m_unmarkable; ///< files
};

} // namespace

int runUpload(const QStringList& arguments)
{
    CommandLine line(
        QStringLiteral("Uploads all that waits in a project."),
        {{"server"_l1, "Address of the server, http or https."_l1, "URL"_l1},
         {"token"_l1, "Token of the user; better given in the environment variable KV_TOKEN."_l1, "T"_l1},
         {"interval"_l1,
          "Time from the first failure to the next try (default 3000), drawn at random around it and longer "
          "with "
          "each failure that follows, up to a minute."_l1,
          "MS"_l1, "3000"_l1},
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
    ProjectLock lock(project, ProjectLock::Use::Uploading);
    const QString inUse = project.readOnlyWords().isEmpty() ? lock.take() : QString();
    if (!inUse.isEmpty()) {
        throw Failure(inUse);
    }
    Upload upload(project, line, int(*interval), int(*patience) * 1000);
    const bool done = upload.run();
    BacklogCounter videos(project, MissionFormat::video());
    videos.countAll();
    upload.print(done, videos.backlog().waiting());
    return done ? Done : NotDone;
}
