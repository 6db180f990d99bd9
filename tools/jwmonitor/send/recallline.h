#pragma once

#include <QLineEdit>
#include <QStringList>

namespace JwMonitor {

/// A QLineEdit that remembers lines of text. The keys Up and Down show earlier lines.
class RecallLine : public QLineEdit
{
    Q_OBJECT

public:
    static constexpr int maxRemembered = 100;

    explicit RecallLine(QWidget *parent = nullptr);
    ~RecallLine() override;

    /// Remembers the line and clears the editor.
    void finish();

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    void recall(QStringList::size_type position);

    QStringList m_history;
    // Index of the shown line in m_history; m_history.size() while the user edits a new line.
    QStringList::size_type m_position;
    QString m_draft; // the new line, kept while the editor shows an earlier line
};

} // namespace JwMonitor
