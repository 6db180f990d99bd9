#pragma once

#include "trafficcolumns.h"

#include <QObject>
#include <QSaveFile>
#include <QTimer>
#include <QVector>

namespace JwMonitor {

/// Writes payloads to a file. Each turn of the event loop writes only some payloads, so that the window can still react
/// to the user. The file appears only when all payloads are written. The writer deletes itself at the end.
class TrafficWriter : public QObject
{
    Q_OBJECT

public:
    /// The format is CSV if `fileName` ends with ".csv", else text. Connect the signals before you call start().
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
