// SPDX-License-Identifier: MIT
#pragma once

#include "window/Theme.h"

#include <QtWidgets/QLabel>

/// A sentence about how things are, in colour when they are not well.
class StateLabel : public QLabel
{
    Q_OBJECT

public:
    explicit StateLabel(const QString& text = {});

    void say(const QString& text, bool trouble);
    void sayIn(const std::optional<theme::Accent>& accent, const QString& text);

protected:
    void changeEvent(QEvent* event) override;

private:
    void colour();

    std::optional<theme::Accent> m_accent;
};
