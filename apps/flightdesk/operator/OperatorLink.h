// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonArray>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QVariant>

class CKvFlightDataDbOperator;

/// The host's side of an operator: each signal reaches the slot of the operator that does what it says. Most
/// of those are private slots, which only a connection by text signature can reach.
class OperatorLink : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    /// To be called on the operator's thread; signals from another thread are queued.
    void connectTo(CKvFlightDataDbOperator* pOperator) const;

Q_SIGNALS:
    void missionFile(const QString& path) const;
    void missionId(const QString& id) const;
    void message(QByteArray bytes) const;
    void positions(QJsonArray records, QString description, QString missionId) const;
    void records(QJsonArray records, QString description, QString missionId, unsigned int type,
                 QString file) const;
    void breakpoint(int waypoint, double lng, double lat, QString missionId, double completion) const;
    /// \param cmd  1
    void missionValue(QVariant cmd, QVariant key, QVariant value, QVariant missionId) const;

    void checkNewData() const;
    void startUploadTimer(bool start) const;
    void resetUploadFlow() const;
};
