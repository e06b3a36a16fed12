// SPDX-License-Identifier: MIT
#include "TestProject.h"

#include <QtSql/QSqlError>

Host::Host(EUploadEnv env, const QString& file) : op(nullptr, env)
{
    for (int i = staticMetaObject.methodOffset(); i < staticMetaObject.methodCount(); ++i) {
        const QByteArray signature = staticMetaObject.method(i).methodSignature();
        connect(this, '2' + signature, &op, '1' + signature); // as SIGNAL() and SLOT() write them
    }
    if (!file.isEmpty()) {
        op.SetFlightMissionFilePath(file);
    }
}

ArmedHost::ArmedHost(EUploadEnv env, const QString& file, const QByteArray& token)
    : Host(env, file)
    , uploading(&op, SIGNAL(UpLoading(QString, QString)))
    , finished(&op, SIGNAL(UploadFinished(QString, QString)))
    , missions(&op, SIGNAL(signalUploadFlightMissionFinish()))
{
    signIn(token);
    op.SetStartTimeInterval(1000000); // no tick of its own before a cycle has run
    Q_EMIT slotCheckNewData();
    op.SetStartTimeInterval(10);
    QCoreApplication::instance()->installEventFilter(this);
}

ArmedHost::~ArmedHost()
{
    for (const QPointer<QNetworkAccessManager>& manager : qAsConst(m_managers)) {
        if (manager) {
            manager->clearConnectionCache();
        }
    }
}

bool ArmedHost::eventFilter(QObject* watched, QEvent* event)
{
    const auto* const reply = qobject_cast<QNetworkReply*>(watched);
    if (reply && !m_managers.contains(reply->manager())) {
        m_managers.append(reply->manager());
    }
    return Host::eventFilter(watched, event);
}

void ArmedHost::rearm(const QString& file)
{
    op.SetFlightMissionFilePath(file);
    Q_EMIT slotStartUploadTimer(true);
    Q_EMIT slotCheckNewData();
}

CKvControl* control()
{
    return CKvControl::GetInstance(false, EPlaneType::Multirotor);
}

void signIn(const QString& token)
{
    SKvUserInfo user;
    user.m_strToken = token;
    SetCurUserInfo(user);
}

int environmentNumber(const char* name, int otherwise)
{
    bool ok = false;
    const int number = qEnvironmentVariableIntValue(name, &ok);
    return ok ? number : otherwise;
}

QStringList loggedBy(Level threshold, const std::function<void()>& function)
{
    QStringList lines;
    Logger& logger = Logger::instance();
    logger.setListener([&lines](Level level, const QString& line) {
        lines.append(QString::number(static_cast<int>(level)) + ' ' + line);
    });
    logger.setLoggingLevel(threshold);
    function();
    logger.setLoggingLevel(Level::Warn);
    logger.setListener({});
    return lines;
}

QString TestProject::file(const QString& name, const QByteArray& bytes) const
{
    QString full = path(name);
    QDir().mkpath(QFileInfo(full).path());
    QFile file(full);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        qFatal("cannot write %s", qPrintable(full));
    }
    return full;
}

QByteArray TestProject::contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

QStringList TestProject::missionFiles(const QString& pattern) const
{
    QStringList found;
    QDirIterator files(m_dir.path(), {pattern}, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        found.append(files.next());
    }
    found.sort();
    return found;
}

QString TestProject::missionFile(const QString& name) const
{
    QString full = file(name);
    CKvDataBase database(full);
    database.open();
    database.transaction();
    QSqlDatabase* const db = database.DBInstance();
    CreateMissionTables(db);
    CreateTable(FlightVideoTableName, GetFlightVideoTableContents(), db);
    if (!database.commit()) {
        qFatal("cannot make %s", qPrintable(full));
    }
    return full;
}

bool TestProject::run(const QString& file, const QStringList& statements)
{
    CKvDataBase database(file);
    bool done = database.open() && database.transaction();
    for (const QString& sql : statements) {
        done = !database.exec(sql).lastError().isValid() && done;
    }
    return database.commit() && done;
}

QVariantList TestProject::values(const QString& file, const QString& sql)
{
    CKvDataBase database(file);
    QVariantList values;
    if (database.open()) {
        QSqlQuery query = database.exec(sql);
        while (query.next()) {
            values.append(query.value(0));
        }
    }
    return values;
}

QString TestProject::text(const QString& file, const QString& sql)
{
    return QVariant(values(file, sql)).toStringList().join(' ');
}

QSet<QString> TestProject::rows(const QString& file, const QString& condition, const QStringList& tables)
{
    QSet<QString> rows;
    for (const QString& table : tables) {
        const QString sql = QString("SELECT '%1/' || id FROM %1 WHERE %2").arg(table, condition);
        for (const QVariant& row : values(file, sql)) {
            rows.insert(row.toString());
        }
    }
    return rows;
}

int TestProject::waiting(const QString& file, const QString& table)
{
    const QVariant count = value(file, "SELECT count(*) FROM " + table + " WHERE is_uploaded = 0");
    return count.isValid() ? count.toInt() : -1;
}

int TestProject::waiting(const QString& file)
{
    int rows = 0;
    for (const QString& table : Tables) {
        rows += waiting(file, table);
    }
    return rows;
}

void TestProject::addMission(const QString& file, const QString& id, int positions, int status, int log)
{
    const auto rows = [&id](const char* table, int count) {
        return QString("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < %1) "
                       "INSERT INTO %2(id, flight_mission_id) SELECT '%3-%2-' || i, '%3' FROM n WHERE %1 > 0")
            .arg(count)
            .arg(table, id);
    };
    const bool done =
        run(file, {"INSERT INTO flight_mission(id, project_id) VALUES('" + id + "', 'project-" + id + "')",
                   rows("pos_data", positions), rows("uas_status", status),
                   rows("flight_monitor_detail_log", log)});
    if (!done) {
        qFatal("cannot fill %s", qPrintable(file));
    }
}
