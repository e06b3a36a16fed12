// SPDX-License-Identifier: MIT
#include "project/ProjectLock.h"
#include "support/Desk.h"
#include "window/ProfileView.h"

#include <QtCore/QScopeGuard>

#include <csignal>
#include <sys/mount.h>
#include <sys/resource.h>

namespace
{
/// A disk of 2 MB in the place of a folder. Only root may have one.
class SmallDisk
{
public:
    explicit SmallDisk(const QString& folder) : m_folder(QFile::encodeName(folder))
    {
        QDir().mkpath(folder);
        m_isMounted = ::mount("tmpfs", m_folder.constData(), "tmpfs", 0, "size=2m") == 0;
    }
    ~SmallDisk() { m_isMounted ? (void)::umount2(m_folder.constData(), MNT_DETACH) : (void)0; }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool isMounted() const { return m_isMounted; }
    bool makeReadOnly() const
    {
        return ::mount(nullptr, m_folder.constData(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    }

private:
    const QByteArray m_folder;
    bool m_isMounted = false;
};

/// The letters behind & in what stands on a widget.
QString keyOf(const QWidget* widget)
{
    static const QRegularExpression key("&([A-Za-z])"_l1);
    return key.match(widget->property("text").toString()).captured(1).toLower();
}
} // namespace

/// The window as a person works it, and the words that are read when something is not as it should be.
class tst_pilot : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QApplication::setStyle(new theme::Style);
    }

    /// With Tab alone every button and field of every page is reached.
    void keyboardReachesEverything()
    {
        const TestProject project;
        Desk desk(project);
        for (int page = 1; page <= 5; ++page) {
            desk.goTo(page);
            QSet<QWidget*> reached;
            for (int i = 0; i < 40; ++i) {
                desk.press(Qt::Key_Tab);
                reached.insert(QApplication::focusWidget());
            }
            for (auto* widget : desk.window.tabs()->currentWidget()->findChildren<QWidget*>()) {
                const bool wanted = widget->isVisible() && widget->isEnabled() &&
                                    (widget->focusPolicy() & Qt::TabFocus) && !widget->focusProxy() &&
                                    widget->parentWidget()->focusProxy() != widget;
                QVERIFY2(!wanted || reached.contains(widget), widget->metaObject()->className());
            }
        }
    }

    /// What can be worked has a name that is read aloud, and no two keys of a page are the same.
    void keysAndNames()
    {
        const TestProject project;
        TestProject::addMission(project.missionFile("project/old/flight.kv"_l1), "m"_l1, 5, 5, 5);
        Desk desk(project);
        QTRY_VERIFY(desk.find<TableView>("Flights"_l1));
        for (int page = 1; page <= 5; ++page) {
            desk.goTo(page);
            QStringList keys{"f"_l1, "v"_l1, "h"_l1}; // the menus'
            for (auto* widget : desk.window.tabs()->currentWidget()->findChildren<QWidget*>()) {
                const QString key = widget->isVisible() ? keyOf(widget) : QString();
                QVERIFY2(key.isEmpty() || !keys.contains(key), qPrintable(key + QString::number(page)));
                keys.append(key.isEmpty() ? QStringList() : QStringList{key});
                if (widget->isVisible() && (widget->focusPolicy() & Qt::TabFocus) && !widget->focusProxy() &&
                    widget->parentWidget()->focusProxy() != widget) {
                    QAccessibleInterface* const read = QAccessible::queryAccessibleInterface(widget);
                    QVERIFY2(read && !read->text(QAccessible::Name).isEmpty(),
                             widget->metaObject()->className());
                }
            }
        }
    }

