// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

/// A text without the characters that no XML file may hold, which Qt writes all the same.
inline QString xmlText(QString text)
{
    for (QChar& c : text) {
        const ushort code = c.unicode();
        const bool control = code < 0x20 && code != '\t' && code != '\n' && code != '\r';
        if (control || code == 0xFFFE || code == 0xFFFF) {
            c = QChar::ReplacementCharacter;
        }
    }
    return text;
}
