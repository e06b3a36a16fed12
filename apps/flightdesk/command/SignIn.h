// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <optional>

/// Sets the server's address, and the user with the token; where that is empty with the one in KV_TOKEN.
/// Prints an error and returns false when one of them will not do. \param token  that of an option; nothing
/// where the command has none
bool signIn(const QString& server, const std::optional<QString>& token = std::nullopt);
