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

class Life;
/// What a receiver does when its signal comes the first time, the second and so on.
using Deeds = QVector<void (Life::*)()>;
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
            m_files.append(m_project.file(QLatin1String(name),
                                          TestProject::contents(original.path(QLatin1String(name)))));
        }
        QueuedUploads::posted = [this](const QString& what) { note("post "_l1 + what); };
        const QStringList others = QSqlDatabase::connectionNames();
        op = new Operator(nullptr, env);
        for (const QString& name : QSqlDatabase::connectionNames()) {
            m_connection = others.contains(name) ? m_connection : name;
        }
        op->SetStartTimeInterval(5000);
        op->SetFlightModeEasyFly(easyFly);
        op->SetFilghtMissionID("a"_l1);
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
        const QString columns = m_project.file("pos_data.txt"_l1, "id text flight_mission_id text");
        const auto positions = [](const char* id) {
            return QJsonArray{QJsonObject{{"id"_l1, QLatin1String(id)}, {"flight_mission_id"_l1, "a"_l1}}};
        };
        step([&] { op->slotParseJson(positions("five"), columns, "a"_l1, 9, m_files[0]); });
        step([&] { op->SetFlightMissionFilePath(m_files[0]); });
        step([&] {
            QMetaObject::invokeMethod(op, "slotUpdateBreakpoint", Q_ARG(int, 1), Q_ARG(double, 2),
                                      Q_ARG(double, 3), Q_ARG(QString, "a"_l1), Q_ARG(double, 4));
        });
        step([&] {
            QMetaObject::invokeMethod(op, "slotParseJson", Q_ARG(QJsonArray, positions("three")),
                                      Q_ARG(QString, columns), Q_ARG(QString, "a"_l1));
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
            note("marked in "_l1 + file.section(u'/', -2) + ": "_l1 + marked(file).join(u' '));
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

    void nothing() {}
    void loop()
    {
        loopUntil([this, before = heard] { return heard > before || !op; });
    }
    void end() { delete op; }
    void endLater() { op->deleteLater(); }
    void repoint() { op->SetFlightMissionFilePath(m_files[1]); }
    void rearm()
    {
        op->SetFlightMissionFilePath(m_files[0]);
        QMetaObject::invokeMethod(op, "slotStartUploadTimer", Q_ARG(bool, true));
        QMetaObject::invokeMethod(op, "slotCheckNewData");
    }

    void tick()
    {
        control()->SetNetWorkConnected(true);
        QMetaObject::invokeMethod(op, "slotStartUpload");
        control()->SetNetWorkConnected(false);
    }

    static QStringList marked(const QString& file)
    {
        QStringList ids;
        for (const QString& table : Tables) {
            ids += TestProject::text(file,
                                     "SELECT id FROM "_l1 + table + " WHERE is_uploaded = 1 ORDER BY id"_l1)
                       .split(u' ', Qt::SkipEmptyParts);
        }
        return ids;
    }

    QPointer<Operator> op;
    QStringList transcript;
    int heard = 0; ///< signals of the operator
    int done = 0;  ///< deeds
    const QStringList& files() const { return m_files; }

private:
    void note(const QString& line) { transcript.append(QString(line).remove(m_project.path(""_l1))); }

    QString state() const
    {
        const QSqlDatabase database = QSqlDatabase::database(m_connection, false);
        return database.databaseName() + (database.isOpen() ? " is open"_l1 : " is closed"_l1);
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
        connect(op, &Operator::RecBreakPointRet, this, [this](bool stored) {
            hear("RecBreakPointRet", {QLatin1String(stored ? "stored" : "failed")});
        });
    }

    void hear(const QByteArray& signal, const QStringList& arguments)
    {
        ++heard;
        note(QString::fromUtf8("signal " + signal + '(') + arguments.join(", "_l1) + u')');
        if (signal == m_signal && done < m_deeds.size()) {
            (this->*m_deeds[done++])();
            note(QString::fromUtf8("end of a receiver of " + signal));
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
        TestProject::addMission(m_original->db, "a"_l1, 2, 1, 2);
        TestProject::addMission(m_original->db, "b"_l1, 0, 1, 1);
        m_original->run("INSERT INTO flight_video_mission(id, name) VALUES('a', 'video')");
        TestProject::addMission(m_original->missionFile("m2/flight.kv"_l1), "c"_l1, 0, 1, 1);
        m_original->missionFile("m3/flight.kv"_l1);
        control()->SetNetWorkConnected(false);
        if (qEnvironmentVariableIsEmpty("TRANSCRIPTS")) {
            const QString file = m_original->file("transcripts"_l1);
            QProcess nested;
            nested.setProcessChannelMode(QProcess::ForwardedChannels);
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert("TRANSCRIPTS"_l1, file);
            nested.setProcessEnvironment(environment);
            nested.start(QCoreApplication::applicationFilePath() + "_nested"_l1,
                         {"-silent"_l1, "asNested"_l1});
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
            {"nothing", {&Life::nothing}},
            {"loop", {&Life::loop, &Life::loop, &Life::loop}},
            {"delete", {&Life::end}},
            {"delete the second time", {&Life::nothing, &Life::end}},
            {"delete later", {&Life::endLater, &Life::nothing}},
            {"re-arm", {&Life::rearm, &Life::rearm}},
            {"tick", {&Life::tick, &Life::tick, &Life::tick}},
            {"re-point", {&Life::repoint}},
            {"loop in which it is deleted", {&Life::loop, &Life::end}},
            {"loop in which it ticks", {&Life::loop, &Life::tick, &Life::loop}},
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
        m_transcripts.insert(QLatin1String(QTest::currentDataTag()), life.transcript.join(u'\n'));
        if (!m_nested.isEmpty()) {
            QCOMPARE(life.transcript,
                     m_nested.value(QLatin1String(QTest::currentDataTag())).toString().split(u'\n'));
        }
        // A tick of the host's puts a second post beside the one in flight, whose reply counts for it then.
        const QStringList& markable =
            deeds.contains(&Life::tick) ? QueuedUploads::sent : QueuedUploads::accepted;
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
    if (QDir("/dev/shm"_l1).exists()) {
        qputenv("TMPDIR", "/dev/shm"); // thousands of commits, and no power cut
    }
    QCoreApplication application(argc, argv);
    tst_receivers test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_receivers.moc"
