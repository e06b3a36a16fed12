// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

/// Whether a CKvRepeatable names the file, which is given as an absolute path.
bool IsRepeatable(const QString& strPlace);
