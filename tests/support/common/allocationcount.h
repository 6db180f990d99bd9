#pragma once

/// Returns the number of heap blocks that this thread has allocated so far, by new, malloc and similar functions.
long allocationCount();
/// Returns the number of bytes in the blocks that allocationCount() counts. Freed blocks count too.
long allocatedBytes();
