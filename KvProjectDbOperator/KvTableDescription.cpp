// SPDX-License-Identifier: MIT
#include "KvTableDescription.h"

#include "KvData/KvWarnings.h"

#include <QtCore/QFile>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtSql/QSqlQuery>

void CKvTableDescription::Read(const QString& strFile)
{
    QFile file(strFile);
    const QByteArray text = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    if (text != m_byteText) {
        *this = CKvTableDescription();
        _Split(text);
    }
    if (m_listColumn.isEmpty()) {
        WarnOnce(KvSql(), strFile,
                 file.isOpen()
                     ? QStringLiteral("names no columns, so no row can be written")
                     : QStringLiteral("cannot be read, so no row can be written: ") + file.errorString());
    }
}

void CKvTableDescription::_Split(const QByteArray& text)
{
    m_byteText = text;
    const QStringList listToken =
        QString::fromUtf8(text).simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts);
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
    for (const SColumn& column : m_listColumn) {
        const auto member = record.constFind(column.strName);
        query.bindValue(column.strPlaceholder,
                        member == record.constEnd() ? QVariant() : member.value().toVariant());
    }
}

void CKvTableDescription::BindRecordAsText(QSqlQuery& query, const QJsonObject& record) const
{
    for (const SColumn& column : m_listColumn) {
        const auto member = record.constFind(column.strName);
        if (member != record.constEnd() && column.bMessage) {
            query.bindValue(column.strPlaceholder,
                            QByteArray::fromBase64(member.value().toString().toLatin1()));
        } else if (column.bLogCount) {
            query.bindValue(column.strPlaceholder, QStringLiteral("NULL"));
        } else if (member != record.constEnd()) {
            query.bindValue(column.strPlaceholder, member.value().toString());
        }
    }
}
