// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>

class QSqlDatabase;
class QSqlQuery;

/// The columns that a record is written to, read from a table description file: white-space separated
/// text whose tokens at even positions are column names (the others, such as types, are not read).
class CKvTableDescription
{
public:
    /// Reads the file; one that cannot be opened describes no columns.
    explicit CKvTableDescription(const QString& strFile);

    /// Column names in file order.
    const QStringList& Columns() const { return m_listColumn; }

    /// Prepares the insert of one row; columns that get nothing bound become NULL. False for a statement
    /// that does not prepare, as one with an odd number of tokens does not.
    bool PrepareInsert(QSqlQuery& query, const QString& strTable) const;

    /// Binds the record's members that are columns, each with its JSON type.
    void BindRecord(QSqlQuery& query, const QJsonObject& record) const;

    /// Binds every column as text: Base64 decoded where the name contains "message", the text "NULL" where
    /// it contains "log_count". A column that the record lacks keeps what was bound for the one before.
    void BindRecordAsText(QSqlQuery& query, const QJsonObject& record) const;

    /// Placeholder of a column.
    static QString Placeholder(const QString& strColumn) { return QLatin1Char(':') + strColumn; }

private:
    QStringList m_listColumn;
    QString m_strColumns;
    QString m_strPlaceholders;
};
