// In a program with this file, Communicators that the library makes stand in a pool of their own, which gives out the
// place that was freed last. An application's heap may do so at any time; here it is sure. Under AddressSanitizer a
// freed place may not be touched, as elsewhere.

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
int usedCount = 0; // of places, from the first on
std::mutex mutex;

/// Other objects may have the size of a Communicator, but none that the library itself makes and keeps.
bool isOfTheLibrary(const void *caller)
{
    Dl_info info;
    return ::dladdr(caller, &info) != 0 && std::strstr(info.dli_fname, "libJwDevice");
}

void *take()
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
    void *memory = size == placeSize && isOfTheLibrary(__builtin_return_address(0)) ? take() : nullptr;
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
