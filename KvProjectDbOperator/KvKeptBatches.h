// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QList>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>

/// Batches that their file has not taken, because somebody else held it or it lacks their table: they wait in
/// memory, in order, and are written before the next ones. Beyond 64 MiB the newest are given up, a single
/// one of that size aside, which is an error on Qt's debug output, as are those that still wait at the end.
/// A file is the same by whatever path it is named.
class CKvKeptBatches
{
public:
    /// Writes a batch through the operator's connection, within a transaction.
    using Write = std::function<void()>;

    CKvKeptBatches() = default;
    ~CKvKeptBatches();
    CKvKeptBatches(const CKvKeptBatches&) = delete;
    CKvKeptBatches& operator=(const CKvKeptBatches&) = delete;

    /// \param strTable  lower case; what the batch waits for. Empty: it goes into any file
    /// \param nRows   records that are lost with the batch
    /// \param nBytes  about what the batch takes in memory
    void Keep(const QString& strFile, const QString& strTable, int nRows, qint64 nBytes, const Write& write);
    bool IsEmpty() const { return m_listFile.isEmpty(); }
    bool Has(const QString& strFile) const { return _Find(strFile) >= 0; }
    /// Each by the path that it was named with first.
    QStringList Files() const;

    /// Writes batches, those whose table is among the given ones.
    using WriteInto = std::function<void(const QSet<QString>&)>;

    /// Hands the batches of a file to a function that stores some of them in one transaction and says whether
    /// it has: the oldest one alone, and the rest once that has gone well. Stored ones are forgotten. False
    /// when the function has failed.
    bool HandOver(const QString& strFile, const std::function<bool(const WriteInto&)>& store);

private:
    struct SBatch {
        QString strTable;
        int nRows;
        qint64 nBytes;
        Write write;
    };
    struct SFile {
        QString strPath;
        QList<SBatch> listBatch;
    };
    int _Find(const QString& strFile) const;
    QList<SBatch> _Batches(const QString& strFile) const;
    int _Forget(const QString& strFile, const QSet<QString>& setTable, int nFirst, int nBatches);

    QList<SFile> m_listFile;
    qint64 m_nBytes = 0;
    bool m_bFull = false;
};
