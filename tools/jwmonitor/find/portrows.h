#pragma once

#include "portentry.h"

#include <QObject>
#include <QVector>

namespace JwMonitor {

/// The rows in the table of ports.
class PortRows : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    virtual QVector<PortEntry> ports() const = 0;

Q_SIGNALS:
    void changed(); ///< ports() may have changed
};

} // namespace JwMonitor
