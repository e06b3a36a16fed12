// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

// The bytes that all requests together may hold. Reservations are given back on whatever thread they end.
class Bound
{
public:
    explicit Bound(std::size_t limit) : m_limit(limit) {}

    class Reservation
    {
    public:
        Reservation() = default;
        Reservation(Reservation&& other) noexcept { swap(other); }
        Reservation& operator=(Reservation&& other) noexcept
        {
            Reservation(std::move(other)).swap(*this);
            return *this;
        }
        ~Reservation()
        {
            if (m_bound != nullptr) {
                m_bound->m_used -= m_bytes;
            }
        }
        // False where there is no room for so many bytes more.
        [[nodiscard]] bool grow(std::size_t bytes)
        {
            return m_bound != nullptr && m_bound->take(bytes, *this);
        }
        // Whether there could be room for so many bytes more if nobody else held any.
        [[nodiscard]] bool couldGrow(std::size_t bytes) const
        {
            return m_bound != nullptr && bytes <= m_bound->m_limit - m_bytes;
        }

    private:
        friend class Bound;
        void swap(Reservation& other) noexcept
        {
            std::swap(m_bound, other.m_bound);
            std::swap(m_bytes, other.m_bytes);
        }
        Bound* m_bound = nullptr;
        std::size_t m_bytes = 0;
    };

    // An empty one, to grow.
    Reservation reservation()
    {
        Reservation empty;
        empty.m_bound = this;
        return empty;
    }
    [[nodiscard]] std::size_t limit() const { return m_limit; }
    [[nodiscard]] std::size_t used() const { return m_used; }

private:
    bool take(std::size_t bytes, Reservation& reservation)
    {
        std::size_t used = m_used;
        do {
            if (bytes > m_limit - used) {
                return false;
            }
        } while (!m_used.compare_exchange_weak(used, used + bytes));
        reservation.m_bytes += bytes;
        return true;
    }

    const std::size_t m_limit;
    std::atomic<std::size_t> m_used{0};
};
