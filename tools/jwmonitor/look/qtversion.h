#pragma once

#include <QGuiApplication>
#include <QMouseEvent>

namespace JwMonitor {

// These functions hide the differences between Qt 5 and Qt 6 from the rest of jwmonitor.

/// Draws sharp texts and pictures on a screen with many pixels. Call this function before the application is created.
inline void enableHighDpi()
{
#if QT_VERSION_MAJOR == 5 // Qt 6 does this always
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#endif
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
}

/// Returns the position of the mouse in the widget that gets the event.
inline QPointF positionOf(const QMouseEvent *event)
{
#if QT_VERSION_MAJOR == 5
    return event->localPos();
#else
    return event->position();
#endif
}

} // namespace JwMonitor
