// SPDX-License-Identifier: MIT
#include "support/Foreign.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"

#include "operator/LogFeed.h"
#include "operator/OperatorLink.h"
#include "upload/Uploader.h"

namespace
{
constexpr int Speed = 7; // of the supervisor's clock, whose rest stays longer than a failure's 3 s
constexpr int Interval = 10;
constexpr int Rows = 2 * 3 * (1 + 2 + 1 + 3); // of the files, their missions and their tables

/// A host that leaves it to its operator to go through the project, with the watch that flightdesk has. Its
/// clock runs ahead, so that a rest of half a minute ends after seconds. It goes by the looks: where the
/// machine is busy, rests of the operator would else be over before its own timer has ticked.
struct SupervisedHost : ArmedHost {
    explicit SupervisedHost(QStringList missionFiles, int speed = Speed)
        : ArmedHost(EUploadEnv::WholeProject), files(std::move(missionFiles)), supervisor(Interval)
    {
        empty.missionFile("nothing/flight.kv"_l1);
        control()->SetProjectDirPath(QFileInfo(files[0]).dir().filePath(".."_l1));
        supervisor.setEmptyProject(empty.path(""_l1));
        link.connectTo(&op);
        supervisor.connectTo(link);
        connect(&timer, &QTimer::timeout, this,
                [this, speed] { look(now += qint64(speed) * timer.interval()); });
        timer.start(50);
        Q_EMIT slotStartUpload();
    }
    int waiting() const
    {
        int rows = 0;
        for (const QString& file : files) {
            rows += TestProject::waiting(file);
        }
        return rows;
    }
    void look(qint64 time)
    {
        const int rows = waiting();
        if (rows != last) {
            supervisor.noteSignOfLife(time);
        }
        last = rows;
        const auto first = std::find_if(files.cbegin(), files.cend(),
                                        [](const QString& file) { return TestProject::waiting(file) > 0; });
        supervisor.look(time, first == files.cend() ? QString() : *first, true);
    }

    const QStringList files;
    const TestProject empty;
    OperatorLink link;
    UploadSupervisor supervisor;
    qint64 now = 0;
    QTimer timer;
    int last = -1;
};
} // namespace

/// Rests in which an operator stays by itself, and the watch that leads out of each.
class tst_supervised : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TestProject> m_project;
    std::unique_ptr<ScriptedServer> m_server;
    QStringList m_files;

    void uploadByFlightdesk()
    {
        BacklogCounter counter(Project::open(m_project->path(""_l1)));
        counter.countAll();
        const LogFeed feed;
        Uploader uploader(feed);
        uploader.setPace(RetryPace::growing(Interval));
        uploader.start();
        const auto waiting = [&] {
            counter.recount();
            uploader.look(counter.backlog(), true);
            return counter.backlog().waiting();
        };
        QTRY_COMPARE_WITH_TIMEOUT(waiting(), 0, 120000);
    }

