// SPDX-License-Identifier: MIT
#include "Store.h"

#include <algorithm>

namespace
{
void setAll(std::vector<Portion>& portions, Result::Outcome outcome, const char* words)
{
    for (Portion& portion : portions) {
        portion.result = {outcome, words, 0};
    }
}
} // namespace

void Store::store(std::vector<Portion>& portions)
{
    try {
        storeTogether(portions);
    } catch (const StoreError& error) {
        if (error.fault() == StoreError::Fault::Store) {
            setAll(portions, Result::Outcome::Failed, error.what());
        } else if (portions.size() == 1) {
            setAll(portions, Result::Outcome::Refused, error.what());
        } else {
            std::for_each(portions.begin(), portions.end(),
                          [this](Portion& portion) { storeAlone(portion); });
        }
    }
}

void Store::storeAlone(Portion& portion)
{
    std::vector<Portion> alone{portion};
    store(alone);
    portion.result = std::move(alone.front().result);
}

void Store::confirmSenders(std::vector<Portion>& portions) const
{
    for (Portion& portion : portions) {
        const bool good = m_directory.confirm(portion.delivery->sender);
        portion.result = {good ? Result::Outcome::Stored : Result::Outcome::Revoked, {}, 0};
    }
}

const std::vector<Store::Row>& Store::sortRows(std::vector<Portion>& portions)
{
    m_rows.clear();
    for (Portion& portion : portions) {
        if (portion.result.outcome == Result::Outcome::Stored) {
            const Batch& batch = portion.delivery->batch;
            const std::int64_t kind = kindOf(batch.endpoint());
            for (std::size_t i = portion.first; i < portion.first + portion.count; ++i) {
                m_rows.push_back({kind, &batch.records()[i], &portion});
            }
        }
    }
    std::stable_sort(m_rows.begin(), m_rows.end(), [](const Row& one, const Row& other) {
        return one.kind != other.kind ? one.kind < other.kind : one.record->id() < other.record->id();
    });
    return m_rows;
}

std::string_view Store::missionOf(const Row& row)
{
    const Batch& batch = row.portion->delivery->batch;
    return batch.endpoint().isBatch ? batch.mission() : row.record->id();
}