    /// Two flights are simulated, looked at, found and stopped without a mouse.
    void keysAlone()
    {
        const TestProject project;
        Desk desk(project);
        desk.goTo(2);
        QTest::keyClicks(desk.find<QComboBox>("Speed"_l1), "as"_l1);
        for (int flight = 0; flight < 2; ++flight) {
            desk.press(Qt::Key_S, Qt::AltModifier);
            QTRY_VERIFY_WITH_TIMEOUT(desk.window.session().flights()->rowCount() == flight + 1 &&
                                         !desk.window.session().flights()->isRunning(flight),
                                     Long);
        }
        desk.press(Qt::Key_L, Qt::ControlModifier | Qt::ShiftModifier);
        QCOMPARE(desk.window.tabs()->currentIndex(), 0);
        auto* const list = desk.find<TableView>("Flights"_l1);
        QTRY_COMPARE(list->model()->rowCount(), 2);
        QCOMPARE(QApplication::focusWidget(), list);
        desk.press(Qt::Key_End);
        QCOMPARE(list->currentIndex().row(), 1);
        QTRY_VERIFY_WITH_TIMEOUT(desk.find<QTreeView>("Events"_l1)->model()->rowCount() > 3, Long);
        desk.press(Qt::Key_C, Qt::ControlModifier | Qt::ShiftModifier);
        const auto* const charts = qobject_cast<ProfileView*>(QApplication::focusWidget());
        QVERIFY(charts);
        for (const auto& [key, time] : {std::pair(Qt::Key_Home, "0:00"),
                                        {Qt::Key_End, "4:59"},
                                        {Qt::Key_Left, "4:58"},
                                        {Qt::Key_PageUp, "4:28"}}) {
            desk.press(key);
            QVERIFY2(charts->readout().startsWith(QLatin1String(time)), qPrintable(charts->readout()));
        }
        desk.press(Qt::Key_F, Qt::ControlModifier);
        QTest::keyClicks(QApplication::focusWidget(), "nothing such"_l1);
        QCOMPARE(list->model()->rowCount(), 0);
    }

    /// Words that keep a pilot from being misled.
    void saysWhatIsSo()
    {
        const TestProject project;
        Account first("t"), second("t");
        Desk desk(project);
        QTRY_VERIFY(desk.find<QPushButton>("Add logs..."_l1) && desk.find<QPushButton>("Simulate"_l1));
        project.file("pictures/holiday.jpg"_l1);
        desk.window.flightsPage()->open(project.path("pictures"_l1), false);
        QVERIFY(desk.question().startsWith("This folder is no project. Other files are in it."_l1));
        QTest::keyClick(desk.window.findChild<QMessageBox*>(), Qt::Key_Return);
        QCOMPARE(desk.window.session().projectPath(), project.path("project"_l1));
        desk.window.resize(800, 600);
        for (int page = 1; page <= 5; ++page) {
            desk.goTo(page);
            QCOMPARE(desk.window.size(), QSize(800, 600));
        }
        desk.signIn("fly.example"_l1, "t"_l1);
        QCOMPARE(desk.find<QLineEdit>("Server"_l1)->text(), "https://fly.example"_l1);
        QVERIFY(desk.find<StateLabel>("An address begins with http:// or https://: fly.example, nothing was "
                                      "sent. Did you mean https://fly.example?"_l1));
        desk.signIn(QString::fromUtf8(first.url()), "t"_l1);
        desk.click("Change server..."_l1);
        desk.type("Server"_l1, QString::fromUtf8(second.url()));
        QVERIFY(desk.find<QLabel>(QString::fromUtf8("Signed in to " + first.url())));
        desk.click("Keep this server"_l1);
        QVERIFY(!desk.find<QLineEdit>("Server"_l1));
        desk.click("Change server..."_l1);
        QVERIFY(desk.find<QLineEdit>("Server"_l1)->text() == QString::fromUtf8(first.url()));
        desk.record(interruptedLog());
        desk.goTo(1);
        QTRY_VERIFY_WITH_TIMEOUT(desk.find<QLabel>("flight"_l1), Long); // the page of the newest
        QTRY_VERIFY_WITH_TIMEOUT(desk.find<QTreeView>("Events"_l1)->model()->rowCount() > 3, Long);
        desk.type("Find a flight"_l1, "nothing such"_l1);
        QCOMPARE(desk.find<TableView>("Flights"_l1)->model()->rowCount(), 0);
    }

    /// Logs that are none, or not whole: in red or amber where they were added, and marked in the book.
    void badLogs()
    {
        const std::tuple<QByteArray, const char*, const char*> cases[] = {
            {QByteArray("no flight at all\n").repeated(5000),
             "Not a telemetry log: flight.tlog, nothing was recorded. Choose the .tlog", ""},
            {interruptedLog().chopped(7), "the log is cut off at 1:", ", log cut off, "}};
        for (const auto& [log, state, inBook] : cases) {
            const TestProject project;
            Desk desk(project);
            desk.record(log);
            QVERIFY2(desk.flight(0).contains(QLatin1String(state)), qPrintable(desk.flight(0)));
            const FlightModel& flights = *desk.window.session().flights();
            QVERIFY(flights.index(0, FlightModel::State).data(Qt::ForegroundRole).isValid());
            if (!*inBook) {
                QVERIFY(desk.file().isEmpty());
                continue;
            }
            const MissionModel& missions = *desk.window.session().missions();
            QTRY_VERIFY_WITH_TIMEOUT(
                missions.rowCount() == 1 && missions.stateText(0).contains(QLatin1String(inBook)), Long);
            desk.drop(project.path("flight.tlog"_l1));
            QTRY_COMPARE(desk.question(), "flight is in this project already. Record it again?"_l1);
            desk.click("No"_l1);
            desk.window.flightsPage()->open(project.path("other"_l1), true);
            QCOMPARE(flights.rowCount(), 0);
        }
    }

