#pragma once

#include <QLabel>

namespace JwMonitor {

class BoardFinder;

/// One line with the state of each wanted board.
class BoardsBar : public QLabel
{
    Q_OBJECT

public:
    /// `finder` must outlive it.
    explicit BoardsBar(const BoardFinder *finder, QWidget *parent = nullptr);
    ~BoardsBar() override;

protected:
    void changeEvent(QEvent *event) override;

private:
    void refresh();

    const BoardFinder *const m_finder;
};

} // namespace JwMonitor
