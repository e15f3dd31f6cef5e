/* The FFT plan service: wisdom file reads and writes, the background pass,
 * shutdown, and the file under faults, each in a fresh process (some flags
 * are never cleared). Mid-operation faults come from the wrappers below. */
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <functional>
#include <iterator>

#include "TOLVfft/plan_service.h"
#include "fresh_process.h"
#include "spectral_test_support.h"

enum Point { OpenedForWriting, Wrote, AboutToRead };
static std::function<void()> g_at[3]; /* run once when the library is there */

static void Reach(Point point)
{
    if (auto action = std::exchange(g_at[point], nullptr))
        action();
}

#define REAL(name) ((decltype(&name))dlsym(RTLD_NEXT, #name))
extern "C" KEEL_FILE KEELIO_Open(const char *path, const char *mode, ...)
{
    KEEL_FILE file = REAL(KEELIO_Open)(path, mode);
    if (file != nullptr && mode[0] == 'w')
        Reach(OpenedForWriting);
    return file;
}

extern "C" int64_t KEELIO_WriteData(KEEL_FILE f, const void *p, int64_t n)
{
    const int64_t written = REAL(KEELIO_WriteData)(f, p, n);
    Reach(Wrote);
    return written;
}

extern "C" int64_t KEELIO_ReadData(KEEL_FILE f, void *p, int64_t n)
{
    Reach(AboutToRead);
    return REAL(KEELIO_ReadData)(f, p, n);
}

namespace {

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void WriteFile(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

/* The wisdom held now; with `whole`, whether FFTW takes that text whole. */
std::string Wisdom(const std::string *whole = nullptr)
{
    MutexLock(__FFTW_PlanLock);
    char *text = whole ? nullptr : fftwf_export_wisdom_to_string();
    const bool ok = whole && fftwf_import_wisdom_from_string(whole->c_str());
    MutexUnlock(__FFTW_PlanLock);
    std::string s = text ? text : ok && !whole->empty() ? "whole" : "";
    free(text);
    return s;
}

/* Plans n, or (`large`) a text longer than a stdio buffer; the wisdom. */
std::string PlanAndExport(int n, bool large = false)
{
    for (int m = large ? 16 : n; m <= (large ? 16384 : n); m *= 2) {
        TOLV_FFTProcDestroy(TOLV_FFTProcCreate(large ? m + 1 : m));
        TOLV_FFTProcDestroy(TOLV_IFFTProcCreate(m));
    }
    return Wisdom();
}

/* A fresh data folder as KEEL_DATA_PATH; returns its wisdom file's path. */
std::string UsePath(const char *tag)
{
    std::string dir = MakeTempFolder(tag);
    setenv("KEEL_DATA_PATH", dir.c_str(), 1);
    return dir + "/brae.optimization";
}

/* Modification time, after optionally setting it to a fixed old moment. */
long long MTime(const std::string &path, bool age = false)
{
    struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
    if (age)
        utimensat(AT_FDCWD, path.c_str(), old, 0);
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? (long long)st.st_mtim.tv_sec : -1;
}

/* Runs `body` in a child process and waits for it. */
void InChild(const std::function<void()> &body)
{
    fflush(nullptr);
    if (fork() == 0)
        body(), _exit(0);
    wait(nullptr);
}

/* The planner still works, whatever wisdom it was fed. */
bool TransformsWork()
{
    return spectral_test::RoundTrips(64, 1);
}

} // namespace

/* The load waits for a path and the setting, imports a file once; a missing
 * file settles it too. */
TEST(PlanService, LoadWaitsForThePathAndAMissingFileSettlesIt)
{
    RUN_IN_FRESH_PROCESS({
        FRESH_CHECK(__FFTW_LoadWisdom() == 0 && __FFTW_SaveWisdom() == 0);
        const std::string dir = MakeTempFolder("late"), empty = Wisdom();
        InChild(
            [&] { WriteFile(dir + "/brae.optimization", PlanAndExport(48)); });
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.use_wisdom=off");
        setenv("KEEL_DATA_PATH", dir.c_str(), 1);
        FRESH_CHECK(__FFTW_LoadWisdom() == 0); /* switched off: not settled */
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.use_wisdom=on");
        FRESH_CHECK(__FFTW_LoadWisdom() == 1 && Wisdom() != empty);
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
    });
    RUN_IN_FRESH_PROCESS({
        const std::string file = UsePath("missing");
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
        WriteFile(file, PlanAndExport(40));
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
    });
}

/* The save writes the bare text, leaves an identical file untouched, and
 * rewrites one with other bytes. A path of 512 bytes or more is cut to 511. */
TEST(PlanService, SaveRewritesOnlyWhenTheWisdomChangedAndCutsLongPaths)
{
    RUN_IN_FRESH_PROCESS({
        const std::string file = UsePath("save"), wisdom = PlanAndExport(64);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1 && ReadFile(file) == wisdom);
        MTime(file, true);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1 && MTime(file) == 1000000000);
        std::string other = wisdom;
        other[other.size() / 2] ^= 1;
        WriteFile(file, other);
        MTime(file, true);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1 && ReadFile(file) == wisdom &&
                    MTime(file) != 1000000000);

