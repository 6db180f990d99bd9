#pragma once

/// Number of heap blocks that this thread has allocated so far, by new, malloc and similar functions.
long allocationCount();
/// Number of bytes that these blocks had when they were allocated.
long allocatedBytes();
