// SPDX-License-Identifier: MIT
#include "KvBoundInsert.h"

#include <QtCore/QByteArray>
#include <QtSql/QSqlQuery>

#include <utility>

CKvBoundInsert::CKvBoundInsert(const QSqlQuery& query) : m_strSql(query.lastQuery())
{
    // By position: the names of bound values are not to be had in every version of Qt.
    const int nValues = static_cast<int>(query.boundValues().size());
    m_listValue.reserve(nValues);
    for (int i = 0; i < nValues; ++i) {
        m_listValue.append(query.boundValue(i));
    }
}

CKvBoundInsert::CKvBoundInsert(QString strSql, QVector<QVariant> listValue)
    : m_strSql(std::move(strSql)), m_listValue(std::move(listValue))
{
}

bool CKvBoundInsert::PrepareOn(QSqlQuery& query) const
{
    if (!query.prepare(m_strSql)) {
        return false;
    }
    for (int i = 0; i < m_listValue.size(); ++i) {
        query.bindValue(i, m_listValue[i]);
    }
    return true;
}

qint64 CKvBoundInsert::Bytes() const
{
    constexpr qint64 Overhead = 96; // of a value, and of the whole
    qint64 nBytes = Overhead + qint64{2} * m_strSql.size();
    for (const QVariant& value : m_listValue) {
        nBytes += Overhead + value.toByteArray().size();
    }
    return nBytes;
}
