// version.cpp - the registry of client library versions.
//
// Clients register from their load-time constructors, before anything was
// started and possibly before this library's own static objects exist, so
// the registry is a constant-initialised table of plain data.
#include "keel.h"

#include <pthread.h>
#include <cstring>

namespace {

constexpr int kMaxVersions = 32;
constexpr size_t kMaxName = 64;

struct VersionEntry {
    char name[kMaxName];
    int major, minor, release, build;
};

pthread_mutex_t versionLock = PTHREAD_MUTEX_INITIALIZER;
VersionEntry versions[kMaxVersions];
int versionCount = 0;

} // namespace

extern "C" {

/* Registers a name once; registering it again updates its numbers (a client
 * that is unloaded and loaded again). 1 on success, 0 for a null name or a
 * full table. Names longer than 63 bytes are cut. */
KEEL_API int KEELVERSION_Register(const char *name, int major, int minor,
                                  int release, int build)
{
    if (name == nullptr)
        return 0;
    pthread_mutex_lock(&versionLock);
    int slot = 0;
    while (slot < versionCount &&
           std::strncmp(versions[slot].name, name, kMaxName - 1) != 0)
        ++slot;
    int ok = 1;
    if (slot == versionCount) {
        if (versionCount == kMaxVersions) {
            ok = 0;
        } else {
            std::strncpy(versions[slot].name, name, kMaxName - 1);
            versions[slot].name[kMaxName - 1] = '\0';
            ++versionCount;
        }
    }
    if (ok) {
        versions[slot].major = major;
        versions[slot].minor = minor;
        versions[slot].release = release;
        versions[slot].build = build;
    }
    pthread_mutex_unlock(&versionLock);
    return ok;
}

KEEL_API int KEELVERSION_Count(void)
{
    pthread_mutex_lock(&versionLock);
    int count = versionCount;
    pthread_mutex_unlock(&versionLock);
    return count;
}

/* The name of entry index (stable for the life of the process) and its
 * numbers through the pointers that are not NULL; NULL out of range. */
KEEL_API const char *KEELVERSION_Get(int index, int *major, int *minor,
                                     int *release, int *build)
{
    pthread_mutex_lock(&versionLock);
    const char *name = nullptr;
    if (index >= 0 && index < versionCount) {
        const VersionEntry &entry = versions[index];
        name = entry.name;
        if (major)
            *major = entry.major;
        if (minor)
            *minor = entry.minor;
        if (release)
            *release = entry.release;
        if (build)
            *build = entry.build;
    }
    pthread_mutex_unlock(&versionLock);
    return name;
}

} // extern "C"
