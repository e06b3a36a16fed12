// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <fstream>
#include <string>
#include <string_view>

// What a line tells of a request: nothing of its token or its body.
struct AccessLine {
    std::string address;
    std::string_view path; // one of the server's, or "-"
    std::string_view owner;
    int status;
    std::size_t rows;
    std::size_t bytes;
    std::chrono::steady_clock::duration time;
};

// One line a request, where it is asked for.
class AccessLog
{
public:
    // An empty path: no log. Throws std::runtime_error.
    explicit AccessLog(std::string path);

    // Goes on in a new file where the old one has been moved away.
    void reopen();
    [[nodiscard]] bool isOn() const { return !m_path.empty(); }
    void write(const AccessLine& line);

private:
    const std::string m_path;
    std::ofstream m_file;
    bool m_isFailing = false;
};
