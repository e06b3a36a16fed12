// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QStringList>

#include <optional>

/// The mission files of the current project: "*.kv" in its folders, one level deep, in the file system's
/// order. None at all, not even an empty list, where there is no project folder.
std::optional<QStringList> ProjectMissionFiles();
