#pragma once

#include "sentencedecoder.h"
#include "trafficrecord.h"
#include <jwmonitor/look/theme.h>

#include <QString>
#include <QVector>

#include <optional>

namespace JwMonitor {

class HistoryTable;

/// A column of the traffic, in the tables and in saved files. To add a column, add its key and its entry in
/// trafficColumns().
struct TrafficColumn
{
    /// In the order of the columns.
    enum Key { Time, Port, Way, Id, Progress, Checksum, Identifier, Fields, Raw, Count };

    enum View {
        Decoded = 1, ///< the traffic, taken apart
        Undecoded = 2, ///< the traffic as it was on the line
        SentOnly = 4, ///< the payloads sent
    };

    /// What a cell shows.
    struct Cell
    {
        const TrafficRecord &record;
        const SentenceDecoder &decoder;
    };

    Key key;
    int filePlace; ///< in a saved file, from 0; the order there stays when the order in the window changes
    int views; ///< in which the column stands
    QString title;
    QString sample; ///< a text as wide as most; empty: the column takes the rest of the table
    QString (*text)(const Cell &cell);
    QString (*fileText)(const Cell &cell) = nullptr; ///< null: as `text`
    QString (*toolTip)(const Cell &cell) = nullptr; ///< null: the payload, and what the parser finds wrong with it
    std::optional<Theme::Role> (*colour)(const Cell &cell) = nullptr; ///< null: as other text
};

/// All columns, each at the position of its key.
const QVector<TrafficColumn> &trafficColumns();

/// All columns in the order of a saved file.
QVector<TrafficColumn> trafficFileColumns();

/// Shows the columns of `view`, as wide as their texts need, and hides the others.
void showTrafficColumns(HistoryTable *table, TrafficColumn::View view);

} // namespace JwMonitor
