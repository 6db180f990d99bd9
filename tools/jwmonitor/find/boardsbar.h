#pragma once

#include <QLabel>

namespace JwMonitor {

class BoardFinder;

/// Shows one line: for each wanted type, the ports of its boards. For a lost board, the line shows the last port.
class BoardsBar : public QLabel
{
    Q_OBJECT

public:
    /// `finder` must outlive the bar.
    explicit BoardsBar(const BoardFinder *finder, QWidget *parent = nullptr);
    ~BoardsBar() override;

protected:
    void changeEvent(QEvent *event) override;

private:
    void refresh();

    const BoardFinder *const m_finder;
};

} // namespace JwMonitor
