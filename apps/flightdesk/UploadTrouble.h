// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <optional>

/// Why a request failed.
struct UploadTrouble {
    bool tokenRejected = false;
    QString words;

    /// Reads the trouble out of a line of the library's log, the only place where reasons are told.
    static std::optional<UploadTrouble> in(const QString& line);
};
