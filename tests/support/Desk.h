// SPDX-License-Identifier: MIT
#pragma once

#include "support/FlightLog.h"
#include "support/ScriptedServer.h"
#include "support/Wire.h"
#include "window/DownloadPage.h"
#include "window/FlightsPage.h"
#include "window/FlightView.h"
#include "window/MainWindow.h"
#include "window/RecordPage.h"
#include "window/StateLabel.h"
#include "window/TableViews.h"
#include "window/Theme.h"
#include "window/UploadPage.h"

#include <QtWidgets/QtWidgets>

const QByteArray LogPath = "/flight/detailupload";
constexpr int Long = 30000; // milliseconds, for what takes the operator's own waits

/// The frames of a flight that breaks off in the air, as a telemetry log. With KV_LOG set the first half of
/// that log, which ends in the air as well.
inline QByteArray interruptedLog()
{
    if (qEnvironmentVariableIsSet("KV_LOG")) {
        QFile real(qEnvironmentVariable("KV_LOG"));
        if (!real.open(QIODevice::ReadOnly)) {
            qFatal("cannot read %s", qPrintable(real.fileName()));
        }
        return real.read(real.size() / 2);
    }
    FlightSimulator flight(4, 0, 2, true);
    QByteArray log;
    for (TelemetryFrame frame; flight.next(&frame);) {
        log += frame.logRecord();
    }
    return log;
}

/// A window on a project of its own, worked with mouse and keys.
struct Desk {
    explicit Desk(const TestProject& itsProject) : project(itsProject)
    {
        window.resize(1280, 800);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QApplication::setActiveWindow(&window); // no window manager does it
        window.flightsPage()->open(project.path("project"_l1), true);
    }

    QString file() const { return project.missionFiles(u'*' + format->suffix).value(0); }
    int waiting(const QString& table) const { return TestProject::waiting(file(), table); }
    QSet<QString> ids() const { return TestProject::rows(file(), "1"_l1, format->uploadKinds); }

    /// The widget that a label's or a button's text is about, on the page that is seen.
    template<class Widget>
    Widget* find(const QString& text) const
    {
        for (auto* widget : window.findChildren<Widget*>()) {
            const QVariant own = widget->property("text");
            if (widget->isVisible() &&
                (own.toString().remove(u'&') == text || widget->accessibleName() == text)) {
                return widget;
            }
        }
        for (auto* label : window.findChildren<QLabel*>()) {
            if (label->isVisible() && label->text().remove(u'&') == text + u':') {
                return qobject_cast<Widget*>(label->buddy());
            }
        }
        return nullptr;
    }
    void click(const QString& button) const
    {
        auto* const widget = find<QAbstractButton>(button);
        QVERIFY2(widget && widget->isEnabled(), qPrintable(button));
        QTest::mouseClick(widget, Qt::LeftButton);
    }
    void press(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : &window, Qt::Key(key),
                        modifiers);
    }
    void goTo(int page)
    {
        press(Qt::Key_0 + page, Qt::ControlModifier);
        QTRY_COMPARE(window.tabs()->currentIndex(), page - 1);
    }
    void type(const QString& field, const QString& text) const
    {
        auto* const edit = find<QLineEdit>(field);
        QVERIFY2(edit, qPrintable(field));
        QTest::mouseClick(edit, Qt::LeftButton);
        edit->selectAll();
        QTest::keyClicks(edit, text);
    }
    void signIn(const QString& server, const QString& token)
    {
        goTo(3);
        type("Server"_l1, server);
        press(Qt::Key_Tab);
        QTest::keyClicks(QApplication::focusWidget(), token);
        press(Qt::Key_Return);
        auto* const interval = find<QSpinBox>("Retry after"_l1);
        interval->setValue(1);
    }
    void drop(const QString& path)
    {
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(path)});
        QWidget* const page = window.recordPage();
        QDragEnterEvent enter(page->rect().center(), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QVERIFY(QApplication::sendEvent(page, &enter) && enter.isAccepted());
        QDropEvent drop(page->rect().center(), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(page, &drop);
    }
    void record(const QByteArray& log)
    {
        goTo(2);
        QTest::keyClicks(find<QComboBox>("Speed"_l1), "as"_l1);
        drop(project.file("flight.tlog"_l1, log));
        QTRY_VERIFY_WITH_TIMEOUT(
            window.session().flights()->rowCount() == 1 && !window.session().flights()->isRunning(0), Long);
    }
    void enterLinks(const QString& links) const
    {
        find<QPlainTextEdit>("Links, one in each line"_l1)->setPlainText(links);
        click("Connect"_l1);
    }
    /// Connects to a wire of UDP.
    std::unique_ptr<Wire> listen()
    {
        const LiveStation& station = *window.session().station();
        goTo(2);
        click("Connect..."_l1);
        enterLinks("udp:127.0.0.1:0"_l1);
        [&] { QTRY_VERIFY(station.text().endsWith(": 0 frames, 0 lost"_l1)); }();
        auto wire = Wire::make("udp"_l1);
        wire->noteUp(station.text().section(": "_l1, 0, 0));
        return wire;
    }
    /// Name, progress and state of a flight or a vehicle.
    QString flight(int row) const
    {
        const FlightModel& flights = *const_cast<MainWindow&>(window).session().flights();
        QStringList cells;
        for (int column = 0; column < FlightModel::ColumnCount; ++column) {
            cells.append(flights.index(row, column).data().toString());
        }
        return cells.join("; "_l1);
    }
    /// The window on a page is closed, and one of the buttons of the question answers.
    void closeAsking(const QString& answer)
    {
        window.close();
        QVERIFY(window.isVisible());
        click(answer);
    }
    QString question() const
    {
        const auto* const box = window.findChild<QMessageBox*>();
        return box ? box->text() : QString();
    }
    QString said() const { return const_cast<MainWindow&>(window).session().uploadText(); }

    const TestProject& project;
    const MissionFormat* format = &MissionFormat::flight();
    MainWindow window{QString()};
};

/// A server with a token, which may hold back what it says to log rows.
struct Account : ScriptedServer {
    explicit Account(QByteArray rightToken) : token(std::move(rightToken))
    {
        SetServerIP("http://127.0.0.1:1"); // until the window names this one
        script = [this](const PostedRequest& request) {
            if (!trouble.isEmpty()) {
                return reply(trouble);
            }
            if (request.headers["token"] != token) {
                return reply(R"(200 {"status":403,"message":"who are you"})"_l1);
            }
            held = held || (holdLog && request.path == LogPath);
            return holdLog && request.path == LogPath ? Reply() : accepted();
        };
    }
    /// Answers what was held back.
    void answer(bool accepts)
    {
        holdLog = false;
        stored += accepts ? requests.last().rows() : QSet<QString>();
        sendMore(LogPath, reply(QLatin1String(accepts ? R"(200 {"status":0})" : R"(200 {"status":9})")).wire);
    }
    QByteArray token;
    QString trouble; ///< every reply
    bool holdLog = false;
    bool held = false;
};
