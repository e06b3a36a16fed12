// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

/// Sets the address of the server. Throws Failure for one that is none; where only the scheme is missing it
/// tells the address that was probably meant.
void setServerAddress(const QString& text);
/// The address that was probably meant where the scheme is missing.
QString addressWithScheme(const QString& text);
