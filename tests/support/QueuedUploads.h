// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QStringList>

#include <functional>

/// Upload objects without a network, for programs that are linked with QueuedUploads.cpp in the place of the
/// library's own: each post is answered by the event loop, in the order in which they were made.
namespace QueuedUploads
{
extern int refused;                                ///< number of the post that is answered by NetWorkError()
extern std::function<void(const QString&)> posted; ///< told of each post: path, mission, row ids
extern QStringList sent;                           ///< ids of the rows posted so far
extern QStringList accepted;                       ///< those of them that were not refused
/// Forgets everything and deletes the objects that are left.
void reset();
bool areOutstanding();
} // namespace QueuedUploads
