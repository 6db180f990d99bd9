#pragma once

#include "portentry.h"

#include <QAbstractTableModel>
#include <QPalette>
#include <QVector>

namespace JwMonitor {

/// The model of the table of ports; each row shows one port or board.
class PortsModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Port, UsbId, Identity, Type, Time, State, ColumnCount };

    explicit PortsModel(QObject *parent = nullptr);
    ~PortsModel() override;

    /// Replaces the entries. Changes and moves only the rows that differ, so that a selected row stays selected. Each
    /// key may occur only once.
    void setEntries(const QVector<PortEntry> &entries);
    const PortEntry &entry(int row) const { return m_entries.at(row); }
    /// Sets the palette of the view. The model then uses text colours that are readable on the background of this
    /// palette.
    void setPalette(const QPalette &palette);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    int rowOf(const QString &key, int first) const;

    QVector<PortEntry> m_entries;
    QPalette m_palette;
};

} // namespace JwMonitor
