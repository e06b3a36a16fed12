// SPDX-License-Identifier: MIT
#include "command/Columns.h"
#include "command/CommandLine.h"
#include "command/Commands.h"
#include "project/MissionFile.h"
#include "project/Project.h"
#include "words/Latin1.h"
#include "words/Trouble.h"

#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>
#include <QtCore/QLocale>

namespace
{
QString grouped(qint64 number)
{
    return QLocale(QLocale::English).toString(number);
}

QString counted(qint64 number, const char* things)
{
    return QStringLiteral("%1 %2%3").arg(grouped(number), QLatin1String(things),
                                         number == 1 ? QString() : QStringLiteral("s"));
}

/// Adds up what the files of a project hold, and prints a line for each flight.
class StatusReport
{
public:
    /// \param details  print each flight kind by kind
    StatusReport(Console& console, QString ledger, bool details)
        : m_console(console), m_ledger(std::move(ledger)), m_details(details)
    {
    }

    void add(const QString& path)
    {
        MissionFile file(path);
        if (withLedger()) {
            file.attachLedger(m_ledger);
        }
        const QVector<MissionCount> missions = file.count(withLedger());
        if (!file.isReadable()) {
            m_console.error(QStringLiteral("%1 cannot be read: locked, or no mission file").arg(path));
            m_unreadable.append(path);
            return;
        }
        for (const MissionCount& mission : missions) {
            add(path, mission);
        }
    }

    int finish()
    {
        const QString lacking = shortfall();
        const bool complete = lacking.isEmpty();
        if (m_details) {
            printRow(m_total, QStringLiteral("all"));
        } else {
            m_lines.print(m_console);
            m_console.line(
                QStringLiteral("%1, %2, %3%4")
                    .arg(counted(m_missions.size(), "flight"), counted(m_total.recorded, "record"),
                         uploadWords(m_total),
                         m_incomplete > 0 ? QStringLiteral(", %1 incomplete").arg(m_incomplete) : QString()));
        }
        m_console.document({{"ok"_l1, complete},
                            {"missions"_l1, m_missions},
                            {"total"_l1, describe(m_total)},
                            {"unreadable"_l1, m_unreadable}});
        if (withLedger()) {
            for (const QString& missing : m_missing) {
                m_console.line(missing);
            }
            m_console.line(complete ? QStringLiteral("all %1 rows accepted and marked").arg(m_total.recorded)
                                    : lacking);
        }
        return complete ? Done : NotDone;
    }

private:
    [[nodiscard]] bool withLedger() const { return !m_ledger.isEmpty(); }

    QString uploadWords(const KindCount& count) const
    {
        const QString ofServer =
            withLedger() ? QStringLiteral("%1 accepted, ").arg(grouped(count.accepted)) : QString();
        return ofServer + (count.waiting > 0 ? QStringLiteral("%1 wait").arg(grouped(count.waiting))
                                             : QStringLiteral("uploaded"));
    }

    void print(const QString& path, const MissionCount& mission)
    {
        KindCount sum;
        for (const KindCount& count : mission.kinds) {
            sum += count;
        }
        const QString name = mission.hasRow ? mission.name : QStringLiteral("(no mission row)");
        const QString incomplete = mission.incompleteWords();
        if (!m_details) {
            QStringList lacking{incomplete, mission.cutWords()};
            lacking.removeAll({});
            m_lines.add({mission.id.right(8), mission.begun().toString(QStringLiteral("yyyy-MM-dd hh:mm")),
                         mission.seconds ? durationWords(*mission.seconds) : QString(), name,
                         counted(sum.recorded, "record"), uploadWords(sum),
                         lacking.join(QStringLiteral(", "))});
            return;
        }
        m_console.line(QStringLiteral("%1  %2  %3").arg(mission.id, name, path));
        if (!incomplete.isEmpty()) {
            m_console.line(QStringLiteral("  ") + incomplete);
        }
        if (mission.breakpoint) {
            m_console.line(QStringLiteral("  breakpoint: ") + mission.breakpoint->text());
        }
        printRow({}, "recorded"_l1, "accepted"_l1, "marked"_l1, "waiting"_l1);
        for (const KindCount& count : mission.kinds) {
            printRow(count, count.kind);
        }
    }

