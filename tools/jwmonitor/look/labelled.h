#pragma once

#include <QBoxLayout>
#include <QLabel>

namespace JwMonitor {

/// Adds a label and `widget` to `layout`. The key of the label's underlined letter moves the focus to `widget`.
inline void addLabelled(QBoxLayout *layout, const QString &text, QWidget *widget, int stretch = 0)
{
    auto *label = new QLabel(text);
    label->setBuddy(widget);
    layout->addWidget(label);
    layout->addWidget(widget, stretch);
}

} // namespace JwMonitor
