#pragma once

#include "trafficcolumns.h"

#include <QObject>
#include <QSaveFile>
#include <QTimer>
#include <QVector>

namespace JwMonitor {

/// Writes payloads to a file, some in each turn of the event loop so that the window goes on. The file appears when it
/// is whole. Deletes itself at the end.
class TrafficWriter : public QObject
{
    Q_OBJECT

public:
    /// As CSV when the name ends with ".csv", else as text. Connect the signals, then start().
    TrafficWriter(const QVector<TrafficRecord> &records, const QString &fileName, QObject *parent = nullptr);
    ~TrafficWriter() override;

    void start();

Q_SIGNALS:
    void saved(const QString &fileName);
    void failed(const QString &message);

private:
    void writeSome();
    void finish();
    void fail();
    QString textLine(const TrafficRecord &record) const;
    QString csvLine(const TrafficRecord &record) const;

    const QVector<TrafficRecord> m_records;
    const QVector<TrafficColumn> m_columns;
    const bool m_csv;
    const SentenceDecoder m_decoder;
    QSaveFile m_file;
    QTimer m_turn;
    int m_next;
};

} // namespace JwMonitor
