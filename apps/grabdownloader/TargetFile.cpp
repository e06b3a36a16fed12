// SPDX-License-Identifier: MIT
#include "TargetFile.h"

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>
#ifdef _WIN32
#include <io.h>
#else
#include <sys/file.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;

namespace
{

[[noreturn]] void fail(const char* what, const std::error_code& error)
{
    throw std::runtime_error(std::string(what) + ": " + error.message());
}

std::error_code lastError()
{
    return {errno, std::generic_category()};
}

// Two downloads into one file would interleave. The lock goes with the process.
bool lockFile(std::FILE* stream)
{
#ifdef _WIN32
    return stream != nullptr;
#else
    return flock(fileno(stream), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
#endif
}

bool syncFile(std::FILE* stream)
{
#ifdef _WIN32
    return _commit(_fileno(stream)) == 0;
#else
    return fsync(fileno(stream)) == 0;
#endif
}

} // namespace

TargetFile::TargetFile(const std::string& path)
    : m_path(path), m_originPath(path + ".origin"), m_stream(std::fopen(path.c_str(), "ab"), &std::fclose)
{
    if (!m_stream) {
        fail("cannot open the target file", lastError());
    }
    if (!lockFile(m_stream.get())) {
        throw std::runtime_error("the target file is in use by another download");
    }
    // Unbuffered: curl's blocks are large, and a kill then costs no byte that was counted.
    std::setvbuf(m_stream.get(), nullptr, _IONBF, 0);

    std::error_code error;
    const std::uintmax_t size = fs::file_size(m_path, error);
    m_size = error ? 0 : static_cast<std::int64_t>(size);
    readOrigin();
}

TargetFile::~TargetFile()
{
    std::error_code ignored;
    if (m_whole || m_size == 0) {
        fs::remove(m_originPath, ignored);
    }
    // An empty file would pass for a whole one.
    if (!m_whole && m_size == 0 && fs::is_regular_file(m_path, ignored)) {
        fs::remove(m_path, ignored);
    }
}

void TargetFile::readOrigin()
{
    std::ifstream origin(m_originPath, std::ios::binary);
    std::getline(origin, m_url);
    std::getline(origin, m_validator);
    if (!(origin >> m_total)) {
        m_total = -1;
    }
}

bool TargetFile::canResume(const std::string& url) const
{
    return m_size > 0 && (m_url.empty() || m_url == url);
}

void TargetFile::restart(const std::string& url, const std::string& validator, std::int64_t total)
{
    if (m_size > 0) {
        std::error_code error;
        fs::resize_file(m_path, 0, error);
        if (error) {
            fail("cannot empty the target file", error);
        }
    }
    m_size = 0;
    m_url = url;
    m_validator = validator;
    m_total = total;
    // Only after the old bytes are gone, so that no moment attributes them to the new version.
    std::ofstream(m_originPath, std::ios::binary) << url << '\n' << validator << '\n' << total << '\n';
}

void TargetFile::append(const char* data, std::size_t size)
{
    const std::size_t written = std::fwrite(data, 1, size, m_stream.get());
    m_size += static_cast<std::int64_t>(written);
    if (written != size) {
        fail("cannot write the target file", lastError());
    }
}

void TargetFile::commit()
{
    if (!syncFile(m_stream.get())) {
        fail("cannot bring the target file to the disk", lastError());
    }
    std::error_code error;
    if (fs::file_size(m_path, error) != static_cast<std::uintmax_t>(m_size) || error) {
        throw std::runtime_error("the target file was changed or removed by someone else");
    }
    m_whole = true;
}
