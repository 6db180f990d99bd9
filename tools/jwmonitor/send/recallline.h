#pragma once

#include <QLineEdit>
#include <QStringList>

namespace JwMonitor {

/// A line to type in that brings earlier lines back by Up and Down.
class RecallLine : public QLineEdit
{
    Q_OBJECT

public:
    static constexpr int maxRemembered = 100;

    explicit RecallLine(QWidget *parent = nullptr);
    ~RecallLine() override;

    /// Keeps the line, and begins a new one.
    void finish();

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    void recall(int position);

    QStringList m_history;
    int m_position; // in m_history; its size: the line is not from there
    QString m_draft; // what was typed before the first Up
};

} // namespace JwMonitor
