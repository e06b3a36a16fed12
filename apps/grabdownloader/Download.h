// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// Brings the resource at url into the file at path, continuing the bytes that are there already. Returns
/// when the file is whole on disk, otherwise throws std::runtime_error in words for standard error.
void download(const std::string& url, const std::string& path);
