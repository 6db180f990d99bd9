#pragma once

#include <QTableView>

namespace JwMonitor {

class PortRows;
class PortsModel;

/// Shows the table of ports and boards.
class PortsView : public QTableView
{
    Q_OBJECT

public:
    /// `rows` must outlive the view.
    explicit PortsView(const PortRows *rows, QWidget *parent = nullptr);
    ~PortsView() override;

Q_SIGNALS:
    /// Emitted when the user selects the row of port `name`. `name` is empty if no row is selected any more.
    void portChosen(const QString &name);

protected:
    void changeEvent(QEvent *event) override;

private:
    void refresh();

    const PortRows *const m_rows;
    PortsModel *const m_model;
};

} // namespace JwMonitor
