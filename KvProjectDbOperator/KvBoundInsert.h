// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtCore/QVector>

class QSqlQuery;

/// A prepared insert with its values, apart from the connection that it was prepared on.
class CKvBoundInsert
{
public:
    /// Takes statement and values of a query, which need not have been prepared with success.
    explicit CKvBoundInsert(const QSqlQuery& query);

    /// A value for each placeholder, in their order.
    CKvBoundInsert(QString strSql, QVector<QVariant> listValue);

    /// Prepares a query and binds the values; false when that fails.
    bool PrepareOn(QSqlQuery& query) const;
    /// About what it takes in memory.
    qint64 Bytes() const;

private:
    QString m_strSql;
    QVector<QVariant> m_listValue;
};
