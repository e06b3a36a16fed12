// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QLabel>

/// A line that says how things are; trouble stands out.
class StateLabel : public QLabel
{
    Q_OBJECT

public:
    explicit StateLabel(const QString& text = {});

    void say(const QString& text, bool trouble);

protected:
    void changeEvent(QEvent* event) override;

private:
    void colour();

    bool m_trouble = false;
};
