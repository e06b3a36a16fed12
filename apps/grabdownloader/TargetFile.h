// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

/// The file a download grows in. Bytes that are there already are the beginning left by an earlier try;
/// "<file>.origin" beside it names the URL and the version of the resource that they were taken from.
///
/// Failures are std::runtime_error without the path: its file name comes from the URL, and standard error
/// must not repeat words of the URL.
class TargetFile
{
public:
    explicit TargetFile(const std::string& path);
    ~TargetFile();
    TargetFile(const TargetFile&) = delete;
    TargetFile& operator=(const TargetFile&) = delete;

    std::int64_t size() const { return m_size; }
    /// Whether there are bytes, and none that are known to be of another URL.
    bool canResume(const std::string& url) const;
    /// ETag or Last-Modified of the resource the bytes were taken from, empty when unknown.
    const std::string& validator() const { return m_validator; }
    /// Whether that resource had this size, as far as is known.
    bool mayBePartOf(std::int64_t total) const { return m_total < 0 || m_total == total; }

    /// Empties the file for the bytes of another version, of a size that is negative when unknown.
    void restart(const std::string& url, const std::string& validator, std::int64_t total);
    void append(const char* data, std::size_t size);
    /// The file is whole: brings it safely to the disk.
    void commit();

private:
    void readOrigin();

    using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

    std::filesystem::path m_path;
    std::filesystem::path m_originPath;
    Stream m_stream;
    std::int64_t m_size = 0;
    std::string m_url;
    std::string m_validator;
    std::int64_t m_total = -1;
    bool m_whole = false;
};
