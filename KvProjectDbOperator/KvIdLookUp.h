// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtSql/QSqlQuery>

#include <optional>

class QSqlDatabase;

/// Looks ids up in a table with one statement for all of them: preparing one for each would take longer than
/// the insert that follows.
class CKvIdLookUp
{
public:
    CKvIdLookUp(const QSqlDatabase& database, const QString& strTable);

    /// Whether the table has a row with the id; as a bound value it is compared with the column as it would
    /// be as a literal. Nothing where it would do something else between the quotes of a statement than stand
    /// for itself, or where the statement fails.
    std::optional<bool> Has(const QString& strID);

private:
    QSqlQuery m_query;
};
