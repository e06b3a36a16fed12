// SPDX-License-Identifier: MIT
#include "window/StateLabel.h"

#include <QtCore/QEvent>
#include <QtWidgets/QApplication>

StateLabel::StateLabel(const QString& text) : QLabel(text)
{
    setWordWrap(true);
}

void StateLabel::say(const QString& text, bool trouble)
{
    sayIn(trouble ? std::optional(theme::Accent::Trouble) : std::nullopt, text);
}

void StateLabel::sayIn(const std::optional<theme::Accent>& accent, const QString& text)
{
    setText(text);
    if (accent != m_accent) {
        m_accent = accent;
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
    if (m_accent) {
        const QPalette all = QApplication::palette();
        colours.setColor(QPalette::WindowText, theme::accent(all, *m_accent));
    }
    setPalette(colours);
}
