#pragma once

/// How many blocks of memory this thread has taken from the heap so far, by new, malloc and their relatives.
long allocationCount();
/// How many bytes these blocks had when they were taken.
long allocatedBytes();
