#pragma once

/// Lets the system lose all kernel events that wait for the process, as it does when their buffer is full. Works for
/// the events that wait when the watch reads the next event.
void loseEvents();