    /// On a disk of its own where one can be mounted, and where files may not grow any more.
    void fullDisk()
    {
        for (const bool isDisk : {true, false}) {
            const TestProject project;
            const auto disk = isDisk ? std::make_unique<SmallDisk>(project.path("project"_l1)) : nullptr;
            if (disk && !disk->isMounted()) {
                qInfo("not tried: only root may mount a disk");
                continue;
            }
            const QByteArray log = asLog(framesOf(FlightSimulator(7, 0, 60)));
            project.file("flight.tlog"_l1, log);
            Desk desk(project);
            desk.goTo(2);
            rlimit before{};
            getrlimit(RLIMIT_FSIZE, &before);
            const rlimit limit{isDisk ? before.rlim_cur : 390 * 1024, before.rlim_max};
            std::signal(SIGXFSZ, SIG_IGN);
            setrlimit(RLIMIT_FSIZE, &limit);
            const auto restore = qScopeGuard([&before] { setrlimit(RLIMIT_FSIZE, &before); });
            desk.drop(project.path("flight.tlog"_l1));
            const FlightModel& flights = *desk.window.session().flights();
            QTRY_VERIFY_WITH_TIMEOUT(flights.rowCount() == 1 && !flights.isRunning(0), 2 * Long);
            const auto words = isDisk ? "Disk full: flight stopped at "_l1
                                      : "The file takes no records: flight stopped at "_l1;
            QVERIFY2(desk.flight(0).contains(words), qPrintable(desk.flight(0)));
            QVERIFY(desk.flight(0).contains("the first part is stored. "_l1));
            QVERIFY(flights.index(0, FlightModel::Progress).data(FlightModel::PercentRole).toInt() < 100);
            const MissionsOfFile stored = MissionsOfFile::read(desk.file());
            const double drawn = flights.track(0).samples().last().seconds;
            QVERIFY2(drawn <= double(stored.missions.first().seconds.value_or(0)) + 2,
                     qPrintable(QString::number(drawn)));
            desk.goTo(1);
            const MissionModel& missions = *desk.window.session().missions();
            QTRY_VERIFY_WITH_TIMEOUT(
                missions.rowCount() == 1 && missions.stateText(0).startsWith("incomplete ("_l1), Long);
            QVERIFY(!isDisk || missions.stateText(0).endsWith("the disk is full"_l1));
        }
    }

    /// A failure stays in view, with its own words, since when, and what is safe.
    void badServers()
    {
        for (const auto& [trouble, words] : {std::pair("killed", "No connection to http://127.0.0.1:"),
                                             {"silence", "No answer from http://127.0.0.1:"},
                                             {"404 gone", "Wrong address (404): "},
                                             {"413 large", "Too large for the server (413): "},
                                             {"503 busy", "Server error 503: "},
                                             {"200 <html>", "No upload server: "}}) {
            const TestProject project;
            Desk desk(project);
            Account server("t");
            desk.record(interruptedLog());
            server.holdLog = true;
            desk.signIn(QString::fromUtf8(server.url()), "t"_l1);
            QTRY_VERIFY_WITH_TIMEOUT(server.held, Long);
            server.trouble = QLatin1String(trouble);
            if (server.trouble == "killed"_l1) {
                server.close();
            }
            for (auto* const socket : server.findChildren<QTcpSocket*>()) {
                socket->abort();
            }
            const auto isSaid = [&desk, words = QLatin1String(words)] {
                return desk.said().startsWith(words) && desk.said().contains(" records are safe here. "_l1) &&
                       desk.find<StateLabel>(desk.said());
            };
            QTRY_VERIFY2_WITH_TIMEOUT(isSaid(), qPrintable(desk.said()), Long);
        }
    }

