// SPDX-License-Identifier: MIT
#pragma once

#include "Directory.h"

#include <stdexcept>

// Some of a delivery's rows, and what became of them.
struct Portion {
    Delivery* delivery;
    std::size_t first;
    std::size_t count;
    Result result;
};

// What kept a transaction from going through.
class StoreError : public std::runtime_error
{
public:
    enum class Fault {
        Row,   // of what was to be stored: without it the others go through
        Store, // of the disk, the file, the database: whatever is written now fails as well
    };
    StoreError(Fault fault, const std::string& words) : std::runtime_error(words), m_fault(fault) {}
    [[nodiscard]] Fault fault() const { return m_fault; }

private:
    Fault m_fault;
};

// Where rows are written, by one thread.
class Store
{
public:
    explicit Store(Directory& directory) : m_directory(directory) {}
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    virtual ~Store() = default;

    // Stores all portions in one transaction. One that makes it fail fails alone; a fault of the store fails
    // all.
    void store(std::vector<Portion>& portions);
    // Whether a write goes through, and others have room.
    virtual bool probe() = 0;
    [[nodiscard]] virtual bool hasRoom() const { return true; }
    // Called while nothing is to be stored.
    virtual void idle() {}

protected:
    struct Row {
        std::int64_t kind;
        const Record* record;
        Portion* portion;
    };

    // Stores what confirmSenders() has left, or throws StoreError.
    virtual void storeTogether(std::vector<Portion>& portions) = 0;
    // The number under which an endpoint's rows are kept.
    virtual std::int64_t kindOf(const Endpoint& endpoint) const = 0;

    void confirmSenders(std::vector<Portion>& portions) const;
    // The rows of the portions that are to be stored, by kind and id. Rows of one key stay in the order in
    // which they came.
    const std::vector<Row>& sortRows(std::vector<Portion>& portions);
    // What names a row's mission.
    static std::string_view missionOf(const Row& row);

    Directory& m_directory;

private:
    void storeAlone(Portion& portion);

    std::vector<Row> m_rows; // kept for its room
};
