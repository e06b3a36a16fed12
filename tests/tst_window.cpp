// SPDX-License-Identifier: MIT
#include "command/EndSignals.h"
#include "support/Crowd.h"
#include "support/Desk.h"
#include "window/ConnectDialog.h"
#include "words/Failure.h"

#include <csignal>

class tst_window : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QApplication::setStyle(new theme::Style);
    }

    /// A day in the field: the flight breaks off, the server breaks and recovers, the token runs out.
    void recordsAndUploads()
    {
        const TestProject project;
        Desk desk(project);
        Account server("first");
        desk.record(interruptedLog());
        const auto breakpoint = desk.window.session().flights()->breakpoint(0);
        QVERIFY(breakpoint);

        QStringList said;
        connect(desk.window.session().uploader(), &Uploader::changed, &desk.window,
                [&] { said.append(desk.said()); });
        server.trouble = "slam"_l1;
        desk.signIn(QString::fromUtf8(server.url()), "first"_l1);
        QTRY_VERIFY2_WITH_TIMEOUT(desk.said().contains(" records are safe here. "_l1),
                                  qPrintable(desk.said()), 9000);
        said.clear();
        const int requests = server.requests.size();
        QTRY_VERIFY_WITH_TIMEOUT(server.requests.size() > requests + 1, Long);
        QVERIFY2(said.filter("Sending"_l1).isEmpty(), qPrintable(said.join(u'\n'))); // a try is no success
        server.trouble.clear();
        server.holdLog = true;
        QTRY_VERIFY_WITH_TIMEOUT(server.held, Long);
        QTRY_VERIFY(desk.said().startsWith("Sending log rows of flight"_l1));
        server.token = "second";
        server.answer(true);
        QTRY_VERIFY_WITH_TIMEOUT(desk.find<QPushButton>("Enter token"_l1), Long);
        desk.goTo(1);
        desk.click("Enter token"_l1);
        QTRY_COMPARE(desk.window.tabs()->currentIndex(), 2);
        QCOMPARE(QApplication::focusWidget(), desk.find<QLineEdit>("Token"_l1));
        QTest::keyClicks(QApplication::focusWidget(), "second"_l1);
        desk.press(Qt::Key_Return);
        QTRY_COMPARE_WITH_TIMEOUT(desk.said(), "Everything is uploaded."_l1, Long);
        QCOMPARE(server.stored, desk.ids());
        for (const char* words :
             {"Trying again in 1 s.", "Sending positions of flight", "Sending status rows of flight"}) {
            QVERIFY2(!said.filter(QLatin1String(words)).isEmpty(), words);
        }
        for (const PostedRequest& request : server.requests) {
            if (request.path == "/flight/upload") {
                QCOMPARE(request.records().first().toObject()["break_point_lng"_l1].toString(),
                         QString::number(breakpoint->lng, 'f', 6));
            }
        }
    }

    /// What is stopped by hand is kept or discarded, and was not interrupted in the air.
    void stopsAsAsked()
    {
        const TestProject project;
        Desk desk(project);
        desk.goTo(2);
        QTest::keyClicks(desk.find<QComboBox>("Speed"_l1), "flight"_l1);
        FlightModel& flights = *desk.window.session().flights();
        for (const auto& [answer, files] :
             {std::pair("Go on recording", true), {"Discard it", false}, {"Keep it", true}}) {
            if (flights.rowCount() == 0 || !flights.isRunning(flights.rowCount() - 1)) {
                desk.click("Simulate"_l1);
                QTRY_VERIFY(QFileInfo(desk.file()).size() > 0);
            }
            desk.click("Stop..."_l1);
            QVERIFY(desk.question().startsWith("Stop recording simulated-"_l1));
            desk.click(QLatin1String(answer));
            const bool goesOn = QLatin1String(answer) == "Go on recording"_l1;
            QTRY_VERIFY_WITH_TIMEOUT(flights.isRunning(flights.rowCount() - 1) == goesOn, Long);
            QCOMPARE(!desk.file().isEmpty(), files);
        }
    }

    void uploadsEasyFlyMissions()
    {
        const TestProject project;
        Desk desk(project);
        desk.format = &MissionFormat::video();
        Account server("t");
        desk.goTo(2);
        desk.click("Easy-fly"_l1);
        desk.record(interruptedLog());
        desk.signIn(QString::fromUtf8(server.url()), "t"_l1);
        QTRY_COMPARE_WITH_TIMEOUT(desk.said(), "Everything is uploaded."_l1, Long);
        QVERIFY(server.stored.isEmpty()); // the flight missions are meant
        desk.click("Easy-fly missions"_l1);
        QTRY_VERIFY_WITH_TIMEOUT(server.stored.contains(desk.ids()), Long);
        QTRY_COMPARE(desk.said(), "Everything is uploaded."_l1);
    }

    /// An answer, good or bad, comes while the upload is paused or once it goes on.
    void pauses()
    {
        for (const bool accepted : {true, false}) {
            for (const bool paused : {true, false}) {
                const TestProject project;
                Desk desk(project);
                Account server("t");
                server.holdLog = true;
                desk.record(interruptedLog());
                desk.signIn(QString::fromUtf8(server.url()), "t"_l1);
                QTRY_VERIFY_WITH_TIMEOUT(server.held, Long);
                const int waiting = desk.waiting("flight_monitor_detail_log"_l1);
                desk.click("Pause"_l1);
                if (paused) {
                    const int requests = server.requests.size();
                    server.answer(accepted);
                    QSignalSpy looks(&desk.window.session(), &WindowSession::looked);
                    QTRY_VERIFY(looks.size() >= 4); // more than two intervals, in which nothing may come
                    QCOMPARE(server.requests.size(), requests);
                    QCOMPARE(desk.waiting("flight_monitor_detail_log"_l1), waiting);
                    QVERIFY(desk.said().startsWith("Paused."_l1));
                }
                desk.click("Start"_l1);
                if (!paused) {
                    server.answer(accepted);
                }
                QTRY_COMPARE_WITH_TIMEOUT(desk.said(), "Everything is uploaded."_l1, Long);
                QCOMPARE(server.stored, desk.ids());
            }
        }
    }

    /// The window is closed, or its process told to end, while it records and uploads: what was received is
    /// in the file, whole, and goes with the next window.
    void closesInTheMiddle()
    {
        for (const bool told : {false, true}) {
            Account server("t");
            const TestProject project;
            auto desk = std::make_unique<Desk>(project);
            desk->signIn(QString::fromUtf8(server.url()), "t"_l1);
            desk->goTo(2);
            QTest::keyClicks(desk->find<QComboBox>("Speed"_l1), "10"_l1);
            desk->click("Simulate"_l1);
            QTRY_VERIFY_WITH_TIMEOUT(!server.requests.isEmpty() && server.requests.last().path == LogPath,
                                     Long);
            const EndSignals endSignals;
            QTimer::singleShot(0, &desk->window, [&] {
                told ? (void)::raise(SIGTERM) : desk->closeAsking("Go on recording"_l1);
                told ? (void)0 : desk->closeAsking("Stop and close"_l1);
            });
            QCOMPARE(QApplication::exec(), 0);
            desk.reset();
            desk = std::make_unique<Desk>(project);
            QCOMPARE(TestProject::text(desk->file(), "SELECT result FROM flight_complete"_l1),
                     "incomplete"_l1);
            QVERIFY(!MissionsOfFile::read(desk->file()).missions.first().breakpoint);
            desk->signIn(QString::fromUtf8(server.url()), "t"_l1);
            QTRY_COMPARE_WITH_TIMEOUT(desk->said(), "Everything is uploaded."_l1, Long);
            QCOMPARE(server.stored, desk->ids());
        }
    }

    void refusesLinks()
    {
        const TestProject project;
        Desk desk(project);
        desk.goTo(2);
        const Station other(Project::open(project.path("project"_l1)), {});
        const auto* const text = desk.window.recordPage()->links()->findChild<StateLabel*>();
        desk.click("Connect..."_l1);
        for (const auto& [links, words] :
             {std::pair(" \n", "Enter a link."),
              {"udp::14550\ncarrier:pigeon", "carrier:pigeon: unknown kind of link"},
              {"udp::1\nudp::1", "udp::1: on the same port"},
              {"serial:/dev/null", "serial:/dev/null:57600: no serial line"},
              {"udp:127.0.0.1:0", "Another program records into this project"}}) {
            desk.enterLinks(QLatin1String(links));
            QTRY_VERIFY2(text->text().startsWith(QLatin1String(words)), qPrintable(text->text()));
        }
        desk.click("Cancel"_l1);
        QTRY_VERIFY(desk.find<QPushButton>("Connect..."_l1)->isEnabled());
    }

    /// One lands and one is in the air when the window disconnects; every fourth frame of one is lost.
    void recordsVehicles()
    {
        const TestProject project;
        Desk desk(project);
        const auto wire = desk.listen();
        const QList<QByteArray> lands = flightOf(1);
        const QList<QByteArray> flies = flightOf(2, true);
        int sent = 0;
        const auto send = [&](double from, double to) {
            for (int i = int(from * lands.size()); i < int(to * lands.size()); ++i) {
                wire->send(i % 4 == 3 ? QByteArray() : lands[i]);
                sent += i % 4 != 3;
            }
            for (int i = int(from * flies.size()); i < int(to * flies.size()); ++i) {
                wire->send(flies[i]);
            }
        };
        send(0, 0.3);
        const FlightModel& flights = *desk.window.session().flights();
        for (const auto& [row, words] : {std::pair(0, "vehicle 1; link 7"), {1, "vehicle 2; link 100 %"}}) {
            QTRY_VERIFY2(desk.flight(row).contains("armed, "_l1), qPrintable(desk.flight(row)));
            QVERIFY2(desk.flight(row).startsWith(QLatin1String(words)), qPrintable(desk.flight(row)));
        }
        send(0.3, 1);
        QTRY_VERIFY_WITH_TIMEOUT(flights.rowCount() == 3, Long);
        QVERIFY2(desk.flight(2).endsWith(QStringLiteral("%1 messages").arg(sent)),
                 qPrintable(desk.flight(2)));
        QVERIFY(flights.track(2).samples().size() > 20);
        desk.window.recordPage()->select(1);
        QVERIFY_EXCEPTION_THROWN(desk.window.session().openProject(project.path("other"_l1), true), Failure);

        desk.click("Disconnect"_l1);
        QTRY_VERIFY_WITH_TIMEOUT(desk.find<QPushButton>("Connect..."_l1), Long);
        QCOMPARE(flights.rowCount(), 2);
        QVERIFY2(desk.flight(1).contains(
                     QStringLiteral("%1 messages, station ended, breakpoint at").arg(flies.size())),
                 qPrintable(desk.flight(1)));
        desk.listen();
    }

    void downloads()
    {
        ScriptedServer server;
        server.script = [](const PostedRequest& request) {
            return request.path == "/gone.bin"   ? ScriptedServer::reply("404 gone"_l1)
                   : request.path == "/slow.bin" ? ScriptedServer::file("begun", 1000000)
                                                 : ScriptedServer::file(QByteArray(300000, 'f'));
        };
        const TestProject project;
        Desk desk(project);
        desk.goTo(4);
        for (const auto way : {FileDownload::Way::Direct, FileDownload::Way::Program}) {
            DownloadPanel* const panel = desk.window.downloadPage()->panel(way);
            const auto says = [panel](const QString& text) {
                const auto labels = panel->findChildren<QLabel*>();
                return std::any_of(labels.begin(), labels.end(),
                                   [&](QLabel* l) { return l->text().startsWith(text); });
            };
            const QString to = project.path("fetched.bin"_l1);
            panel->start(QString::fromUtf8(server.url() + "/gone.bin"), to);
            QTRY_VERIFY_WITH_TIMEOUT(says("Failed: "_l1), Long);
            panel->start(QString::fromUtf8(server.url() + "/slow.bin"), to);
            QTRY_COMPARE(server.requests.last().path, QByteArray("/slow.bin"));
            QTest::mouseClick(panel->findChild<QPushButton*>("stop"_l1), Qt::LeftButton);
            QTRY_VERIFY_WITH_TIMEOUT(says("Failed: stopped"_l1), Long);
            QVERIFY(!QFile::exists(to));
            panel->start(QString::fromUtf8(server.url() + "/file.bin"), to);
            QTRY_VERIFY_WITH_TIMEOUT(says("Done: 300,000 bytes"_l1), Long);
            QVERIFY(QFile::remove(to));
        }
    }

    /// Not a check but a figure: run with KV_ROWS=100000, perhaps KV_VEHICLES=10, and the release preset.
    void longestPause()
    {
        const TestProject project;
        const int rows = qMax(2000, qEnvironmentVariableIntValue("KV_ROWS"));
        const int positions = qMax(1000, qEnvironmentVariableIntValue("KV_POSITIONS"));
        TestProject::addMission(project.missionFile("project/old/flight.kv"_l1), "m"_l1, positions, 1000,
                                rows);
        for (int i = qEnvironmentVariableIntValue("KV_FILES"); i > 0; --i) {
            const QString id = QStringLiteral("m%1").arg(i);
            TestProject::addMission(project.missionFile("project/"_l1 + id + "/flight.kv"_l1), id, 5, 5, 5);
        }
        const IngestServer server({});
        Desk desk(project);
        desk.goTo(2);
        QTest::keyClicks(desk.find<QComboBox>("Speed"_l1), "10"_l1);
        desk.click("Simulate"_l1);
        const auto port = quint16(desk.listen()->link().section(u':', -1).toUInt());
        const int vehicles = qEnvironmentVariableIntValue("KV_VEHICLES");
        Crowd swarm; // a thread for each, two hundred frames a second
        for (int system = 1; system <= vehicles; ++system) {
            swarm.add([port, flight = flightOf(quint8(system), true), socket = std::shared_ptr<QUdpSocket>(),
                       sent = 0]() mutable {
                if (!socket) {
                    socket = std::make_shared<QUdpSocket>();
                }
                socket->writeDatagram(flight.at(sent++ % flight.size()), QHostAddress::LocalHost, port);
                QThread::msleep(5);
            });
        }
        QTRY_COMPARE(desk.window.session().flights()->rowCount(), 1 + vehicles);
        desk.window.uploadPage()->setServer(server.url);
        desk.window.uploadPage()->signIn("t"_l1);
        desk.window.gaps().restart();
        desk.window.tabs()->setCurrentIndex(0);
        QTRY_VERIFY(desk.window.session().missions()->rowCount() > 1);
        QSignalSpy read(desk.window.session().reader(), &FlightReader::profiled);
        QElapsedTimer opening;
        opening.start();
        MissionModel& missions = *desk.window.session().missions();
        desk.window.flightsPage()->flightView()->show(-1);
        for (int row = 0; row < missions.rowCount(); ++row) {
            if (missions.record(row).id == "m"_l1) {
                desk.window.flightsPage()->flightView()->show(row);
            }
        }
        QTRY_VERIFY(!read.isEmpty());
        const qint64 seen = opening.elapsed();
        QTRY_VERIFY_WITH_TIMEOUT(positions < 5000 || read.size() > 1, Long);
        qInfo("%d positions opened in %lld ms, with every peak after %lld ms, longest pause %.0f ms",
              positions, seen, opening.elapsed(), desk.window.gaps().longestMilliseconds());
        desk.window.tabs()->setCurrentIndex(1);
        QTRY_VERIFY_WITH_TIMEOUT(missions.backlog(false).settled > rows, 300000);
        desk.click("Disconnect"_l1);
        QTRY_VERIFY_WITH_TIMEOUT(desk.find<QPushButton>("Connect..."_l1), Long);
        QTest::setBenchmarkResult(desk.window.gaps().longestMilliseconds(), QTest::WalltimeMilliseconds);
    }
};

QTEST_MAIN(tst_window)
#include "tst_window.moc"
