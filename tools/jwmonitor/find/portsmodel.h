#pragma once

#include "portentry.h"

#include <QAbstractTableModel>
#include <QPalette>
#include <QVector>

namespace JwMonitor {

/// A row for each port.
class PortsModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Port, UsbId, Identity, Type, Time, State, ColumnCount };

    explicit PortsModel(QObject *parent = nullptr);
    ~PortsModel() override;

    /// Changes only the rows that differ, so selections stay. `entries` must be in the order of
    /// JwTools::isPortBefore().
    void setEntries(const QVector<PortEntry> &entries);
    const PortEntry &entry(int row) const { return m_entries.at(row); }
    /// The palette from which the colours of the texts follow.
    void setPalette(const QPalette &palette);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    QVector<PortEntry> m_entries;
    QPalette m_palette;
};

} // namespace JwMonitor
