// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

/// Sets the server's address, and the user with the token; without one with that in KV_TOKEN. Prints an error
/// and returns false when one of them will not do.
bool signIn(const QString& server, const QString& token = {});
