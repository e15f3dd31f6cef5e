/*
 * The FFT plan service: one lock around FFTW's planner and wisdom store,
 * the wisdom file loaded at first need and written back when it changed,
 * and an optional background pass that prepares plans for common lengths.
 *
 * Every plan is made with FFTW_ESTIMATE, so no measuring planner ever runs;
 * what the wisdom file saves is the planner's bookkeeping, and what the
 * background pass leaves behind is wisdom, not plans.
 */
#include "TOLVfft/plan_service.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fftw3.h>
#include <sys/stat.h>

extern "C" {
/* The one lock of the library; exported because hosts and the lapped
 * transform plan under it too. Null until the first TOLV_InitializeFFT. */
KEEL_MUTEX __FFTW_PlanLock = nullptr;
}

/* Handle of the background pass, or null. Only a waiting TOLV_OptimizeFFT
 * clears it, so a second pass needs a waiting call first. A join releases
 * the handle while the pointer may stay behind (a shutdown leaves it as it
 * stands), so whether it was joined already is kept beside it: a second
 * join of a pass that ended long ago then returns at once instead of
 * touching the released handle. Both are read and written under the lock. */
static KEEL_THREAD __FFTW_InitThread = nullptr;
static bool __FFTW_InitThreadJoined = false;
/* Raised by TOLV_FinalizeFFT and never lowered: after a shutdown every later
 * pass stops after its first table entry. Written under the lock, read by
 * the pass without it; a relaxed byte gives exactly that and no more. */
static std::atomic<uint8_t> __FFTW_StopOptimization{0};
/* The question of loading is settled (not: something was read). Never
 * cleared, so a restart does not read the file again. */
static uint8_t __FFTW_WisdomLoaded = 0;
static uint8_t __FFTW_Initialized = 0;
/* Diagnostics: passes started, and lengths the latest pass planned. */
static std::atomic<int> __FFTW_PassesStarted{0};
static std::atomic<int> __FFTW_PassLengths{0};

static const int32_t __FFTWInitLen[11] = {16,   32,   64,   128,  256,  512,
                                          1024, 2048, 4096, 8192, 16384};

static const char kDataPathVar[] = "KEEL_DATA_PATH";
static const char kWisdomFile[] = "brae.optimization";
enum { kPathSize = 512 };

/* "%s%c%s" into a fixed buffer: a longer path is cut, and the cut path is
 * what gets used. */
static void _WisdomPath(char (&path)[kPathSize], const char *folder)
{
    snprintf(path, sizeof path, "%s%c%s", folder, '/', kWisdomFile);
}

static bool _WisdomEnabled(void)
{
    return KEELSETTINGS_GetBoolEx(nullptr, "tolv.fftw.use_wisdom=[1]");
}

/* A wisdom path that exists but is no regular file (a named pipe, a device,
 * a folder) is never written, as it is never read: opening a pipe would
 * wait for a reader for ever, with the planning lock held. */
static bool _NotARegularFile(const char *path)
{
    struct stat st;
    return stat(path, &st) == 0 && !S_ISREG(st.st_mode);
}

/* Reads a whole file into a zero-terminated buffer from fftwf_malloc. The
 * size is taken in 32 bits. A handle that failed to open reads as a size of
 * -1; the buffer then holds just the terminator, so a file that vanished or
 * cannot be read imports as empty wisdom instead of reading past memory. */
static char *_ReadWholeFile(KEEL_FILE file, int32_t *size)
{
    const int32_t s = (int32_t)KEELIO_FileSize(file);
    const size_t room = (s > 0 ? (size_t)s : 0) + 1;
    char *text = (char *)fftwf_malloc(room);
    if (text == nullptr) {
        *size = -1;
        return nullptr;
    }
    memset(text, 0, room);
    if (s > 0)
        KEELIO_ReadData(file, text, s);
    *size = s;
    return text;
}

extern "C" int __FFTW_LoadWisdom(void)
{
    MutexLock(__FFTW_PlanLock);
    int result = 0;
    const char *folder = nullptr;
    if (__FFTW_WisdomLoaded) {
        /* settled already */
    } else if ((folder = KEELENV_GetEnvValue(kDataPathVar)) == nullptr ||
               !_WisdomEnabled()) {
        /* Leave the flag clear: the host may set the variable later. */
    } else {
        char path[kPathSize];
        _WisdomPath(path, folder);
        if (!KEELIO_FileExists(path)) {
            /* A missing file settles the matter for this process (a path
             * that is no regular file counts as missing). */
            __FFTW_WisdomLoaded = 1;
        } else {
            KEEL_FILE file = KEELIO_Open(path, "r");
            int32_t size = 0;
            char *text = _ReadWholeFile(file, &size);
            KEELIO_CloseFile(file);
            if (text != nullptr) {
                /* A corrupt text is simply not imported; it still counts as
                 * loaded. */
                fftwf_import_wisdom_from_string(text);
                fftwf_free(text);
            }
            __FFTW_WisdomLoaded = 1;
            result = 1;
        }
    }
    MutexUnlock(__FFTW_PlanLock);
    return result;
}

