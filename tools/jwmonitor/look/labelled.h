#pragma once

#include <QBoxLayout>
#include <QLabel>

namespace JwMonitor {

/// Adds a label and `widget`. The label's underlined letter leads to the widget.
inline void addLabelled(QBoxLayout *layout, const QString &text, QWidget *widget, int stretch = 0)
{
    auto *label = new QLabel(text);
    label->setBuddy(widget);
    layout->addWidget(label);
    layout->addWidget(widget, stretch);
}

} // namespace JwMonitor
