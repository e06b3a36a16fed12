// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <thread>
#include <vector>

/// Threads that do the same again and again until they are told to end.
class Crowd
{
public:
    ~Crowd() { end(); }
    template<class Function>
    void add(Function again)
    {
        m_threads.emplace_back([this, again = std::move(again)]() mutable {
            while (!m_end) {
                again();
            }
        });
    }
    bool isEnding() const { return m_end; }
    void end()
    {
        m_end = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }

private:
    std::atomic<bool> m_end{false};
    std::vector<std::thread> m_threads;
};
