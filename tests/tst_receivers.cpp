// SPDX-License-Identifier: MIT
#include "KvProjectDbOperator/CKvUpLoadObject.h"
#include "support/QueuedUploads.h"
#include "support/TestProject.h"

#include <QtCore/QPointer>
#include <QtCore/QProcess>

#include <functional>

namespace
{
using Operator = CKvFlightDataDbOperator;

/// What a receiver does when its signal comes.
enum class EDeed { Nothing, Loop, Delete, DeleteLater, Rearm, Tick, Repoint };
using Deeds = QVector<EDeed>; // for the first time that it comes, the second and so on

/// Waits in an event loop until a condition holds, or no reply is left to come.
void loopUntil(const std::function<bool()>& condition)
{
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (condition() || !QueuedUploads::areOutstanding()) {
            loop.quit();
        }
    });
    poll.start(0);
    loop.exec();
}
} // namespace

Q_DECLARE_METATYPE(EUploadEnv)
Q_DECLARE_METATYPE(Deeds)

/// One operator's life, written down: what it posts and signals, which file it has open after each act of its
/// host, and which rows are marked in the end. Its own ticks find no network.
class Life : public QObject
{
public:
    Life(const FlightProject& original, EUploadEnv env, bool easyFly, QByteArray signal, Deeds deeds)
        : m_signal(std::move(signal)), m_deeds(std::move(deeds))
    {
        for (const char* const name : {"m1/flight.kv", "m2/flight.kv", "m3/flight.kv"}) {
            m_files.append(m_project.file(name, TestProject::contents(original.path(name))));
        }
        QueuedUploads::posted = [this](const QString& what) { note("post " + what); };
        const QStringList others = QSqlDatabase::connectionNames();
        op = new Operator(nullptr, env);
        for (const QString& name : QSqlDatabase::connectionNames()) {
            m_connection = others.contains(name) ? m_connection : name;
        }
        op->SetStartTimeInterval(5000);
        op->SetFlightModeEasyFly(easyFly);
        op->SetFilghtMissionID("a");
        op->SetFlightMissionFilePath(m_files[0]);
        QMetaObject::invokeMethod(op, "slotCheckNewData");
        listen();
    }

    ~Life() override
    {
        delete op;
        QSqlDatabase::database(m_connection, false).close();
        QueuedUploads::reset();
    }

    void write()
    {
        const QString columns = m_project.file("pos_data.txt", "id text flight_mission_id text");
        const auto positions = [](const char* id) {
            return QJsonArray{QJsonObject{{"id", id}, {"flight_mission_id", "a"}}};
        };
        step([&] { op->slotParseJson(positions("five"), columns, "a", 9, m_files[0]); });
        step([&] { op->SetFlightMissionFilePath(m_files[0]); });
        step([&] {
            QMetaObject::invokeMethod(op, "slotUpdateBreakpoint", Q_ARG(int, 1), Q_ARG(double, 2),
                                      Q_ARG(double, 3), Q_ARG(QString, "a"), Q_ARG(double, 4));
        });
        step([&] {
            QMetaObject::invokeMethod(op, "slotParseJson", Q_ARG(QJsonArray, positions("three")),
                                      Q_ARG(QString, columns), Q_ARG(QString, "a"));
        });
    }

    void upload()
    {
        for (int i = 0; i < 3; ++i) {
            step([this] { tick(); });
        }
        for (int i = 0; i < 4; ++i) {
            step([this] { rearm(); });
            step([this] { tick(); });
        }
        for (const QString& file : qAsConst(m_files)) {
            note("marked in " + file.section('/', -2) + ": " + marked(file).join(' '));
        }
    }

    /// One act of the host, and what follows it.
    void step(const std::function<void()>& function)
    {
        QTimer::singleShot(0, this, [&] {
            if (op) {
                function();
            }
        });
        loopUntil([] { return false; });
        note(state());
    }

    void rearm()
    {
        op->SetFlightMissionFilePath(m_files[0]);
        QMetaObject::invokeMethod(op, "slotStartUploadTimer", Q_ARG(bool, true));
        QMetaObject::invokeMethod(op, "slotCheckNewData");
    }

