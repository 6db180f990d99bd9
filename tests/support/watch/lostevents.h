#pragma once

/// When the watch next reads an event, it loses all events that wait then. The real system loses events when their
/// buffer is full.
void loseEvents();
