#include "allocationcount.h"

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZER_OWNS_THE_HEAP
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZER_OWNS_THE_HEAP
#endif
#endif

namespace {

thread_local long count = 0;
thread_local long bytes = 0;

void add(std::size_t size)
{
    ++count;
    bytes += static_cast<long>(size);
}

} // namespace

long allocationCount()
{
    return count;
}

long allocatedBytes()
{
    return bytes;
}

#ifdef SANITIZER_OWNS_THE_HEAP

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void *, std::size_t),
                                                         void (*onFree)(const volatile void *));

namespace {

[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void *, std::size_t size) { add(size); }, [](const volatile void *) {});

}

#else

// If the program has a function with the same name as a library's function, all libraries call the program's function.
// So the functions below count all allocations of the process, even those of operator new.
#define REPLACES_LIBRARY_CALL extern "C" __attribute__((visibility("default")))

extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t number, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);
}

REPLACES_LIBRARY_CALL void *malloc(std::size_t size)
{
    add(size);
    return __libc_malloc(size);
}

REPLACES_LIBRARY_CALL void *calloc(std::size_t number, std::size_t size)
{
    add(number * size);
    return __libc_calloc(number, size);
}

REPLACES_LIBRARY_CALL void *realloc(void *block, std::size_t size)
{
    add(size);
    return __libc_realloc(block, size);
}

REPLACES_LIBRARY_CALL void *aligned_alloc(std::size_t alignment, std::size_t size)
{
    add(size);
    return __libc_memalign(alignment, size);
}

#endif
