#pragma once

#include "logrecord.h"
#include <jwmonitor/history/historymodel.h>

#include <memory>

namespace JwMonitor {

class LogSink;

/// The model of all records that the library logs, in any thread, while the model exists.
class LogModel : public HistoryModel<LogRecord>
{
    Q_OBJECT

public:
    enum Column { Time, Level, Category, Place, Text, ColumnCount };

    explicit LogModel(QObject *parent = nullptr);
    ~LogModel() override;

    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    void fetch();

    const std::shared_ptr<LogSink> m_sink;
};

} // namespace JwMonitor
