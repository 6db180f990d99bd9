#pragma once

#include <QTableView>

namespace JwMonitor {

class BoardFinder;
class PortsModel;

/// The table of ports and boards.
class PortsView : public QTableView
{
    Q_OBJECT

public:
    /// `finder` must outlive it.
    explicit PortsView(const BoardFinder *finder, QWidget *parent = nullptr);
    ~PortsView() override;

Q_SIGNALS:
    /// The user chose the row of port `name`; empty: no row is chosen.
    void portChosen(const QString &name);

protected:
    void changeEvent(QEvent *event) override;

private:
    void refresh();

    const BoardFinder *const m_finder;
    PortsModel *const m_model;
};

} // namespace JwMonitor
