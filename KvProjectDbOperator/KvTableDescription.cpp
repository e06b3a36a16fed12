// SPDX-License-Identifier: MIT
#include "KvTableDescription.h"

#include <QtCore/QFile>
#include <QtCore/QRegExp>
#include <QtCore/QVariant>
#include <QtSql/QSqlQuery>

CKvTableDescription::CKvTableDescription(const QString& strFile)
{
    QFile file(strFile);
    if (!file.open(QIODevice::ReadOnly)) {
        return;
    }
    const QStringList listToken =
        QString(file.readAll()).split(QRegExp(QStringLiteral("\\s+")), Qt::SkipEmptyParts);
    for (int i = 0; i < listToken.size(); i += 2) {
        // With an odd number of tokens the last name keeps its comma, and the statement is refused.
        const QLatin1String separator(i == listToken.size() - 2 ? "" : ",");
        m_listColumn.append(listToken[i]);
        m_strColumns += listToken[i] + separator;
        m_strPlaceholders += Placeholder(listToken[i]) + separator;
    }
}

bool CKvTableDescription::PrepareInsert(QSqlQuery& query, const QString& strTable) const
{
    return query.prepare(QStringLiteral("INSERT INTO ") + strTable + QLatin1Char('(') + m_strColumns +
                         QStringLiteral(")VALUES(") + m_strPlaceholders + QLatin1Char(')'));
}

void CKvTableDescription::BindRecord(QSqlQuery& query, const QJsonObject& record) const
{
    for (auto member = record.begin(); member != record.end(); ++member) {
        if (m_listColumn.contains(member.key())) {
            query.bindValue(Placeholder(member.key()), member.value().toVariant());
        }
    }
}

void CKvTableDescription::BindRecordAsText(QSqlQuery& query, const QJsonObject& record) const
{
    for (const QString& strColumn : m_listColumn) {
        const auto member = record.constFind(strColumn);
        const bool message = strColumn.contains(QLatin1String("message"));
        if (member != record.constEnd() && message) {
            query.bindValue(Placeholder(strColumn),
                            QByteArray::fromBase64(member.value().toString().toLatin1()));
        } else if (strColumn.contains(QLatin1String("log_count"))) {
            query.bindValue(Placeholder(strColumn), QStringLiteral("NULL"));
        } else if (member != record.constEnd()) {
            query.bindValue(Placeholder(strColumn), member.value().toString());
        }
    }
}
