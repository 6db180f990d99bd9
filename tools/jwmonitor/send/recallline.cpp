#include "recallline.h"

#include <QKeyEvent>

namespace JwMonitor {

RecallLine::RecallLine(QWidget *parent)
    : QLineEdit(parent)
    , m_position(0)
{
}

RecallLine::~RecallLine() = default;

void RecallLine::finish()
{
    m_history.removeAll(text());
    m_history.append(text());
    if (m_history.size() > maxRemembered)
        m_history.removeFirst();
    m_position = m_history.size();
    clear();
}

void RecallLine::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Up)
        recall(m_position - 1);
    else if (event->key() == Qt::Key_Down)
        recall(m_position + 1);
    else
        QLineEdit::keyPressEvent(event);
}

void RecallLine::recall(QStringList::size_type position)
{
    if (position < 0 || position > m_history.size())
        return;
    if (m_position == m_history.size())
        m_draft = text();
    m_position = position;
    setText(position == m_history.size() ? m_draft : m_history[position]);
}

} // namespace JwMonitor
