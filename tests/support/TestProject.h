// SPDX-License-Identifier: MIT
#pragma once

#include "KvAlgorthm.h"
#include "KvData.h"
#include "KvLog.h"
#include "KvProjectDbOperator/CKvFlightDataDbOperator.h"

#include <QtNetwork/QNetworkAccessManager>
#include <QtTest/QtTest>

#include <functional>

/// A host: an operator on a file, and signals by which its private slots of the same names are reached.
class Host : public QObject
{
    Q_OBJECT

public:
    explicit Host(EUploadEnv env, const QString& file = {});
    CKvFlightDataDbOperator op;

Q_SIGNALS:
    void slotWriteFlightMonitor(QByteArray);
    void slotParseJson(QJsonArray, QString, QString);
    void slotParseSingleJson(QJsonObject, QString, QString);
    void slotUpdateBreakpoint(int, double, double, QString, double);
    void slotCheckNewData();
    void slotStartUpload();
    void slotStartUploadTimer(bool);
};

/// An uploader that is armed with a token; ticks are given by hand or by its timer. It ends the threads of
/// the upload objects that its operator leaves behind, as some tests make thousands of them.
struct ArmedHost : Host {
    explicit ArmedHost(EUploadEnv env, const QString& file = {}, const QByteArray& token = "token");
    ~ArmedHost() override;
    bool eventFilter(QObject* watched, QEvent* event) override; ///< sees the replies that come
    /// The way out after a pause or the end of a pass, where the file is closed.
    void rearm(const QString& file);

    QSignalSpy uploading;
    QSignalSpy finished;
    QSignalSpy missions;

private:
    QList<QPointer<QNetworkAccessManager>> m_managers;
};

/// Writes numbered messages of the mission "m1".
struct Recorder : Host {
    explicit Recorder(const QString& file, EUploadEnv env = EUploadEnv::None) : Host(env, file)
    {
        op.SetFilghtMissionID("m1");
        connect(&op, &CKvFlightDataDbOperator::RecBreakPointRet, this, [this](bool done) { stored = done; });
    }
    void write(int messages)
    {
        for (int i = 0; i < messages; ++i) {
            Q_EMIT slotWriteFlightMonitor(QByteArray::number(written++));
        }
    }
    int written = 0;
    bool stored = true;
    const QSignalSpy finished{&op, SIGNAL(WriteDBFinished(QString, uint, QString))};
};

/// The tables of the upload chain, in its order.
const QStringList Tables = {"flight_mission", "pos_data", "uas_status", "flight_monitor_detail_log"};

CKvControl* control();

/// Sets the user's token.
void signIn(const QString& token);

/// A number of the environment, or another one where it has none.
int environmentNumber(const char* name, int otherwise);

/// What is logged with a level of the threshold and above while a function runs: the level's number, a blank
/// and the line.
QStringList loggedBy(Level threshold, const std::function<void()>& function);

/// A project folder of its own that goes with the object; it is the current project.
class TestProject
{
public:
    TestProject() { control()->SetProjectDirPath(m_dir.path()); }

    QString path(const QString& name) const { return m_dir.filePath(name); }
    /// Makes an empty file or one with the given bytes, and its folder.
    QString file(const QString& name, const QByteArray& bytes = {}) const;
    /// The bytes of a file.
    static QByteArray contents(const QString& path);
    /// The mission files in all its folders, sorted.
    QStringList missionFiles(const QString& pattern = "*.kv") const;
    /// Makes a mission file with all tables.
    QString missionFile(const QString& name) const;

    /// Runs statements on a mission file, in one transaction, beside any operator; false when one failed.
    static bool run(const QString& file, const QStringList& statements);
    /// First column of all rows, of the first one, and in one text with blanks between.
    static QVariantList values(const QString& file, const QString& sql);
    static QVariant value(const QString& file, const QString& sql) { return values(file, sql).value(0); }
    static QString text(const QString& file, const QString& sql);
    /// The rows of tables of which a condition holds, as "table/id".
    static QSet<QString> rows(const QString& file, const QString& condition = "1",
                              const QStringList& tables = Tables);
    /// Rows of a table that wait for upload, and of all four.
    static int waiting(const QString& file, const QString& table);
    static int waiting(const QString& file);

    /// Inserts a mission row and waiting rows of each kind.
    static void addMission(const QString& file, const QString& id, int positions, int status, int log);

private:
    QTemporaryDir m_dir;
};

/// A project with one mission file, which holds the mission "m1" and so many waiting rows if they are given.
struct FlightProject : TestProject {
    FlightProject() = default;
    FlightProject(int positions, int status, int log) { addMission(db, "m1", positions, status, log); }
    template<class... Texts>
    bool run(const Texts&... sql) const
    {
        return TestProject::run(db, {QString(sql)...});
    }
    QString text(const QString& sql) const { return TestProject::text(db, sql); }
    int waiting(const QString& table) const { return TestProject::waiting(db, table); }
    const QString db = missionFile("m1/flight.kv");
};