    static QStringList marked(const QString& file)
    {
        QStringList ids;
        for (const QString& table : Tables) {
            ids += TestProject::text(file, "SELECT id FROM " + table + " WHERE is_uploaded = 1 ORDER BY id")
                       .split(' ', Qt::SkipEmptyParts);
        }
        return ids;
    }

    QPointer<Operator> op;
    QStringList transcript;
    int heard = 0; ///< signals of the operator
    int done = 0;  ///< deeds
    const QStringList& files() const { return m_files; }

private:
    void note(const QString& line) { transcript.append(QString(line).remove(m_project.path(""))); }

    QString state() const
    {
        const QSqlDatabase database = QSqlDatabase::database(m_connection, false);
        return database.databaseName() + (database.isOpen() ? " is open" : " is closed");
    }

    void tick()
    {
        control()->SetNetWorkConnected(true);
        QMetaObject::invokeMethod(op, "slotStartUpload");
        control()->SetNetWorkConnected(false);
    }

    void listen()
    {
        connect(op, &Operator::UpLoading, this, [this](const QString& project, const QString& id) {
            hear("UpLoading", {project, id});
        });
        connect(op, &Operator::UploadFinished, this, [this](const QString& project, const QString& id) {
            hear("UploadFinished", {project, id});
        });
        connect(op, &Operator::signalUploadFlightMissionFinish, this,
                [this] { hear("signalUploadFlightMissionFinish", {}); });
        connect(op, &Operator::WriteDBFinished, this,
                [this](const QString& id, unsigned int type, const QString& file) {
                    hear("WriteDBFinished", {id, QString::number(type), file});
                });
        connect(op, &Operator::RecBreakPointRet, this,
                [this](bool stored) { hear("RecBreakPointRet", {stored ? "stored" : "failed"}); });
    }

    void hear(const QByteArray& signal, const QStringList& arguments)
    {
        ++heard;
        note("signal " + signal + '(' + arguments.join(", ") + ')');
        if (signal == m_signal && done < m_deeds.size()) {
            act(m_deeds[done++]);
            note("end of a receiver of " + signal);
        }
    }

    void act(EDeed deed)
    {
        switch (deed) {
        case EDeed::Nothing:
            break;
        case EDeed::Loop:
            loopUntil([this, before = heard] { return heard > before || !op; });
            break;
        case EDeed::Delete:
            delete op;
            break;
        case EDeed::DeleteLater:
            op->deleteLater();
            break;
        case EDeed::Rearm:
            rearm();
            break;
        case EDeed::Tick:
            tick();
            break;
        case EDeed::Repoint:
            op->SetFlightMissionFilePath(m_files[1]);
            break;
        }
    }

    TestProject m_project;
    QStringList m_files;
    QByteArray m_signal;
    Deeds m_deeds;
    QString m_connection;
};

/// Run twice: linked with the library's steps, and with steps that are truly nested, whose transcripts the
/// first one takes for what must be.
class tst_receivers : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<FlightProject> m_original;
    QJsonObject m_nested;
    QJsonObject m_transcripts;

