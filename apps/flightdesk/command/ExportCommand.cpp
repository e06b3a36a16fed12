// SPDX-License-Identifier: MIT
#include "command/CommandLine.h"
#include "command/Commands.h"
#include "export/ExportFile.h"
#include "project/Project.h"
#include "words/Failure.h"
#include "words/Latin1.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>

namespace
{
QString formatNames()
{
    QStringList names;
    for (const ExportFormat& format : ExportFormats) {
        names += QLatin1String(format.name);
    }
    return names.join(QStringLiteral(", "));
}

const ExportFormat* formatOf(const QString& name)
{
    for (const ExportFormat& format : ExportFormats) {
        if (name == QLatin1String(format.name)) {
            return &format;
        }
    }
    return nullptr;
}

/// A folder gets a file for each flight.
bool isFolder(const QString& output)
{
    return output.isEmpty() || output.endsWith(QLatin1Char('/')) || QFileInfo(output).isDir();
}

/// Exports a project's flights and keeps the account.
class FlightExport
{
public:
    FlightExport(Console& console, const ExportFormat& format, QString output, QStringList wanted)
        : m_console(console), m_format(format), m_output(std::move(output)), m_wanted(std::move(wanted))
    {
        if (!isFolder(m_output)) {
            m_all = std::make_unique<ExportFile>(m_output, m_format);
        } else if (!m_output.isEmpty() && !QDir().mkpath(m_output)) {
            throw Failure(QStringLiteral("cannot make the folder \"%1\"").arg(m_output));
        }
    }

    void add(const QString& path)
    {
        MissionFile file(path);
        const QVector<MissionCount> missions = file.missions();
        if (!file.isReadable()) {
            fail(QStringLiteral("%1 cannot be read: locked, or no mission file").arg(path));
            return;
        }
        for (const MissionCount& mission : missions) {
            if (isWanted(mission)) {
                Flight flight(file, mission);
                add(flight);
            }
        }
    }

    int finish()
    {
        if (m_all && !m_told.isEmpty()) {
            commitAll();
        }
        for (const QString& wanted : qAsConst(m_wanted)) {
            if (!m_found.contains(wanted)) {
                fail(QStringLiteral("there is no mission \"%1\"").arg(wanted));
            }
        }
        if (m_told.isEmpty() && m_complete) {
            fail(QStringLiteral("the project holds no mission"));
        }
        m_console.document({{"ok"_l1, m_complete}, {"flights"_l1, m_flights}});
        return m_complete ? Done : NotDone;
    }

private:
    /// By id, its end, or name; without any of them all are.
    bool isWanted(const MissionCount& mission)
    {
        constexpr int ShortestEnd = 8;
        bool wanted = m_wanted.isEmpty();
        for (const QString& name : qAsConst(m_wanted)) {
            if (name == mission.id || name == mission.name ||
                (name.size() >= ShortestEnd && mission.id.endsWith(name))) {
                m_found.insert(name);
                wanted = true;
            }
        }
        return wanted;
    }

    void add(Flight& flight)
    {
        if (m_all) {
            report(flight, m_output, m_all->add(flight));
            return;
        }
        QString name = ExportFile::name(flight, m_format);
        while (m_names.contains(name)) {
            name.prepend(QLatin1Char('_'));
        }
        m_names.insert(name);
        const QString target = QDir(m_output).filePath(name);
        try {
            ExportFile own(target, m_format);
            const qint64 written = own.add(flight);
            own.commit();
            report(flight, target, written);
        } catch (const Failure& failure) {
            fail(failure.words());
        }
    }

    /// What came of a flight; told at once unless other flights are still to come into its file.
    void report(const Flight& flight, const QString& target, qint64 written)
    {
        const QString missing = missingWords(flight, written);
        m_told.append(
            QStringLiteral("%1: %2, %3 %4")
                .arg(target, flight.name(), QString::number(written), QLatin1String(m_format.records)) +
            (missing.isEmpty() ? QString() : QStringLiteral("; ") + missing));
        m_flights.append(QJsonObject{{"id"_l1, flight.mission().id},
                                     {"name"_l1, flight.name()},
                                     {"file"_l1, target},
                                     {"records"_l1, written},
                                     {"missing"_l1, missing}});
        m_complete = m_complete && flight.gaps.isWhole();
        if (!m_all) {
            m_console.line(m_told.constLast());
        }
    }

    void commitAll()
    {
        try {
            m_all->commit();
        } catch (const Failure& failure) {
            m_flights = {};
            fail(failure.words());
            return;
        }
        for (const QString& text : qAsConst(m_told)) {
            if (ExportFile::isStandardOutput(m_output)) {
                m_console.note(text);
            } else {
                m_console.line(text);
            }
        }
    }

    void fail(const QString& text)
    {
        m_console.error(text);
        m_complete = false;
    }

    Console& m_console;
    const ExportFormat& m_format;
    const QString m_output;
    const QStringList m_wanted;
    std::unique_ptr<ExportFile> m_all; ///< one file for all flights, if there is one
    QSet<QString> m_found;             ///< of those that are wanted
    QSet<QString> m_names;
    QStringList m_told; ///< a line for each flight
    QJsonArray m_flights;
    bool m_complete = true;
};
} // namespace

int runExport(const QStringList& arguments)
{
    CommandLine line(
        QStringLiteral("Writes flights in the formats of other programs."),
        {{"format"_l1, formatNames() + QLatin1Char('.'), "FORMAT"_l1},
         {"output"_l1,
          "A file for all flights, \"-\" for standard output, or a folder (default: this one) for a "
          "file each."_l1,
          "FILE|DIR"_l1}});
    line.mayTake(QStringLiteral("MISSION"),
                 QStringLiteral("Id of a mission, the end of it, or its name; all when none is given."),
                 QStringLiteral("[MISSION...]"));
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    const ExportFormat* const format = formatOf(line.value(QStringLiteral("format")));
    if (!format) {
        Console::printUsageError(QStringLiteral("--format takes one of ") + formatNames());
        return BadUsage;
    }
    const QString output = line.value(QStringLiteral("output"));
    if (ExportFile::isStandardOutput(output) && line.isSet(QStringLiteral("json"))) {
        Console::printUsageError(QStringLiteral("--json and --output - both write to standard output"));
        return BadUsage;
    }
    const Project project = Project::open(line.project());
    FlightExport flights(line.console(), *format, output, line.positionals());
    const QStringList files = project.missionFiles({QStringLiteral("*.kv"), QStringLiteral("*.db")});
    for (int i = 0; i < files.size(); ++i) {
        flights.add(files.at(i));
        if (line.positionals().isEmpty()) { // else most files are only looked into
            line.console().progress(QStringLiteral("export"), i + 1, files.size());
        }
    }
    return flights.finish();
}
