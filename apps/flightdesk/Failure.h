// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <exception>
#include <utility>

/// What keeps flightdesk from doing what it was asked to: thrown where it is found, and caught where it can
/// be told to whoever asked.
class Failure : public std::exception
{
public:
    explicit Failure(QString words) : m_words(std::move(words)) {}
    const QString& words() const { return m_words; }

private:
    QString m_words;
};