extern "C" int __FFTW_SaveWisdom(void)
{
    MutexLock(__FFTW_PlanLock);
    int result = 0;
    const char *folder = KEELENV_GetEnvValue(kDataPathVar);
    char *current = nullptr;
    if (folder != nullptr && _WisdomEnabled() &&
        (current = fftwf_export_wisdom_to_string()) != nullptr) {
        char path[kPathSize];
        _WisdomPath(path, folder);
        const size_t length = strlen(current);

        /* Compare with the file first, size then bytes, so that the file's
         * modification time moves only when the wisdom really changed. */
        char *old = nullptr;
        bool same = false;
        KEEL_FILE file = nullptr;
        if (KEELIO_FileExists(path) &&
            (file = KEELIO_Open(path, "r")) != nullptr) {
            int32_t size = 0;
            old = _ReadWholeFile(file, &size);
            KEELIO_CloseFile(file);
            same = old != nullptr && size >= 0 && (size_t)size == length &&
                   memcmp(old, current, length) == 0;
        }
        if (same) {
            result = 1;
        } else if (!_NotARegularFile(path) &&
                   (file = KEELIO_Open(path, "w")) != nullptr) {
            KEELIO_WriteData(file, current, (int64_t)length);
            KEELIO_CloseFile(file);
            result = 1;
        }
        if (old != nullptr)
            fftwf_free(old);
        /* FFTW hands its export text out from plain malloc. */
        free(current);
    }
    MutexUnlock(__FFTW_PlanLock);
    return result;
}

/* Plans a length the way a processor does and drops the processor at once:
 * what stays is the planner's wisdom. */
static void _PlanAndDrop(int n)
{
    TOLV_FFTProcDestroy(TOLV_FFTProcCreate(n));
    TOLV_FFTProcDestroy(TOLV_IFFTProcCreate(n));
}

extern "C" int __InitializeFFTWPlans(void *)
{
    __FFTW_PassesStarted.fetch_add(1, std::memory_order_relaxed);
    __FFTW_PassLengths.store(0, std::memory_order_relaxed);
    /* Give the host up to 300 ms after start-up to set the data path. */
    KEELUTILS_sleep_msec(50);
    for (int sleeps = 0;
         KEELENV_GetEnvValue(kDataPathVar) == nullptr && sleeps < 5; ++sleeps)
        KEELUTILS_sleep_msec(50);
    if (KEELENV_GetEnvValue(kDataPathVar) == nullptr) {
        KEELDEBUG_Warning(-1, "__InitializeFFTWPlans: KEEL_DATA_PATH not set!");
        return 0;
    }

    __FFTW_LoadWisdom();
    if (!KEELSETTINGS_GetBoolEx(nullptr, "tolv.fftw.prepare_plans=[0]"))
        return 1; /* a default pass only loads; nothing to save */

    for (const int32_t n : __FFTWInitLen) {
        /* Read afresh so a change during the pass counts from the next
         * length on; compared in 64 bits. */
        const int64_t maxLength =
            KEELSETTINGS_GetIntEx(nullptr, "tolv.fftw.max_plan_len=[4096]");
        if ((int64_t)n <= maxLength) {
            _PlanAndDrop(n);
            __FFTW_PassLengths.fetch_add(1, std::memory_order_relaxed);
        }
        if (__FFTW_StopOptimization.load(std::memory_order_relaxed))
            break;
    }
    __FFTW_SaveWisdom();
    return 1;
}

extern "C" int _FFTW_PassLengthCount(void)
{
    return __FFTW_PassLengths.load(std::memory_order_relaxed);
}

extern "C" int _FFTW_PassesStarted(void)
{
    return __FFTW_PassesStarted.load(std::memory_order_relaxed);
}

extern "C" KEEL_THREAD _FFTW_BackgroundThread(void)
{
    return __FFTW_InitThread;
}

/* The handle to join, once: null when there is none or when another call
 * joined it already. Called with the lock held. */
static KEEL_THREAD _ClaimJoin(void)
{
    if (__FFTW_InitThread == nullptr || __FFTW_InitThreadJoined)
        return nullptr;
    __FFTW_InitThreadJoined = true;
    return __FFTW_InitThread;
}

extern "C" {

int TOLV_InitializeFFT(void)
{
    if (__FFTW_Initialized)
        return 1;
    /* A restart makes a new lock (the old one was destroyed) and forgets the
     * old thread handle without joining it. */
    __FFTW_PlanLock = MutexInit();
    __FFTW_InitThread = nullptr;
    __FFTW_InitThreadJoined = false;
    __FFTW_LoadWisdom();
    __FFTW_Initialized = 1;
    return 1;
}

int TOLV_OptimizeFFT(bool wait)
{
    MutexLock(__FFTW_PlanLock);
    if (__FFTW_InitThread == nullptr) {
        __FFTW_InitThread =
            KEELTHREAD_AddThread(__InitializeFFTWPlans, nullptr, 0);
        __FFTW_InitThreadJoined = false;
        if (!wait || __FFTW_InitThread == nullptr) {
            MutexUnlock(__FFTW_PlanLock);
            return 1;
        }
    } else if (!wait) {
        MutexUnlock(__FFTW_PlanLock);
        return 1;
    }
    /* The pass needs the lock to finish: release it before the join. */
    KEEL_THREAD thread = _ClaimJoin();
    MutexUnlock(__FFTW_PlanLock);
    KEELTHREAD_JoinThreadEx(thread, nullptr);
    MutexLock(__FFTW_PlanLock);
    __FFTW_InitThread = nullptr;
    MutexUnlock(__FFTW_PlanLock);
    return 1;
}

int TOLV_FinalizeFFT(void)
{
    MutexLock(__FFTW_PlanLock);
    __FFTW_Initialized = 0;
    __FFTW_StopOptimization.store(1, std::memory_order_relaxed);
    KEEL_THREAD thread = _ClaimJoin();
    MutexUnlock(__FFTW_PlanLock);

    /* The handle stays as it is after the join. */
    KEELTHREAD_JoinThreadEx(thread, nullptr);
    if (__FFTW_WisdomLoaded)
        __FFTW_SaveWisdom();
    MutexDestroy(__FFTW_PlanLock);
    /* Planning after a real shutdown then meets a null lock, which the base
     * library ignores, instead of a destroyed one. */
    __FFTW_PlanLock = nullptr;
    return 1;
}

} /* extern "C" */
