// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>

/// Batches that their file has not taken, because somebody else held it: they wait in memory, in order, and
/// are written before the next ones. Beyond 64 MiB the newest are given up, a single one of that size aside,
/// which is an error on Qt's debug output, as are those that still wait at the end.
class CKvKeptBatches
{
public:
    /// Writes a batch through the operator's connection, within a transaction.
    using Write = std::function<void()>;

    CKvKeptBatches() = default;
    ~CKvKeptBatches();
    CKvKeptBatches(const CKvKeptBatches&) = delete;
    CKvKeptBatches& operator=(const CKvKeptBatches&) = delete;

    /// \param nRows   records that are lost with the batch
    /// \param nBytes  about what the batch takes in memory
    void Keep(const QString& strFile, int nRows, qint64 nBytes, const Write& write);
    bool IsEmpty() const { return m_mapBatch.isEmpty(); }
    bool Has(const QString& strFile) const { return m_mapBatch.contains(strFile); }
    QStringList Files() const { return m_mapBatch.keys(); }

    /// Hands the batches of a file to a function that stores some of them in one transaction and says whether
    /// it has: the oldest one alone, and the rest once that has gone well. Stored ones are forgotten.
    void HandOver(const QString& strFile, const std::function<bool(const Write&)>& store);

private:
    struct SBatch {
        int nRows;
        qint64 nBytes;
        Write write;
    };
    void _Forget(const QString& strFile, int nBatches);

    QMap<QString, QList<SBatch>> m_mapBatch;
    qint64 m_nBytes = 0;
    bool m_bFull = false;
};
