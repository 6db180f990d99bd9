#pragma once

#include <QTableView>

namespace JwMonitor {

class BoardFinder;
class PortsModel;

/// The ports and boards as a table, live.
class PortsView : public QTableView
{
    Q_OBJECT

public:
    /// `finder` must outlive it.
    explicit PortsView(const BoardFinder *finder, QWidget *parent = nullptr);
    ~PortsView() override;

Q_SIGNALS:
    /// The port of the chosen row; empty for none.
    void portChosen(const QString &name);

protected:
    void changeEvent(QEvent *event) override;

private:
    void refresh();

    const BoardFinder *const m_finder;
    PortsModel *const m_model;
};

} // namespace JwMonitor
