// SPDX-License-Identifier: MIT
#pragma once

#include "words/Trouble.h"

#include <exception>
#include <optional>
#include <utility>

/// What keeps flightdesk from doing what it was asked to: thrown where it is found, and caught where it can
/// be told to whoever asked.
class Failure : public std::exception
{
public:
    explicit Failure(QString words) : m_words(std::move(words)) {}
    /// \param details  what stands for %1, %2, ... in the trouble's words
    explicit Failure(Trouble trouble, const QStringList& details = {})
        : m_words(troubleWords(trouble, details)), m_trouble(trouble)
    {
    }
    const QString& words() const { return m_words; }
    const std::optional<Trouble>& trouble() const { return m_trouble; }
    bool is(Trouble trouble) const { return m_trouble == trouble; }

private:
    QString m_words;
    std::optional<Trouble> m_trouble; ///< where it is one that has words of its own
};
