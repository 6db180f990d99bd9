#pragma once

#include <QLabel>

namespace JwMonitor {

class BoardFinder;

/// Shows one line: for each wanted type, the ports where its boards are, or were before they were lost.
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
