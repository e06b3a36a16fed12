// SPDX-License-Identifier: MIT
#include "window/StateLabel.h"

#include "window/Theme.h"

#include <QtCore/QEvent>
#include <QtWidgets/QApplication>

StateLabel::StateLabel(const QString& text) : QLabel(text)
{
    setWordWrap(true);
}

void StateLabel::say(const QString& text, bool trouble)
{
    setText(text);
    if (trouble != m_trouble) {
        m_trouble = trouble;
        colour();
    }
}

void StateLabel::changeEvent(QEvent* event)
{
    QLabel::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        colour();
    }
}

void StateLabel::colour()
{
    QPalette colours;
    if (m_trouble) {
        const QPalette all = QApplication::palette();
        colours.setColor(QPalette::WindowText, theme::accent(all, theme::Accent::Trouble));
    }
    setPalette(colours);
}
