#pragma once

#include <QLineEdit>
#include <QStringList>

namespace JwMonitor {

/// A line editor. The keys Up and Down bring back earlier lines.
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
    void recall(int position);

    QStringList m_history;
    int m_position; // in m_history; equal to its size: a new line
    QString m_draft; // the new line, kept while earlier ones are shown
};

} // namespace JwMonitor
