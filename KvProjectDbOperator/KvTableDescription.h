// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QVector>

class QSqlDatabase;
class QSqlQuery;

/// The columns that a record is written to, read from a table description file: white-space separated
/// text whose tokens at even positions are column names (the others, such as types, are not read).
class CKvTableDescription
{
public:
    /// Describes no columns.
    CKvTableDescription() = default;

    /// Reads the file.
    explicit CKvTableDescription(const QString& strFile) { Read(strFile); }

    /// Reads the file; one that cannot be opened describes no columns. What keeps a row from being written is
    /// warned of, and so are members of records that are not stored as they are. Its text is split
    /// only if it has changed since the last time: that would be a fifth of the time that a monitor message
    /// takes.
    void Read(const QString& strFile);

    /// A column as statements see it.
    struct SColumn {
        QString strName;
        QString strPlaceholder;
        bool bMessage;  ///< has "message" in its name
        bool bLogCount; ///< has "log_count" in its name
    };

    /// The columns in file order.
    const QVector<SColumn>& Columns() const { return m_listColumn; }

    /// The insert of one row; columns that get nothing bound become NULL. With an odd number of tokens it is
    /// a statement that does not prepare.
    QString InsertSql(const QString& strTable) const;

    /// Binds every column: the record's member with its JSON type, or NULL where there is none.
    void BindRecord(QSqlQuery& query, const QJsonObject& record) const;

    /// Binds every column as text: Base64 decoded where the name contains "message", the text "NULL" where
    /// it contains "log_count". A column that the record lacks keeps what was bound for the one before.
    void BindRecordAsText(QSqlQuery& query, const QJsonObject& record) const;

private:
    void _Split(const QByteArray& text);
    void _WarnUnlessText(const SColumn& column, const QJsonValue& value) const;
    void _WarnOfKeys(const QJsonObject& record, int nFound) const;

    QString m_strFile;
    QByteArray m_byteText;
    QVector<SColumn> m_listColumn;
    QString m_strColumns;
    QString m_strPlaceholders;
    bool m_bOdd = false;
    mutable bool m_bToldText = false;
    mutable bool m_bToldKey = false;
    bool m_bNews = true; ///< this text was not yet found well
};