        std::string d = MakeTempFolder("long");
        for (char c : {'a', 'b'})
            d += "/" + std::string(200, c), mkdir(d.c_str(), 0700);
        const std::string cut = d + "/" + std::string(510 - d.size(), 'c');
        WriteFile(cut, "");
        setenv("KEEL_DATA_PATH", (cut + "/cut/off").c_str(), 1);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1 && cut.size() == 511 &&
                    ReadFile(cut) == Wisdom());
    });
}

/* The pass waits 300 ms for the data path and warns when it never comes.
 * Two calls without waiting start one pass; only a waiting call joins it.
 * By default a pass only loads; preparing, it plans the lengths up to the
 * limit (9 at the default 4096), then saves. */
TEST(PlanService, BackgroundPass)
{
    RUN_IN_FRESH_PROCESS({
        tolv_test::Messages messages;
        const std::string dir = MakeTempFolder("pass");
        const std::string file = dir + "/brae.optimization";
#if defined(__SANITIZE_THREAD__)
        /* setenv beside the pass's getenv is a race: set it beforehand. */
        setenv("KEEL_DATA_PATH", dir.c_str(), 1);
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
#else
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
        usleep(100000);
        setenv("KEEL_DATA_PATH", dir.c_str(), 1);
#endif
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1 && messages.lines.empty());
        FRESH_CHECK(_FFTW_PassLengthCount() == 0 && MTime(file) == -1);
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
        KEEL_THREAD first = _FFTW_BackgroundThread();
        FRESH_CHECK(first != nullptr && TOLV_OptimizeFFT(false) == 1 &&
                    _FFTW_BackgroundThread() == first);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1 && !_FFTW_BackgroundThread() &&
                    _FFTW_PassesStarted() == 2);

        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=[%d]", 1);
        const long long limits[][2] = {
            {-1, 9}, {16384, 11}, {1LL << 40, 11}, {15, 0}};
        for (const auto &row : limits) {
            if (row[0] >= 0)
                KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=%lld",
                                        row[0]);
            FRESH_CHECK(TOLV_OptimizeFFT(true) == 1 &&
                        _FFTW_PassLengthCount() == row[1]);
        }
        FRESH_CHECK(ReadFile(file) == PlanAndExport(16));
        unsetenv("KEEL_DATA_PATH");
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1 && _FFTW_PassesStarted() == 7);
        FRESH_CHECK(messages.All() ==
                    "1 -1 __InitializeFFTWPlans: KEEL_DATA_PATH not set!\n");
    });
}

/* A stop during a pass returns after the current length and the pass saves;
 * the lock goes. A restart makes a new lock, does not read the file again,
 * and the stop stays on. A joined pass is never joined again. */
TEST(PlanService, FinalizeStopsThePassAndRestartKeepsTheFlags)
{
    RUN_IN_FRESH_PROCESS({
        const std::string file = UsePath("finalize");
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=1");
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=16384");
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1 && TOLV_FinalizeFFT() == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 1 && MTime(file) != -1 &&
                    __FFTW_PlanLock == nullptr);
        FRESH_CHECK(TOLV_InitializeFFT() == 1 && __FFTW_PlanLock != nullptr &&
                    __FFTW_LoadWisdom() == 0);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1 &&
                    _FFTW_PassLengthCount() == 1);
    });
    const std::function<void()> sequences[] = {
        [] { TOLV_FinalizeFFT(); },
        [] { TOLV_Finalize(), TOLV_OptimizeFFT(true); },
        [] { TOLV_FinalizeFFT(), TOLV_FinalizeFFT(); },
    };
    for (const auto &sequence : sequences)
        RUN_IN_FRESH_PROCESS({
            FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
            sequence();
            exit(0);
        });
}