private Q_SLOTS:
    void init()
    {
        m_project = std::make_unique<TestProject>();
        m_server = std::make_unique<ScriptedServer>();
        m_files.clear();
        for (const char* const letter : {"a", "b"}) {
            const QString name = QLatin1String(letter);
            m_files.append(m_project->missionFile(name + "/flight.kv"_l1));
            for (int i = 0; i < 3; ++i) {
                TestProject::addMission(m_files.constLast(), name + QString::number(i), 2, 1, 3);
            }
        }
    }

    /// Each fault once, in the middle of a project of several files with several missions each: through it
    /// goes flightdesk, or an operator by itself, whose queue and files are out of step then.
    void everythingArrives_data()
    {
        QTest::addColumn<QString>("behaviour");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<bool>("byItself");
        // One of each kind that an operator tells apart.
        for (const auto& [behaviour, accepted] : {std::pair("silence", false),
                                                  {"slam", false},
                                                  {R"(401 {"status":401})", false},
                                                  {R"(200 {"status":-1})", false},
                                                  {R"(slowly 200 {"status":0})", true},
                                                  {R"(200 {"status":"no"})", true}}) {
            QTest::addRow("flightdesk: %s", behaviour) << behaviour << accepted << false;
            QTest::addRow("by itself: %s", behaviour) << behaviour << accepted << true;
        }
    }
    void everythingArrives()
    {
        QFETCH(QString, behaviour);
        QFETCH(bool, accepted);
        QFETCH(bool, byItself);
        constexpr int Faulty = 5; // the second mission of the first file
        QStringList rows;
        m_server->script = [&](const PostedRequest& request) {
            const bool faulty = m_server->requests.size() == Faulty;
            if (!faulty || accepted) {
                rows += request.rows().values();
            }
            return faulty ? ScriptedServer::reply(behaviour) : ScriptedServer::accepted();
        };
        signIn("token"_l1);
        if (byItself) {
            const SupervisedHost host(m_files, behaviour == "silence"_l1 ? 1 : Speed);
            QTRY_COMPARE_WITH_TIMEOUT(host.waiting(), 0, 300000);
        } else {
            uploadByFlightdesk();
        }
        QCOMPARE(rows.removeDuplicates(), 0);
        QCOMPARE(rows.size(), Rows);
    }

    /// Later with each failure, each client at a time of its own, and soon again when all is well.
    void retryPace()
    {
        for (const int first : {3000, 100000}) {
            const int longest = qMax(first, 60000);
            RetryPace pace = RetryPace::growing(first);
            for (qint64 middle = first; middle < 40LL * longest; middle *= 2) {
                const qint64 most = qMin(middle, qint64(longest));
                QVERIFY(pace.interval() >= most / 2 && pace.interval() <= most * 3 / 2);
                pace.noteFailed();
            }
            QSet<int> drawn;
            for (int i = 0; i < 100; ++i) {
                drawn.insert(pace.interval());
                pace.noteFailed();
            }
            QVERIFY(drawn.size() > 50);
            pace.reset();
            QVERIFY(pace.interval() <= first * 3 / 2);
        }
        RetryPace fixed = RetryPace::fixed(1000);
        fixed.noteFailed();
        QCOMPARE(fixed.interval(), 1000);
    }

    /// Though the next try is far away.
    void networkComesBack()
    {
        m_server->script = [](const PostedRequest&) { return ScriptedServer::reply("slam"_l1); };
        BacklogCounter counter(Project::open(m_project->path(""_l1)));
        counter.countAll();
        const LogFeed feed;
        Uploader uploader(feed);
        uploader.start();
        uploader.setPace(RetryPace::growing(3600000));
        uploader.look(counter.backlog(), true);
        QTRY_VERIFY_WITH_TIMEOUT(uploader.secondsToTry() > 1000, 20000);
        m_server->script = [](const PostedRequest&) { return ScriptedServer::accepted(); };
        uploader.look(counter.backlog(), false);
        uploader.look(counter.backlog(), true);
        QTRY_VERIFY_WITH_TIMEOUT(!m_server->stored.isEmpty(), 20000);
    }

    /// Another program holds a file while the second of its missions is sent, for longer than is waited:
    /// marks are not made, rows not found, and the timer has stopped.
    void lockedInMidChain()
    {
        constexpr int LockWait = 100;
        CKvDataBase::SetLockWait(LockWait);
        for (const bool byItself : {false, true}) {
            init();
            std::unique_ptr<Foreign> foreign;
            m_server->script = [&](const PostedRequest& request) {
                if (m_server->requests.size() == 5) {
                    foreign = std::make_unique<Foreign>(
                        "exclusive"_l1, m_files[request.ids().value(0).startsWith(u'a') ? 0 : 1]);
                    QTimer::singleShot(5 * LockWait, m_server.get(), [&foreign] { foreign.reset(); });
                }
                return ScriptedServer::accepted();
            };
            if (byItself) {
                const SupervisedHost host(m_files);
                const QSignalSpy rearmed(&host.supervisor, &UploadSupervisor::rearmed);
                QTRY_VERIFY_WITH_TIMEOUT(!foreign && host.waiting() == 0, 60000);
                QVERIFY(rearmed.count() == 1 || rearmed.count() == 2);
            } else {
                uploadByFlightdesk();
            }
            QCOMPARE(TestProject::waiting(m_files[0]) + TestProject::waiting(m_files[1]), 0);
            QCOMPARE(m_server->stored.size(), Rows);
        }
        CKvDataBase::SetLockWait(30000);
    }

    /// The files that a pass comes to next cannot be opened, while it lasts or for good.
    void nextFileCannotBeOpened()
    {
        for (const bool forGood : {true, false}) {
            init();
            QStringList gone;
            for (const char* name : {"a/x.kv", "b/x.kv", "c/x.kv", "d/x.kv"}) {
                if (forGood) { // no databases
                    m_project->file(QLatin1String(name), QByteArray(5000, 'g'));
                }
            }
            m_server->script = [&](const PostedRequest& request) {
                if (!forGood && m_server->requests.size() == 1) {
                    // The folder of the file that is not being sent now
                    const bool inA = request.ids().value(0).startsWith(u'a');
                    gone = QStringList{m_project->path(QLatin1String(inA ? "b" : "a")),
                                       m_project->path("away"_l1)};
                    QDir().rename(gone[0], gone[1]);
                }
                return ScriptedServer::accepted();
            };
            const SupervisedHost uploader(m_files);
            if (!forGood) {
                QTRY_VERIFY(!gone.isEmpty() &&
                            TestProject::waiting(m_files[gone[0].endsWith(u'b') ? 0 : 1]) == 0);
                QVERIFY(QDir().rename(gone[1], gone[0]));
            }
            QTRY_COMPARE_WITH_TIMEOUT(uploader.waiting(), 0, 60000);
        }
    }
};

QTEST_GUILESS_MAIN(tst_supervised)
#include "tst_supervised.moc"
