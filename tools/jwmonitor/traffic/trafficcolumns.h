#pragma once

#include "sentencedecoder.h"
#include "trafficrecord.h"
#include <jwmonitor/look/theme.h>

#include <QString>
#include <QVector>

#include <optional>

namespace JwMonitor {

class HistoryTable;

/// A column of the tables that show payloads, and of the files to which payloads are saved. To add a column, add a key
/// to Key, and an entry at the same place in makeColumns().
struct TrafficColumn
{
    /// The keys are in the order of the columns in the window.
    enum Key { Time, Port, Way, Id, Progress, Checksum, Identifier, Fields, Raw, Count };

    enum View {
        Decoded = 1, ///< the table of all payloads, split into fields
        Undecoded = 2, ///< the table of all payloads, each as it was sent or received
        SentOnly = 4, ///< the table of sent payloads
    };

    /// The data from which the functions below make the content of a cell.
    struct Cell
    {
        const TrafficRecord &record;
        const SentenceDecoder &decoder;
    };

    Key key;
    int filePlace; ///< index of the column in a saved file, from 0; not the same as `key`, so that a column that is
                   ///< inserted between others in the window can be the last one in the file
    int views; ///< the views that show the column, combined with |
    QString title;
    QString sample; ///< a text of usual width; if empty, the column takes the remaining width
    QString (*text)(const Cell &cell);
    QString (*fileText)(const Cell &cell) = nullptr; ///< text in a saved file; if null, `text` is used
    /// The tool tip of the cell. If null, the tool tip shows the payload and any error that the parser finds in it.
    QString (*toolTip)(const Cell &cell) = nullptr;
    /// The colour of the cell's text. If null, the text has the usual colour.
    std::optional<Theme::Role> (*colour)(const Cell &cell) = nullptr;
};

/// Returns all columns. The index of a column is its key.
const QVector<TrafficColumn> &trafficColumns();

/// Returns all columns in the order of a saved file.
QVector<TrafficColumn> trafficFileColumns();

/// Shows the columns of `view`, each as wide as its `sample` needs, and hides the other columns. The column of the port
/// has also room for `widest`, the longest name of a port or board.
void showTrafficColumns(HistoryTable *table, TrafficColumn::View view, const QString &widest = QString());

} // namespace JwMonitor
