// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QObject>
#include <QtCore/QTemporaryDir>
#include <QtCore/QVariant>

/// A host's signals, as it reaches the operator's private slots.
class HostSignals : public QObject
{
    Q_OBJECT

public:
    explicit HostSignals(QObject* pOperator);

signals:
    void message(QByteArray);
    void positions(QJsonArray, QString, QString);
    void record(QJsonObject, QString, QString);
    void breakpoint(int, double, double, QString, double);
    void arm();
    void tick();
    void startUploadTimer(bool);
};

/// A project folder of its own that goes with the object; it is the current project.
class TestProject
{
public:
    TestProject();

    QString path(const QString& name) const { return m_dir.filePath(name); }
    /// Makes an empty file or one with the given bytes, and its folder.
    QString file(const QString& name, const QByteArray& bytes = {}) const;
    /// Makes a mission file with all tables.
    QString missionFile(const QString& name) const;

    /// Runs statements on a mission file, in one transaction, beside any operator; false when one failed.
    static bool run(const QString& file, const QStringList& statements);
    /// First column of all rows.
    static QVariantList values(const QString& file, const QString& sql);
    static QVariant value(const QString& file, const QString& sql) { return values(file, sql).value(0); }
    /// Rows of a table that wait for upload.
    static int waiting(const QString& file, const QString& table);

    /// Inserts a mission row and waiting rows of each kind.
    static void addMission(const QString& file, const QString& id, int positions, int status, int log);

private:
    QTemporaryDir m_dir;
};