    void add(const QString& path, const MissionCount& mission)
    {
        print(path, mission);
        m_incomplete += mission.isIncomplete ? 1 : 0;
        QJsonArray kinds;
        for (const KindCount& count : mission.kinds) {
            m_total += count;
            if (withLedger() && (count.accepted < count.recorded || count.marked < count.recorded)) {
                m_missing.append(QStringLiteral("mission %1: of %2 %3 rows %4 accepted, %5 marked")
                                     .arg(mission.id)
                                     .arg(count.recorded)
                                     .arg(count.kind)
                                     .arg(count.accepted)
                                     .arg(count.marked));
            }
            QJsonObject kind = describe(count);
            kind.insert("kind"_l1, count.kind);
            kinds.append(kind);
        }
        QJsonObject details{{"id"_l1, mission.id},
                            {"name"_l1, mission.name},
                            {"has_row"_l1, mission.hasRow},
                            {"file"_l1, path},
                            {"kinds"_l1, kinds}};
        if (mission.breakpoint) {
            details.insert("breakpoint"_l1, mission.breakpoint->json());
        }
        if (mission.seconds) {
            details.insert("seconds"_l1, *mission.seconds);
        }
        if (mission.isIncomplete) {
            details.insert("incomplete"_l1, mission.incompleteWords());
            details.insert("whole_seconds"_l1, mission.wholeSeconds);
        }
        if (mission.truncatedBytes > 0) {
            details.insert("log_truncated_bytes"_l1, mission.truncatedBytes);
        }
        if (mission.skippedBytes > 0) {
            details.insert("log_skipped_bytes"_l1, mission.skippedBytes);
        }
        m_missions.append(details);
    }

    [[nodiscard]] QJsonObject describe(const KindCount& count) const
    {
        QJsonObject object{
            {"recorded"_l1, count.recorded}, {"marked"_l1, count.marked}, {"waiting"_l1, count.waiting}};
        if (withLedger()) {
            object.insert("accepted"_l1, count.accepted);
        }
        return object;
    }

    void printRow(const QString& title, const QString& recorded, const QString& accepted,
                  const QString& marked, const QString& waiting)
    {
        constexpr int Width = 10;
        m_console.line(QStringLiteral("  %1%2%3%4%5")
                           .arg(title, -26)
                           .arg(recorded, Width)
                           .arg(withLedger() ? accepted.rightJustified(Width) : QString())
                           .arg(marked, Width)
                           .arg(waiting, Width));
    }

    void printRow(const KindCount& count, const QString& title)
    {
        printRow(title, QString::number(count.recorded), QString::number(count.accepted),
                 QString::number(count.marked), QString::number(count.waiting));
    }

    /// What the ledger or the files lack; without a ledger nothing is judged.
    [[nodiscard]] QString shortfall() const
    {
        if (!withLedger()) {
            return {};
        }
        if (!m_unreadable.isEmpty()) {
            return QStringLiteral("%1 files cannot be read").arg(m_unreadable.size());
        }
        if (m_total.recorded == 0) {
            return QStringLiteral("nothing is recorded");
        }
        if (m_missing.isEmpty()) {
            return {};
        }
        return QStringLiteral("%1 of %2 rows accepted, %3 marked")
            .arg(m_total.accepted)
            .arg(m_total.recorded)
            .arg(m_total.marked);
    }

    Console& m_console;
    const QString m_ledger;
    const bool m_details;
    Columns m_lines;
    int m_incomplete = 0;
    KindCount m_total;
    QJsonArray m_missions;
    QJsonArray m_unreadable;
    QStringList m_missing;
};
} // namespace

int runStatus(const QStringList& arguments)
{
    CommandLine line(QStringLiteral("Shows what is recorded, accepted, marked and waiting."),
                     {{"ledger"_l1, "Ledger of a flightserver, to see what it has accepted."_l1, "FILE"_l1},
                      {"details"_l1, "Show each flight kind by kind."_l1}});
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    Console& console = line.console();
    const QString ledger = line.value(QStringLiteral("ledger"));
    if (line.isSet(QStringLiteral("ledger")) && !QFileInfo(ledger).isFile()) {
        console.error(QStringLiteral("there is no ledger \"%1\"").arg(ledger));
        return NotDone;
    }
    const Project project = Project::open(line.project());
    StatusReport report(console, ledger, line.isSet(QStringLiteral("details")));
    for (const QString& path : project.missionFiles({QStringLiteral("*.kv"), QStringLiteral("*.db")})) {
        report.add(path);
    }
    return report.finish();
}
