// Gives a new Communicator the address of the Communicator that was deleted last. Some tests need this every time,
// because they check that the library does not confuse two such Communicators. On a normal heap it happens only by
// chance. So in a program that contains this file, operator new puts the library's Communicators into a pool, an array
// of places. AddressSanitizer still reports access to the place of a deleted Communicator.

#include <device/communicator.h>

#include <sanitizer/asan_interface.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <new>

namespace {

constexpr std::size_t placeSize = sizeof(JwDevice::Communicator);
constexpr int placeCount = 64;

struct alignas(std::max_align_t) Place
{
    unsigned char bytes[placeSize];
};

Place places[placeCount];
Place *freePlaces[placeCount];
int freeCount = 0;
int usedCount = 0; // number of places that were used at least once
std::mutex mutex;

/// Returns whether `caller` is code of libJwDevice. Other code must not use up the pool with its own objects of the
/// same size. In libJwDevice, all objects of this size that exist for long are Communicators.
bool isOfTheLibrary(const void *caller)
{
    Dl_info info;
    return ::dladdr(caller, &info) != 0 && std::strstr(info.dli_fname, "libJwDevice");
}

void *allocatePlace()
{
    const std::lock_guard<std::mutex> lock(mutex);
    Place *place = nullptr;
    if (freeCount > 0)
        place = freePlaces[--freeCount];
    else if (usedCount < placeCount)
        place = &places[usedCount++];
    else
        return nullptr;
    ASAN_UNPOISON_MEMORY_REGION(place, sizeof *place);
    return place;
}

bool isInPool(const void *place)
{
    return place >= static_cast<const void *>(places) && place < static_cast<const void *>(places + placeCount);
}

void release(void *place) noexcept
{
    if (!isInPool(place)) {
        std::free(place);
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    freePlaces[freeCount++] = static_cast<Place *>(place);
    ASAN_POISON_MEMORY_REGION(place, sizeof(Place));
}

} // namespace

void *operator new(std::size_t size)
{
    void *memory = size == placeSize && isOfTheLibrary(__builtin_return_address(0)) ? allocatePlace() : nullptr;
    if (!memory)
        memory = std::malloc(size);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void *memory) noexcept
{
    release(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    release(memory);
}