    /// Only who uploads keeps others from it; and who cannot says who does.
    void secondWindow()
    {
        const TestProject project;
        Account server("t");
        Desk desk(project);
        desk.record(interruptedLog());
        ProjectLock other(Project::open(project.path("project"_l1)), ProjectLock::Use::Uploading);
        QCOMPARE(other.take(), QString());
        const QString words = QStringLiteral("Another program uploads from this project (process %1 on ")
                                  .arg(QCoreApplication::applicationPid());
        QTRY_VERIFY(desk.window.session().noticeText().startsWith(words));
        desk.goTo(1);
        QVERIFY(desk.find<StateLabel>(desk.window.session().noticeText()));
        desk.signIn(QString::fromUtf8(server.url()), "t"_l1);
        QVERIFY(desk.find<StateLabel>(desk.window.session().noticeText()));
        QVERIFY(desk.said().startsWith("Not signed in. "_l1));
        other.release();
        QTRY_VERIFY(desk.window.session().noticeText().isEmpty());
        desk.signIn(QString::fromUtf8(server.url()), "t"_l1);
        QVERIFY(!other.take().isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(desk.said(), "Everything is uploaded."_l1, Long);
        QVERIFY(!other.take().isEmpty());
        desk.window.flightsPage()->open(project.path("other"_l1), true);
        QTRY_COMPARE(other.take(), QString());
    }

    void readOnlyProject()
    {
        const TestProject project;
        const SmallDisk disk(project.path("project"_l1));
        TestProject::addMission(project.missionFile("project/old/flight.kv"_l1), "m"_l1, 5, 5, 5);
        if (!disk.isMounted() || !disk.makeReadOnly()) {
            qInfo("not tried: only root may mount a disk");
            return;
        }
        Account server("t");
        Desk desk(project);
        desk.window.flightsPage()->open(project.path("project"_l1), false);
        const QString words = "This project is read-only: "_l1 + project.path("project"_l1);
        QTRY_VERIFY(desk.find<StateLabel>(desk.window.session().noticeText()));
        QVERIFY(desk.window.session().noticeText().startsWith(words));
        QTRY_VERIFY(desk.window.session().missions()->rowCount() == 1);
        QVERIFY(desk.window.session().missions()->stateText(0).endsWith(
            "16 records wait: the file is read-only"_l1));
        desk.record(interruptedLog());
        QVERIFY2(desk.flight(0).contains("read-only"_l1), qPrintable(desk.flight(0)));
        desk.signIn(QString::fromUtf8(server.url()), "t"_l1);
        QVERIFY(desk.find<StateLabel>(desk.window.session().noticeText()));
        QVERIFY(server.requests.isEmpty());
    }

    /// What the server has of a flight that is discarded is told, and the next flight goes at once.
    void discardsWhatIsOnItsWay()
    {
        const TestProject project;
        Account server("t");
        Desk desk(project);
        desk.signIn(QString::fromUtf8(server.url()), "t"_l1);
        QSignalSpy rearmed(desk.window.session().uploader(), &Uploader::rearmed);
        desk.goTo(2);
        QTest::keyClicks(desk.find<QComboBox>("Speed"_l1), "10"_l1);
        desk.click("Simulate"_l1);
        const MissionModel& missions = *desk.window.session().missions();
        QTRY_VERIFY_WITH_TIMEOUT(missions.rowCount() == 1 && missions.record(0).all().marked > 100, Long);
        desk.click("Stop..."_l1);
        QVERIFY(desk.question().endsWith("What the server has accepted of it stays there."_l1));
        desk.click("Discard it"_l1);
        const FlightModel& flights = *desk.window.session().flights();
        QTRY_VERIFY_WITH_TIMEOUT(!flights.isRunning(0), Long);
        QVERIFY2(desk.flight(0).contains("discarded here; the server has "_l1), qPrintable(desk.flight(0)));
        QTRY_COMPARE(missions.rowCount(), 0);
        QTest::keyClicks(desk.find<QComboBox>("Speed"_l1), "as"_l1);
        desk.drop(project.file("flight.tlog"_l1, interruptedLog()));
        QTRY_VERIFY_WITH_TIMEOUT(missions.rowCount() == 1 && desk.said() == "Everything is uploaded."_l1,
                                 Long);
        QCOMPARE(rearmed.size(), 0);
    }
};

QTEST_MAIN(tst_pilot)
#include "tst_pilot.moc"
