// SPDX-License-Identifier: MIT
#include "KvIdLookUp.h"

#include <QtCore/QVariant>
#include <QtSql/QSqlDatabase>

#include <algorithm>

namespace
{
/// A quote ends the literal, a null character the statement, half a surrogate pair takes the quote along.
bool StandsForItself(QChar c)
{
    return c >= QLatin1Char(' ') && c <= QLatin1Char('~') && c != QLatin1Char('\'');
}
} // namespace

CKvIdLookUp::CKvIdLookUp(const QSqlDatabase& database, const QString& strTable) : m_query(database)
{
    m_query.setForwardOnly(true);
    m_query.prepare(QStringLiteral("SELECT id FROM ") + strTable + QStringLiteral(" WHERE id = ?"));
}

std::optional<bool> CKvIdLookUp::Has(const QString& strID)
{
    if (!std::all_of(strID.cbegin(), strID.cend(), StandsForItself)) {
        return std::nullopt;
    }
    m_query.bindValue(0, strID.isNull() ? QLatin1String("") : strID); // a null text would be bound as NULL
    if (!m_query.exec()) {
        return std::nullopt;
    }
    const bool bFound = m_query.next();
    m_query.finish();
    return bFound;
}
