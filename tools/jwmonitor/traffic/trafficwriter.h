#pragma once

#include "trafficcolumns.h"

#include <QObject>
#include <QSaveFile>
#include <QTimer>
#include <QVector>

namespace JwMonitor {

/// Writes payloads to a file. It writes some in each turn of the event loop, so that the window stays quick. The file
/// appears only when it is complete. The writer deletes itself at the end.
class TrafficWriter : public QObject
{
    Q_OBJECT

public:
    /// Writes CSV if the name ends with ".csv", else text. Connect the signals before start().
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