private Q_SLOTS:
    void initTestCase()
    {
        m_original = std::make_unique<FlightProject>();
        TestProject::addMission(m_original->db, "a", 2, 1, 2);
        TestProject::addMission(m_original->db, "b", 0, 1, 1);
        m_original->run("INSERT INTO flight_video_mission(id, name) VALUES('a', 'video')");
        TestProject::addMission(m_original->missionFile("m2/flight.kv"), "c", 0, 1, 1);
        m_original->missionFile("m3/flight.kv");
        control()->SetNetWorkConnected(false);
        if (qEnvironmentVariableIsEmpty("TRANSCRIPTS")) {
            const QString file = m_original->file("transcripts");
            QProcess nested;
            nested.setProcessChannelMode(QProcess::ForwardedChannels);
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert("TRANSCRIPTS", file);
            nested.setProcessEnvironment(environment);
            nested.start(QCoreApplication::applicationFilePath() + "_nested", {"-silent", "asNested"});
            QVERIFY(nested.waitForFinished(-1));
            QCOMPARE(nested.exitCode(), 0);
            m_nested = QJsonDocument::fromJson(TestProject::contents(file)).object();
        }
    }

    void cleanupTestCase()
    {
        const QString file = qEnvironmentVariable("TRANSCRIPTS");
        QFile transcripts(file);
        if (!file.isEmpty()) {
            QVERIFY(transcripts.open(QIODevice::WriteOnly));
            transcripts.write(QJsonDocument(m_transcripts).toJson());
        }
    }

    void asNested_data()
    {
        QTest::addColumn<EUploadEnv>("env");
        QTest::addColumn<bool>("easyFly");
        QTest::addColumn<QByteArray>("signal");
        QTest::addColumn<Deeds>("deeds");
        QTest::addColumn<int>("refused");
        const QVector<QPair<const char*, Deeds>> receivers = {
            {"nothing", {EDeed::Nothing}},
            {"loop", {EDeed::Loop, EDeed::Loop, EDeed::Loop}},
            {"delete", {EDeed::Delete}},
            {"delete the second time", {EDeed::Nothing, EDeed::Delete}},
            {"delete later", {EDeed::DeleteLater, EDeed::Nothing}},
            {"re-arm", {EDeed::Rearm, EDeed::Rearm}},
            {"tick", {EDeed::Tick, EDeed::Tick, EDeed::Tick}},
            {"re-point", {EDeed::Repoint}},
            {"loop in which it is deleted", {EDeed::Loop, EDeed::Delete}},
            {"loop in which it ticks", {EDeed::Loop, EDeed::Tick, EDeed::Loop}},
        };
        for (const char* const signal : {"WriteDBFinished", "RecBreakPointRet", "UpLoading",
                                         "signalUploadFlightMissionFinish", "UploadFinished"}) {
            for (int env = 0; env <= 3; ++env) {
                const bool written = *signal == 'W' || *signal == 'R';
                if (!written && (env == 0 || (env < 3 && qstrcmp(signal, "UploadFinished") == 0))) {
                    continue; // is not emitted
                }
                for (const auto& receiver : receivers) {
                    for (int variant = 0; variant < (written ? 2 : 4); ++variant) {
                        const bool easyFly = variant == 1;
                        const int refused = variant < 2 ? 0 : 2 * variant - 2;
                        QTest::addRow("%s: %s, %d%s, refused %d", signal, receiver.first, env,
                                      easyFly ? " easy" : "", refused)
                            << static_cast<EUploadEnv>(env) << easyFly << QByteArray(signal)
                            << receiver.second << refused;
                    }
                }
            }
        }
    }
    void asNested()
    {
        QFETCH(EUploadEnv, env);
        QFETCH(bool, easyFly);
        QFETCH(QByteArray, signal);
        QFETCH(Deeds, deeds);
        QFETCH(int, refused);
        Life life(*m_original, env, easyFly, signal, deeds);
        QueuedUploads::refused = refused;
        life.write();
        life.upload();
        QVERIFY(life.done > 0);
        m_transcripts.insert(QTest::currentDataTag(), life.transcript.join('\n'));
        if (!m_nested.isEmpty()) {
            QCOMPARE(life.transcript, m_nested.value(QTest::currentDataTag()).toString().split('\n'));
        }
        // A tick of the host's puts a second post beside the one in flight, whose reply counts for it then.
        const QStringList& markable =
            deeds.contains(EDeed::Tick) ? QueuedUploads::sent : QueuedUploads::accepted;
        for (const QString& file : life.files()) {
            for (const QString& id : Life::marked(file)) {
                QVERIFY2(markable.contains(id), qPrintable(id));
            }
        }
        if (life.op && !easyFly && env >= EUploadEnv::WholeProject) {
            QCOMPARE(TestProject::waiting(life.files()[0]), 0);
        }
    }
};

int main(int argc, char* argv[])
{
    if (QDir("/dev/shm").exists()) {
        qputenv("TMPDIR", "/dev/shm"); // thousands of commits, and no power cut
    }
    QCoreApplication application(argc, argv);
    tst_receivers test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_receivers.moc"
