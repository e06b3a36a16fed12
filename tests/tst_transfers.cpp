// SPDX-License-Identifier: MIT
#include "KvProjectDbOperator/CKvDownLoadObject.h"
#include "KvProjectDbOperator/CKvDownLoadObjectEX.h"
#include "KvProjectDbOperator/CKvUpLoadObject.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"

#include <QtCore/QPointer>

/// Does one thing, once, when its sender signals.
class Receiver : public QObject
{
    Q_OBJECT

public:
    Receiver(QObject* sender, const QByteArray& signal, QByteArray deed)
        : m_sender(sender), m_deed(std::move(deed))
    {
        connect(sender, ('2' + signal).constData(), this, SLOT(act()));
    }
    int acts = 0;

private Q_SLOTS:
    void act()
    {
        if (++acts > 1) {
            return;
        }
        QEventLoop loop;
        QTimer::singleShot(200, &loop, &QEventLoop::quit);
        if (m_deed == "loop") {
            loop.exec();
        } else if (m_deed == "delete") {
            delete m_sender;
        } else if (m_deed == "delete later") {
            m_sender->deleteLater();
        } else if (m_deed == "request") {
            QMetaObject::invokeMethod(m_sender, "slotRequestData");
        } else if (m_deed == "request in a loop") {
            QMetaObject::invokeMethod(m_sender, "slotRequestData", Qt::QueuedConnection);
            loop.exec();
        } else if (m_deed == "delete in a loop") {
            QTimer::singleShot(0, &loop, [this] { delete m_sender; });
            loop.exec();
        }
    }

private:
    QPointer<QObject> m_sender;
    QByteArray m_deed;
};

/// Receivers may do anything with the object whose signal they have got.
class tst_transfers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void receivers()
    {
        struct Case {
            const char* object;
            const char* signal;
            const char* reply;
        };
        for (const Case& c : {
                 Case{"upload", "upLoadFinished(QByteArray)", R"(200 {"status":0})"},
                 Case{"upload", "NetWorkError()", R"(200 {"status":5})"},
                 Case{"upload", "NetWorkError()", "reset"},
                 Case{"upload", "NoLogin()", R"(200 {"status":401})"},
                 Case{"upload", "uploadProgress(qint64,qint64)", R"(200 {"status":0})"},
                 Case{"download", "downLoadFinished()", "200 whole"},
                 Case{"download", "NetWorkError()", "404 gone"},
                 Case{"download", "NetWorkError()", "cut"},
                 Case{"download", "downloadProgress(qint64,qint64)", "200 whole"},
                 Case{"external", "downLoadFinished()", "200 whole"},
                 Case{"external", "NetWorkError()", "404 gone"},
                 Case{"external", "downloadProgress(qint64,qint64)", "slowly 200 whole"},
             }) {
            for (const char* const deed : {"nothing", "loop", "delete", "delete later", "request",
                                           "request in a loop", "delete in a loop"}) {
                receive(c.object, c.signal, QLatin1String(c.reply), deed);
                QVERIFY2(!QTest::currentTestFailed(),
                         qPrintable(QStringList({QLatin1String(c.object), QLatin1String(c.signal),
                                                 QLatin1String(c.reply), QLatin1String(deed)})
                                        .join(u' ')));
            }
        }
    }

private:
    static void receive(const QByteArray& object, const QByteArray& signal, const QString& reply,
                        const QByteArray& deed)
    {
        const TestProject home;
        SetHomeDir(home.path(""_l1));
        QVERIFY(QDir().mkpath(home.path("TmpData"_l1)));
        ScriptedServer server(ScriptedServer::reply(reply));
        const QPointer<QObject> sender = make(object, server.url() + "/file.bin");
        const Receiver receiver(sender, signal, deed);
        QMetaObject::invokeMethod(sender, "slotRequestData");
        QTRY_VERIFY(receiver.acts > 0);
        QTRY_COMPARE(sender.isNull(), deed.startsWith("delete"));
        if (deed.startsWith("request")) {
            QTRY_VERIFY(server.requests.size() >= 2 || object == "external");
        }
        if (!sender) {
            const QString task =
                QStringLiteral("/proc/self/task/%1/children").arg(QCoreApplication::applicationPid());
            QCOMPARE(TestProject::contents(task), QByteArray()); // the download program is no zombie either
        } else {                                                 // fit for another request
            const int requests = server.requests.size();
            QTRY_VERIFY(QMetaObject::invokeMethod(sender, "slotRequestData") &&
                        QTest::qWaitFor([&] { return server.requests.size() > requests; }, 500));
            delete sender;
        }
    }
    static QObject* make(const QByteArray& object, const QByteArray& url)
    {
        const auto at = [&](auto* transfer) -> QObject* {
            transfer->SetUrl(url);
            return transfer;
        };
        return object == "upload"     ? at(new CKvUpLoadObject)
               : object == "download" ? at(new CKvDownLoadObject)
                                      : at(new CKvDownLoadObjectEX);
    }
};

QTEST_GUILESS_MAIN(tst_transfers)
#include "tst_transfers.moc"
