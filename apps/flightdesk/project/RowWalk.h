// SPDX-License-Identifier: MIT
#pragma once

#include "project/MissionFile.h"

/// Walks over one mission's rows of a table, in the order in which they were recorded.
///
/// They are fetched in slices, each a short statement of its own: whoever records into the file or marks its
/// rows waits a few milliseconds at most, however long the walk takes. Rows that are damaged on disk are
/// stepped over.
class RowWalk
{
public:
    /// \param columns  names; one that the table lacks is NULL in every row. A row without a `time` has that
    ///                 of its recording: a host that leaves it out records as it flies.
    /// \param lastRow  where the walk ends, see MissionFile::lastRows()
    RowWalk(MissionFile& file, const QString& table, const QStringList& columns, const QString& missionId,
            qint64 lastRow);

    /// The next row's values; nullptr at the end.
    const QVector<QVariant>* next();
    /// Rows, of whatever mission, that could not be read; those after a lock that did not go are all counted.
    qint64 unreadable() const { return m_unreadable; }

    /// What stands for a column in a statement.
    /// \param there  the table's columns
    static QString valueOf(const QString& column, const QStringList& there);

private:
    void fetch();
    QSqlError readSlice();
    void stepOver();

    MissionFile& m_file;
    const QString m_quotedId;
    const qint64 m_lastRow;
    QString m_sql;
    int m_columns;
    qint64 m_row = 0; ///< up to here everything was read
    qint64 m_step = 1;
    qint64 m_unreadable = 0;
    bool m_atEnd = false;
    QVector<QVector<QVariant>> m_slice;
    int m_at = 0;
};
