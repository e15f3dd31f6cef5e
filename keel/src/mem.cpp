// mem.cpp - memory descriptors: named pools released as a whole.
//
// Every object is cleared and at least 16-byte aligned, so records and
// sample buffers can be used at once and suit four-wide float loads. A
// registry of live descriptors lets the report and the disposal refuse a
// handle that is not (or no longer) a descriptor instead of touching it.
// One descriptor is used by one thread at a time; the registry itself is
// thread-safe.
#include "keel.h"

#include <pthread.h>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

struct keel_mem_descr {
    std::string name;
    int sizeHint;
    int flags;
    std::vector<void *> objects;
    int64_t bytes;
};

namespace {

constexpr size_t kMinAlignment = 16;

pthread_mutex_t registryLock = PTHREAD_MUTEX_INITIALIZER;

// Never destroyed: clients dispose of descriptors from unload-time
// destructors, after this library's static objects would be gone.
std::set<keel_mem_descr *> &registry()
{
    static auto *live = new std::set<keel_mem_descr *>();
    return *live;
}

bool isLive(keel_mem_descr *mem)
{
    if (mem == nullptr)
        return false;
    pthread_mutex_lock(&registryLock);
    bool live = registry().count(mem) != 0;
    pthread_mutex_unlock(&registryLock);
    return live;
}

void *allocate(keel_mem_descr *mem, size_t alignment, int64_t bytes)
{
    if (mem == nullptr || bytes < 0)
        return nullptr;
    if (alignment < kMinAlignment)
        alignment = kMinAlignment;
    // A zero-byte request still gets its own address, as malloc(0) may not.
    const size_t size = bytes > 0 ? static_cast<size_t>(bytes) : 1;
    void *object = nullptr;
    if (posix_memalign(&object, alignment, size) != 0)
        return nullptr;
    std::memset(object, 0, size);
    mem->objects.push_back(object);
    mem->bytes += bytes;
    return object;
}

} // namespace

extern "C" {

/* The size hint and the flags are kept for reports and change nothing. */
KEEL_API KEEL_MEMDESCR KEELMEM_CreateMemDescrEx(const char *name, int sizeHint,
                                                int flags)
{
    keel_mem_descr *mem =
        new keel_mem_descr{name ? name : "", sizeHint, flags, {}, 0};
    pthread_mutex_lock(&registryLock);
    registry().insert(mem);
    pthread_mutex_unlock(&registryLock);
    return mem;
}

/* flags is accepted and ignored. */
KEEL_API void *KEELMEM_NewEx(KEEL_MEMDESCR mem, uint32_t bytes, int)
{
    return allocate(mem, kMinAlignment, bytes);
}

KEEL_API void *KEELMEM_NewAligned(KEEL_MEMDESCR mem, int alignment,
                                  int64_t bytes)
{
    if (alignment <= 0 || (alignment & (alignment - 1)) != 0)
        return nullptr;
    return allocate(mem, static_cast<size_t>(alignment), bytes);
}

/* NULL for a negative count. */
KEEL_API float *KEELMEM_NewFloatVector(KEEL_MEMDESCR mem, int count)
{
    if (count < 0)
        return nullptr;
    return static_cast<float *>(allocate(
        mem, kMinAlignment, static_cast<int64_t>(count) * sizeof(float)));
}

/* 1 after releasing every object and the descriptor; 0 for NULL or for a
 * handle that is not a live descriptor (nothing is touched then). */
KEEL_API int KEELMEM_DisposeMemDescr(KEEL_MEMDESCR mem)
{
    if (mem == nullptr)
        return 0;
    pthread_mutex_lock(&registryLock);
    const bool live = registry().erase(mem) != 0;
    pthread_mutex_unlock(&registryLock);
    if (!live)
        return 0;
    for (void *object : mem->objects)
        std::free(object);
    delete mem;
    return 1;
}

/* Logs name, object count and bytes of a live descriptor; 1, or 0 when the
 * handle is not a live descriptor. Disposes of nothing. */
KEEL_API int KEELMEM_DisplayMemDescr(KEEL_MEMDESCR mem)
{
    if (!isLive(mem))
        return 0;
    KEELDEBUG_Log(-1, "Memory descriptor \"%s\": %d objects, %lld bytes\n",
                  mem->name.c_str(), static_cast<int>(mem->objects.size()),
                  static_cast<long long>(mem->bytes));
    return 1;
}

/* -1 (NULL for the name) for a handle that is not a live descriptor. Bytes
 * count what was asked for, not the alignment slack. */
KEEL_API int KEELMEM_GetObjectCount(KEEL_MEMDESCR mem)
{
    return isLive(mem) ? static_cast<int>(mem->objects.size()) : -1;
}

KEEL_API int64_t KEELMEM_GetByteCount(KEEL_MEMDESCR mem)
{
    return isLive(mem) ? mem->bytes : -1;
}

KEEL_API const char *KEELMEM_GetName(KEEL_MEMDESCR mem)
{
    return isLive(mem) ? mem->name.c_str() : nullptr;
}

KEEL_API int KEELMEM_LiveDescriptorCount(void)
{
    pthread_mutex_lock(&registryLock);
    int count = static_cast<int>(registry().size());
    pthread_mutex_unlock(&registryLock);
    return count;
}

} // extern "C"