/* Where no file can be left (a missing folder; a folder, a named pipe or a
 * full device in its place), load and save give 0 and nothing changes. */
TEST(WisdomFaults, UnwritablePlacesAreNeverChanged)
{
    for (int place = 0; place < 4; place++)
        RUN_IN_FRESH_PROCESS({
            const std::string dir = MakeTempFolder("place"),
                              data = dir + (place ? "" : "/no"),
                              file = data + "/brae.optimization";
            (void)(place == 1   ? mkdir(file.c_str(), 0700)
                   : place == 2 ? mkfifo(file.c_str(), 0600)
                   : place == 3 ? symlink("/dev/full", file.c_str())
                                : 0);
            struct stat before = {}, after = {};
            lstat(file.c_str(), &before);
            setenv("KEEL_DATA_PATH", data.c_str(), 1);
            FRESH_CHECK(__FFTW_LoadWisdom() == 0 && TransformsWork() &&
                        __FFTW_SaveWisdom() == 0);
            lstat(file.c_str(), &after);
            FRESH_CHECK(before.st_mode == after.st_mode &&
                        after.st_size == before.st_size);
        });
}

/* Any file loads without harm and the next save leaves the whole wisdom.
 * Kinds: empty, binary junk, 8 MiB of text; sparse 3 GiB (negative in 32
 * bits) and 4 GiB + 4 KiB; emptied or grown between its size and its read;
 * left by a save killed after its open (empty) or after its write (whole
 * 4 KiB stdio buffers of the text, not all of it). */
TEST(WisdomFaults, DamagedChangingOrHalfSavedFilesLoadAndTheNextSaveRepairs)
{
    std::string junk(5000, 0);
    for (int i = 0; i < 5000; i++)
        junk[i] = (char)((i * 7919) % 251); /* zero bytes among them */
    const std::string texts[] = {"", junk, std::string(8 << 20, '(')};
    for (int kind = 0; kind < 9; kind++)
        RUN_IN_FRESH_PROCESS({
            const std::string file = UsePath("damaged"), large = file + ".new";
            const int fd = open(file.c_str(), O_WRONLY | O_CREAT, 0600);
            const long long end = ((kind + 0LL) << 30) + (kind - 3) * 4096;
            if ((kind == 3 || kind == 4) &&
                (ftruncate(fd, end) != 0 || pwrite(fd, "x", 1, end - 1) != 1))
                return; /* the file system cannot hold it */
            close(fd);
            if (kind < 3 || kind > 6)
                WriteFile(file, kind < 3 ? texts[kind] : "(stale wisdom)");
            /* Planned in another process, so this planner starts clean. */
            InChild([&] {
                if (kind == 5 || kind == 6)
                    WriteFile(file, PlanAndExport(32));
                WriteFile(large, PlanAndExport(0, true));
                if (kind > 6) {
                    g_at[kind == 7 ? OpenedForWriting : Wrote] = [] {
                        raise(SIGKILL);
                    };
                    __FFTW_SaveWisdom();
                }
            });
            const std::string meant = ReadFile(large),
                              left = kind > 6 ? ReadFile(file) : "";
            FRESH_CHECK(meant.compare(0, left.size(), left) == 0);
            FRESH_CHECK(kind == 7 ? left.empty()
                                  : kind != 8 || (left.size() % 4096 == 0 &&
                                                  !left.empty() &&
                                                  left.size() < meant.size()));
            if (kind == 5 || kind == 6)
                g_at[AboutToRead] = [&] {
                    WriteFile(file, kind == 5 ? "" : meant);
                };
            FRESH_CHECK(__FFTW_LoadWisdom() == 1 && TransformsWork() &&
                        __FFTW_SaveWisdom() == 1);
            const std::string now = ReadFile(file);
            FRESH_CHECK(now == Wisdom() && Wisdom(&now) == "whole");
        });
}
