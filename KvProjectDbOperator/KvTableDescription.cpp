// SPDX-License-Identifier: MIT
#include "KvTableDescription.h"

#include "KvData/KvWarnings.h"

#include <QtCore/QFile>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtSql/QSqlQuery>

#include <algorithm>
#include <utility>

void CKvTableDescription::Read(const QString& strFile)
{
    QFile file(strFile);
    const QByteArray text = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    if (text != m_byteText) {
        *this = CKvTableDescription();
        m_strFile = strFile;
        _Split(text);
    }
    if (!file.isOpen()) {
        WarnOnce(KvSql(), strFile,
                 QStringLiteral("cannot be read, so no row can be written: ") + file.errorString(), strFile);
    } else if (m_listColumn.isEmpty()) {
        WarnOnce(KvSql(), strFile, QStringLiteral("names no columns, so no row can be written"), strFile);
    } else if (m_bOdd) {
        WarnOnce(KvSql(), strFile,
                 QStringLiteral("ends with a column without a type, so no row can be written"), strFile);
    } else if (m_bNews) {
        TellWellAgain(KvSql(), strFile, strFile, QStringLiteral("describes a table again"));
        m_bNews = false;
    }
}

void CKvTableDescription::_Split(const QByteArray& text)
{
    m_byteText = text;
    const QStringList listToken =
        QString::fromUtf8(text).simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    m_bOdd = listToken.size() % 2 != 0;
    for (int i = 0; i < listToken.size(); i += 2) {
        // With an odd number of tokens the last name keeps its comma, and the statement is refused.
        const QLatin1String separator(i == listToken.size() - 2 ? "" : ",");
        const SColumn column{listToken[i], QLatin1Char(':') + listToken[i],
                             listToken[i].contains(QLatin1String("message")),
                             listToken[i].contains(QLatin1String("log_count"))};
        m_listColumn.append(column);
        m_strColumns += column.strName + separator;
        m_strPlaceholders += column.strPlaceholder + separator;
    }
}

QString CKvTableDescription::InsertSql(const QString& strTable) const
{
    return QStringLiteral("INSERT INTO ") + strTable + QLatin1Char('(') + m_strColumns +
           QStringLiteral(")VALUES(") + m_strPlaceholders + QLatin1Char(')');
}

void CKvTableDescription::BindRecord(QSqlQuery& query, const QJsonObject& record) const
{
    int nFound = 0;
    for (const SColumn& column : m_listColumn) {
        const auto member = record.constFind(column.strName);
        const bool bFound = member != record.constEnd();
        nFound += bFound ? 1 : 0;
        query.bindValue(column.strPlaceholder, bFound ? member.value().toVariant() : QVariant());
    }
    _WarnOfKeys(record, nFound);
}

void CKvTableDescription::BindRecordAsText(QSqlQuery& query, const QJsonObject& record) const
{
    int nFound = 0;
    for (const SColumn& column : m_listColumn) {
        const auto member = record.constFind(column.strName);
        const bool bFound = member != record.constEnd();
        nFound += bFound ? 1 : 0;
        const QJsonValue value = bFound ? member.value() : QJsonValue();
        if (bFound && column.bMessage) {
            query.bindValue(column.strPlaceholder, QByteArray::fromBase64(value.toString().toLatin1()));
        } else if (column.bLogCount) {
            query.bindValue(column.strPlaceholder, QStringLiteral("NULL"));
        } else if (bFound) {
            query.bindValue(column.strPlaceholder, value.toString());
            _WarnUnlessText(column, value);
        }
    }
    _WarnOfKeys(record, nFound);
}

void CKvTableDescription::_WarnUnlessText(const SColumn& column, const QJsonValue& value) const
{
    if (!value.isString() && !value.isNull() && !std::exchange(m_bToldText, true)) {
        WarnOnce(KvSql(), m_strFile,
                 QStringLiteral("takes texts here, and NULL is stored for what a record has as \"%1\"")
                     .arg(column.strName));
    }
}

/// Tells of a key that is not stored, as it is misspelt perhaps.
void CKvTableDescription::_WarnOfKeys(const QJsonObject& record, int nFound) const
{
    if (nFound == record.size() || m_listColumn.isEmpty() || m_bToldKey) {
        return;
    }
    m_bToldKey = true; // to look for it in each record would take time
    const auto isColumn = [this](const QString& strKey) {
        return std::any_of(m_listColumn.cbegin(), m_listColumn.cend(),
                           [&strKey](const SColumn& column) { return column.strName == strKey; });
    };
    const QStringList listKey = record.keys();
    const auto unknown = std::find_if_not(listKey.cbegin(), listKey.cend(), isColumn);
    if (unknown != listKey.cend()) {
        WarnOnce(KvSql(), m_strFile,
                 QStringLiteral("names no column for what a record has as \"%1\", which is not stored")
                     .arg(*unknown));
    }
}
