// SPDX-License-Identifier: MIT
#include "support/Rows.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"

#include <map>
#include <memory>

namespace
{
const QString Video = QStringLiteral("flight_video_mission");

/// The requests of an upload: the path, how often it has been asked for then, and the table that it marks.
struct RequestKind {
    QByteArray path;
    int number;
    QString table;
};
const QList<RequestKind> Kinds = {
    {"/flight/upload", 1, Tables[0]},          {"/flight/posupload", 1, Tables[1]},
    {"/flight/uasstatusupload", 1, Tables[2]}, {"/flight/detailupload", 1, Tables[3]},
    {"/flight/detailupload", 2, Tables[3]},    {"/flight/upload4video", 1, Video},
};

/// A mission of its own, in whose upload one request meets the fault.
struct Case {
    int kind = 0;
    QString file;
    std::unique_ptr<ArmedHost> uploader;
    bool failed = false;
    bool wrong = false; ///< something else was marked than what had been accepted
    QHash<QByteArray, int> asked;
    QSet<QString> accepted;

    bool isVideo() const { return Kinds[kind].table == Video; }
    bool reaches(int request, const QByteArray& path) const
    {
        return path == Kinds[request].path && asked.value(path) + 1 == Kinds[request].number;
    }
    QSet<QString> rows(const char* uploaded) const
    {
        return TestProject::rows(file, QString("is_uploaded = ") + uploaded, Tables + QStringList{Video});
    }
};
} // namespace

class tst_network : public QObject
{
    Q_OBJECT

private:
    ScriptedServer m_server;
    std::map<QByteArray, Case> m_cases; ///< by token

    void start(const TestProject& project, int kind)
    {
        const QByteArray token = "secret-t0ken-" + QByteArray::number(kind);
        Case& c = m_cases[token];
        c.kind = kind;
        c.file = project.missionFile(QString("%1/flight.kv").arg(kind));
        TestProject::addMission(c.file, "m1", 3, 2, 1100);
        const EUploadEnv env = c.isVideo() ? EUploadEnv::CurrentMissionLog : EUploadEnv::OncePerRequest;
        c.uploader = std::make_unique<ArmedHost>(env, c.file, token);
        if (c.isVideo()) {
            TestProject::run(c.file, {"INSERT INTO flight_video_mission(id) VALUES('m1')"});
            c.uploader->op.SetFilghtMissionID("m1");
            c.uploader->op.SetFlightModeEasyFly(true);
        }
        Q_EMIT c.uploader->slotStartUpload();
    }
    ScriptedServer::Reply answer(const PostedRequest& request, const QString& behaviour, bool accepts)
    {
        Case& c = m_cases.at(request.headers.value("token"));
        // The video mission is sent beside the chain, so a reply may be under way to one of the two.
        const QSet<QString> marked = c.rows("1");
        c.wrong = c.wrong || (c.isVideo() ? !c.accepted.contains(marked) : c.accepted != marked);
        const bool faulty = !c.failed && c.reaches(c.kind, request.path);
        ++c.asked[request.path];
        if (faulty) {
            c.failed = true;
            if (accepts) {
                c.accepted += request.rows();
            }
            QString reply = behaviour;
            reply.replace("@T", request.headers.value("token")).replace("@H", QString(20000000, 'h'));
            return ScriptedServer::reply(reply);
        }
        c.accepted += request.rows();
        return ScriptedServer::accepted();
    }

private Q_SLOTS:
    void cleanup() { m_cases.clear(); }

    /// The fault at every request of an upload, each of a mission of its own at the same time: exactly what
    /// was accepted is marked, and everything arrives once the fault is over.
    void networkFaults_data() { addRows(); }
    void networkFaults()
    {
        const QString behaviour = cell("behaviour");
        m_server.script = [&](const PostedRequest& request) {
            return answer(request, behaviour, cell("accepted") == "yes");
        };
        m_server.hangUp = [&](const PostedRequest& request, int received) {
            Case& c = m_cases.at(request.headers.value("token"));
            const bool now = behaviour == "hang up before" || (behaviour == "hang up within" && received > 0);
            const bool breaks = now && !c.failed && c.reaches(c.kind, request.path);
            c.failed = c.failed || breaks;
            return breaks;
        };
        const TestProject project;
        const QStringList log = loggedBy(Level::Trace, [&] {
            for (int kind = 0; kind < Kinds.size(); ++kind) {
                start(project, kind);
            }
            for (auto& [token, c] : m_cases) {
                QTRY_VERIFY2_WITH_TIMEOUT(c.rows("0").isEmpty(), token, 60000);
                QVERIFY2(!c.wrong, token);
                QCOMPARE(c.rows("1"), c.accepted);
                QVERIFY2(c.failed, token);
            }
        });
        QVERIFY(!log.isEmpty());
        for (const QString& line : log) {
            QVERIFY2(!line.contains("t0ken"), qPrintable(line.left(300)));
        }
    }
};

QTEST_GUILESS_MAIN(tst_network)
#include "tst_network.moc"
