// SPDX-License-Identifier: MIT
#include "KvKeptBatches.h"

#include "KvData/KvWarnings.h"
#include "KvMissionTables.h"

#include <algorithm>
#include <numeric>

namespace
{
constexpr qint64 MostBytes = 64LL * 1024 * 1024;

bool IsFor(const QString& strTable, const QSet<QString>& setTable)
{
    return strTable.isEmpty() || setTable.contains(strTable);
}
} // namespace

CKvKeptBatches::~CKvKeptBatches()
{
    int nFiles = 0;
    int nAll = 0;
    for (const SFile& file : qAsConst(m_listFile)) {
        const int nRows = std::accumulate(file.listBatch.cbegin(), file.listBatch.cend(), 0,
                                          [](int nSum, const SBatch& batch) { return nSum + batch.nRows; });
        if (nRows > 0) {
            TellLoss(file.strPath, QStringLiteral("lost"),
                     QStringLiteral("%1 records were not stored and are lost").arg(nRows));
            ++nFiles;
            nAll += nRows;
        }
    }
    constexpr int Named = 3; // of which each has a line of its own
    if (nFiles > Named) {
        TellLoss(m_listFile.constLast().strPath, QStringLiteral("lost in all"),
                 QStringLiteral("%1 records of %2 files are lost in all").arg(nAll).arg(nFiles));
    }
}

QStringList CKvKeptBatches::Files() const
{
    QStringList listPath;
    for (const SFile& file : m_listFile) {
        listPath.append(file.strPath);
    }
    return listPath;
}

/// Paths are compared as they lead now: a folder of theirs may have come back meanwhile.
int CKvKeptBatches::_Find(const QString& strFile) const
{
    const auto find = [this](const auto& isIt) {
        const auto file = std::find_if(m_listFile.cbegin(), m_listFile.cend(), isIt);
        return file == m_listFile.cend() ? -1 : static_cast<int>(file - m_listFile.cbegin());
    };
    const int nSamePath = find([&strFile](const SFile& file) { return file.strPath == strFile; });
    return nSamePath >= 0 ? nSamePath
                          : find([&strFile](const SFile& file) { return IsSameFile(file.strPath, strFile); });
}

QList<CKvKeptBatches::SBatch> CKvKeptBatches::_Batches(const QString& strFile) const
{
    const int nFile = _Find(strFile);
    return nFile >= 0 ? m_listFile[nFile].listBatch : QList<SBatch>();
}

void CKvKeptBatches::Keep(const QString& strFile, const QString& strTable, int nRows, qint64 nBytes,
                          const Write& write)
{
    if (m_nBytes > 0 && m_nBytes + nBytes > MostBytes) {
        if (!m_bFull) {
            TellLoss(strFile, QStringLiteral("full"),
                     QStringLiteral("too much waits in memory; records are lost from now on"));
        }
        m_bFull = true;
        return;
    }
    m_nBytes += nBytes;
    int nFile = _Find(strFile);
    if (nFile < 0) {
        nFile = m_listFile.size();
        m_listFile.append({strFile, {}});
    }
    m_listFile[nFile].listBatch.append({strTable, nRows, nBytes, write});
}

bool CKvKeptBatches::HandOver(const QString& strFile, const std::function<bool(const WriteInto&)>& store)
{
    int nLeft = 0; // those in front that go on waiting
    for (int nBatches = 1; nBatches > 0; nBatches = _Batches(strFile).size() - nLeft) {
        const QList<SBatch> listBatch = _Batches(strFile).mid(nLeft, nBatches);
        QSet<QString> setTaken;
        const bool bStored = store([&listBatch, &setTaken](const QSet<QString>& setTable) {
            setTaken = setTable;
            for (const SBatch& batch : listBatch) {
                if (IsFor(batch.strTable, setTable)) {
                    batch.write();
                }
            }
        });
        if (!bStored) {
            return false;
        }
        nLeft += _Forget(strFile, setTaken, nLeft, nBatches);
    }
    return true;
}

/// Forgets what has gone into its table; returns how many batches have not.
int CKvKeptBatches::_Forget(const QString& strFile, const QSet<QString>& setTable, int nFirst, int nBatches)
{
    const int nFile = _Find(strFile);
    QList<SBatch>& listBatch = m_listFile[nFile].listBatch;
    const auto first = listBatch.begin() + nFirst;
    const auto end = first + nBatches;
    const auto stored = std::stable_partition(
        first, end, [&setTable](const SBatch& batch) { return !IsFor(batch.strTable, setTable); });
    const int nLeft = static_cast<int>(stored - first);
    m_nBytes -= std::accumulate(stored, end, qint64{0},
                                [](qint64 nSum, const SBatch& batch) { return nSum + batch.nBytes; });
    m_bFull = m_bFull && stored == end;
    listBatch.erase(stored, end);
    if (listBatch.isEmpty()) {
        m_listFile.removeAt(nFile);
    }
    return nLeft;
}
