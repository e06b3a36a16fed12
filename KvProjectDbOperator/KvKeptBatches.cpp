// SPDX-License-Identifier: MIT
#include "KvKeptBatches.h"

#include "KvData/KvWarnings.h"

#include <numeric>

namespace
{
constexpr qint64 MostBytes = 64LL * 1024 * 1024;
}

CKvKeptBatches::~CKvKeptBatches()
{
    for (auto file = m_mapBatch.cbegin(); file != m_mapBatch.cend(); ++file) {
        const int nRows = std::accumulate(file->cbegin(), file->cend(), 0,
                                          [](int nSum, const SBatch& batch) { return nSum + batch.nRows; });
        if (nRows > 0) {
            qCCritical(KvSql, "%s: %d records were not stored and are lost", qUtf8Printable(file.key()),
                       nRows);
        }
    }
}

void CKvKeptBatches::Keep(const QString& strFile, int nRows, qint64 nBytes, const Write& write)
{
    if (m_nBytes > 0 && m_nBytes + nBytes > MostBytes) {
        if (!m_bFull) {
            qCCritical(KvSql, "%s: too much waits in memory; records are lost from now on",
                       qUtf8Printable(strFile));
        }
        m_bFull = true;
        return;
    }
    m_nBytes += nBytes;
    m_mapBatch[strFile].append({nRows, nBytes, write});
}

void CKvKeptBatches::HandOver(const QString& strFile, const std::function<bool(const Write&)>& store)
{
    for (int nBatches = 1; Has(strFile); nBatches = m_mapBatch.value(strFile).size()) {
        const QList<SBatch> listBatch = m_mapBatch.value(strFile).mid(0, nBatches);
        const bool bStored = store([&listBatch] {
            for (const SBatch& batch : listBatch) {
                batch.write();
            }
        });
        if (!bStored) {
            return;
        }
        _Forget(strFile, nBatches);
    }
}

void CKvKeptBatches::_Forget(const QString& strFile, int nBatches)
{
    QList<SBatch>& listBatch = m_mapBatch[strFile];
    for (int i = 0; i < nBatches; ++i) {
        m_nBytes -= listBatch.takeFirst().nBytes;
    }
    if (listBatch.isEmpty()) {
        m_mapBatch.remove(strFile);
    }
    m_bFull = false;
}
