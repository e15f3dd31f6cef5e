/*
 * The FFT plan service: when the wisdom file is read and written, the
 * background pass and its settings, what a shutdown leaves behind, and the
 * file under faults (unwritable places, damaged or huge files, a file that
 * changes under a load, a save killed half-way). Each scenario runs in a
 * fresh process, since some flags are never cleared. Faults in the middle
 * of the file operations are injected by wrapping the base library's open,
 * write and read calls in this program (the library's objects are linked
 * into it, so its calls bind to these wrappers first).
 */
#include <dlfcn.h>
#include <fcntl.h>
#include <fftw3.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "TOLVfft/fftproc.h"
#include "TOLVfft/plan_service.h"
#include "fresh_process.h"
#include "support/messages.h"

namespace {

enum class Point { None, OpenedForWriting, Wrote, AboutToRead };
Point g_point = Point::None;
std::function<void()> g_action;

/* Runs the armed action once when the library reaches its point. */
void Reach(Point point)
{
    if (g_point == point) {
        g_point = Point::None;
        g_action();
    }
}

void Arm(Point point, std::function<void()> action)
{
    g_action = std::move(action);
    g_point = point;
}

template <typename F>
F Real(const char *name)
{
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" KEEL_FILE KEELIO_Open(const char *path, const char *mode, ...)
{
    static auto real =
        Real<KEEL_FILE (*)(const char *, const char *, ...)>("KEELIO_Open");
    KEEL_FILE file = real(path, mode);
    if (file != nullptr && mode != nullptr && mode[0] == 'w')
        Reach(Point::OpenedForWriting);
    return file;
}

extern "C" int64_t KEELIO_WriteData(KEEL_FILE file, const void *src,
                                    int64_t bytes)
{
    static auto real =
        Real<int64_t (*)(KEEL_FILE, const void *, int64_t)>("KEELIO_WriteData");
    const int64_t written = real(file, src, bytes);
    Reach(Point::Wrote);
    return written;
}

extern "C" int64_t KEELIO_ReadData(KEEL_FILE file, void *dest, int64_t bytes)
{
    static auto real =
        Real<int64_t (*)(KEEL_FILE, void *, int64_t)>("KEELIO_ReadData");
    Reach(Point::AboutToRead);
    return real(file, dest, bytes);
}

namespace {

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void WriteFile(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

/* The wisdom FFTW holds now, exported under the planning lock. */
std::string ExportWisdom()
{
    MutexLock(__FFTW_PlanLock);
    char *text = fftwf_export_wisdom_to_string();
    MutexUnlock(__FFTW_PlanLock);
    std::string s = text ? text : "";
    free(text);
    return s;
}

/* Plans lengths (so that FFTW holds wisdom) and returns the wisdom text;
 * with `large`, enough lengths for a text longer than one stdio buffer. */
std::string PlanAndExport(int n, bool large = false)
{
    for (int m = large ? 16 : n; m <= (large ? 16384 : n); m *= 2) {
        TOLV_FFTProcDestroy(TOLV_FFTProcCreate(large ? m + 1 : m));
        TOLV_FFTProcDestroy(TOLV_IFFTProcCreate(m));
    }
    return ExportWisdom();
}

/* A fresh data folder, made the process's KEEL_DATA_PATH; returns the path
 * of the wisdom file in it. */
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

/* Runs `body` in a child process and returns its wait status. */
int InChild(const std::function<void()> &body)
{
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        body();
        _exit(0);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
}

bool ExitedCleanly(int status)
{
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/* Forward then inverse gives N times the frame back: the planner still
 * works, whatever wisdom it was fed. */
bool TransformsWork()
{
    bool ok = true;
    for (int n : {64, 100, 1024}) {
        _TOLV_FFTPROC *forward = TOLV_FFTProcCreate(n),
                      *inverse = TOLV_IFFTProcCreate(n);
        float *x = (float *)fftwf_malloc(4 * n),
              *y = (float *)fftwf_malloc(4 * n);
        TOLV_COMPLEX *spectrum = TOLV_CreateComplexVector(forward);
        for (int i = 0; i < n; i++)
            x[i] = (float)std::sin(0.1 * i * i);
        TOLV_FFTProcExecute(forward, x, spectrum);
        TOLV_IFFTProcExecuteEx(inverse, spectrum, y, false);
        for (int i = 0; i < n; i++)
            ok = ok && std::fabs(y[i] / n - x[i]) < 1e-5f;
        TOLV_DestroyComplexVector(spectrum);
        fftwf_free(y), fftwf_free(x);
        TOLV_FFTProcDestroy(inverse), TOLV_FFTProcDestroy(forward);
    }
    return ok;
}

/* A text FFTW accepts as a whole. */
bool IsWholeWisdom(const std::string &text)
{
    MutexLock(__FFTW_PlanLock);
    const int ok = fftwf_import_wisdom_from_string(text.c_str());
    MutexUnlock(__FFTW_PlanLock);
    return ok == 1 && !text.empty();
}

/* A sparse file of `size` bytes: only the last 4 KiB are written. */
bool MakeSparse(const std::string &path, long long size)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::string tail(4096, 'x');
    const bool ok = fd >= 0 && ftruncate(fd, size) == 0 &&
                    pwrite(fd, tail.data(), 4096, size - 4096) == 4096;
    return close(fd) == 0 && ok;
}

} // namespace

TEST(PlanService, LoadWaitsForThePathAndAMissingFileSettlesIt)
{
    RUN_IN_FRESH_PROCESS({
        FRESH_CHECK(__FFTW_LoadWisdom() == 0); /* unset: not settled */
        FRESH_CHECK(__FFTW_SaveWisdom() == 0);
        std::string dir = MakeTempFolder("late"),
                    file = dir + "/brae.optimization";
        FRESH_CHECK(ExitedCleanly(
            InChild([&] { WriteFile(file, PlanAndExport(48)); })));
        const std::string empty = ExportWisdom();
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.use_wisdom=off");
        setenv("KEEL_DATA_PATH", dir.c_str(), 1);
        FRESH_CHECK(__FFTW_LoadWisdom() == 0); /* switched off: not settled */
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.use_wisdom=on");
        FRESH_CHECK(__FFTW_LoadWisdom() == 1); /* read now, once */
        FRESH_CHECK(ExportWisdom() != empty);  /* and imported */
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
    });
    RUN_IN_FRESH_PROCESS({
        const std::string file = UsePath("missing");
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
        WriteFile(file, PlanAndExport(40));
        FRESH_CHECK(__FFTW_LoadWisdom() == 0); /* a later file is not read */
    });
}

TEST(PlanService, SaveRewritesOnlyWhenTheWisdomChanged)
{
    RUN_IN_FRESH_PROCESS({
        const std::string file = UsePath("save");
        const std::string wisdom = PlanAndExport(64);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1);
        FRESH_CHECK(ReadFile(file) == wisdom); /* no header, no terminator */
        MTime(file, true);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1); /* identical: untouched */
        FRESH_CHECK(MTime(file) == 1000000000);
        std::string other = wisdom;
        other[other.size() / 2] ^= 1; /* same size, other bytes */
        WriteFile(file, other);
        MTime(file, true);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1);
        FRESH_CHECK(ReadFile(file) == wisdom && MTime(file) != 1000000000);
    });
}

TEST(PlanService, PathOfMoreThan511BytesIsCutAndTheCutPathUsed)
{
    RUN_IN_FRESH_PROCESS({
        /* A real file whose path is the first 511 bytes of the data path. */
        std::string d = MakeTempFolder("long");
        for (char c : {'a', 'b'}) {
            d += "/" + std::string(200, c);
            FRESH_CHECK(mkdir(d.c_str(), 0700) == 0);
        }
        const std::string cut = d + "/" + std::string(510 - d.size(), 'c');
        WriteFile(cut, "");
        setenv("KEEL_DATA_PATH", (cut + "/cut/off").c_str(), 1);
        const std::string wisdom = PlanAndExport(96);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1);
        FRESH_CHECK(cut.size() == 511 && ReadFile(cut) == wisdom);
    });
}

TEST(PlanService, PassPlansUpToTheLimitAndSavesOnlyWhenPreparing)
{
    RUN_IN_FRESH_PROCESS({
        const std::string file = UsePath("pass");
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1); /* default: only loads */
        FRESH_CHECK(_FFTW_PassLengthCount() == 0 && MTime(file) == -1);
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=[%d]", 1);
        const long long limits[][2] = {
            {4096, 9}, {16384, 11}, {1LL << 40, 11}, {15, 0}};
        for (const auto &row : limits) {
            KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=%lld",
                                    row[0]);
            FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
            FRESH_CHECK(_FFTW_PassLengthCount() == row[1]);
        }
        FRESH_CHECK(ReadFile(file) == PlanAndExport(16));
        FRESH_CHECK(_FFTW_PassesStarted() == 5);
    });
}

TEST(PlanService, OnlyAWaitingCallClearsTheThread)
{
    RUN_IN_FRESH_PROCESS({
        UsePath("threads");
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
        KEEL_THREAD first = _FFTW_BackgroundThread();
        FRESH_CHECK(first != nullptr);
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1); /* starts nothing */
        FRESH_CHECK(_FFTW_BackgroundThread() == first);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1); /* joins the first */
        FRESH_CHECK(_FFTW_BackgroundThread() == nullptr);
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1); /* a new pass */
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(_FFTW_PassesStarted() == 2);
    });
}

/* The pass gives the host 300 ms to set the data path: set after 100 ms it
 * is found (the missing file then settles the load); never set, the pass
 * warns. */
TEST(PlanService, PassWaitsForTheDataPathThenWarns)
{
    RUN_IN_FRESH_PROCESS({
        tolv_test::Messages messages;
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
        usleep(100000);
        setenv("KEEL_DATA_PATH", MakeTempFolder("late").c_str(), 1);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1 && messages.lines.empty());
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
        unsetenv("KEEL_DATA_PATH");
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(messages.All() ==
                    "1 -1 __InitializeFFTWPlans: KEEL_DATA_PATH not set!\n");
    });
}

TEST(PlanService, FinalizeStopsAPassAfterTheCurrentLengthAndRestartKeepsFlags)
{
    RUN_IN_FRESH_PROCESS({
        const std::string file = UsePath("finalize");
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=1");
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=16384");
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
        /* The pass sleeps before it plans, so the stop is raised before the
         * first length ends: exactly one length is prepared, then saved. */
        FRESH_CHECK(TOLV_FinalizeFFT() == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 1 && MTime(file) != -1);
        FRESH_CHECK(__FFTW_PlanLock == nullptr);
        /* Restart: a new lock, the file not read again, the stop still on. */
        FRESH_CHECK(TOLV_InitializeFFT() == 1 && __FFTW_PlanLock != nullptr);
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 1);
    });
}

/* A pass that was joined once is joined no more: later stops, waits and the
 * unload at exit meet a handle that ended long ago and return at once. Each
 * sequence ends in a normal exit, so that the unload-time stop runs too. */
TEST(PlanService, AJoinedPassIsNeverJoinedAgain)
{
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

/* What lies at a path: nothing, a folder, a file and its bytes, or
 * something else (a pipe, a link), which is not opened. */
std::string State(const std::string &path)
{
    struct stat st;
    if (lstat(path.c_str(), &st) != 0)
        return "none";
    if (S_ISDIR(st.st_mode))
        return "folder";
    return S_ISREG(st.st_mode) ? "file:" + ReadFile(path) : "other";
}

/* Data paths where the save cannot leave a file (a missing folder, a
 * folder, a named pipe or a full device in the file's place; the last two
 * would block or fill nothing): the load settles on nothing, the save gives
 * 0, and nothing at the path changes. */
TEST(WisdomFaults, UnwritablePlacesAreNeverChanged)
{
    for (int place = 0; place < 4; place++)
        RUN_IN_FRESH_PROCESS({
            std::string data = MakeTempFolder("place") + (place ? "" : "/not");
            const std::string file = data + "/brae.optimization";
            if (place == 1)
                mkdir(file.c_str(), 0700);
            if (place == 2)
                mkfifo(file.c_str(), 0600);
            if (place == 3)
                symlink("/dev/full", file.c_str());
            const std::string before = State(data) + State(file);
            setenv("KEEL_DATA_PATH", data.c_str(), 1);
            FRESH_CHECK(__FFTW_LoadWisdom() == 0 && TransformsWork());
            FRESH_CHECK(__FFTW_SaveWisdom() == 0);
            FRESH_CHECK(State(data) + State(file) == before);
        });
}

/* Whatever the file holds, it loads without harm, the planner works, and
 * the next save leaves the whole current wisdom: an empty file, garbage
 * with zero bytes, 8 MiB of text; sparse files of 3 GiB (the size, taken in
 * 32 bits, is negative) and of 4 GiB + 4 KiB (read as its first 4 KiB,
 * zeros); and a file that changes between its size and its read, cut to
 * nothing or replaced by a longer text then read in part. */
TEST(WisdomFaults, DamagedOrChangingFilesLoadAndTheNextSaveRepairs)
{
    std::string junk;
    for (int i = 0; i < 5000; i++)
        junk.push_back((char)((i * 7919) % 251));
    const std::string texts[] = {"", junk, std::string(8 << 20, '(')};
    for (int kind = 0; kind < 7; kind++)
        RUN_IN_FRESH_PROCESS({
            const std::string file = UsePath("damaged");
            if (kind < 3)
                WriteFile(file, texts[kind]);
            else if (kind < 5 && !MakeSparse(file, ((kind + 0LL) << 30) +
                                                       (kind - 3) * 4096))
                return; /* the file system cannot hold it */
            /* Planned in another process, so this planner starts clean. */
            FRESH_CHECK(ExitedCleanly(InChild([&] {
                if (kind >= 5)
                    WriteFile(file, PlanAndExport(32));
                WriteFile(file + ".new", PlanAndExport(0, true));
            })));
            Arm(Point::AboutToRead, [&] {
                if (kind >= 5)
                    WriteFile(file, kind == 5 ? "" : ReadFile(file + ".new"));
            });
            FRESH_CHECK(__FFTW_LoadWisdom() == 1 && TransformsWork());
            FRESH_CHECK(__FFTW_SaveWisdom() == 1);
            const std::string now = ReadFile(file);
            FRESH_CHECK(now == ExportWisdom() && IsWholeWisdom(now));
        });
}

/*
 * A process killed in the middle of a save. The save opens the file with
 * "w" (emptying it), writes through the C library's buffered stream and
 * closes it. Killed after the open it leaves an empty file; killed after
 * the write but before the close, what the stream had passed on: nothing
 * of a text shorter than one buffer, whole buffers of a longer one. The
 * next process loads what is there and its save puts a whole text back.
 */
TEST(WisdomFaults, CrashInTheMiddleOfASaveLeavesAPrefixThatTheNextSaveRepairs)
{
    const std::pair<Point, bool> cases[] = {{Point::OpenedForWriting, true},
                                            {Point::Wrote, false},
                                            {Point::Wrote, true}};
    for (const auto &c : cases)
        RUN_IN_FRESH_PROCESS({
            const std::string file = UsePath("crash");
            WriteFile(file, "(stale wisdom)");
            /* The saving process leaves the text it meant to write beside
             * the file; this one plans nothing, as a fresh host would. */
            const int status = InChild([&] {
                WriteFile(file + ".meant", PlanAndExport(64, c.second));
                Arm(c.first, [] { raise(SIGKILL); });
                __FFTW_SaveWisdom();
            });
            FRESH_CHECK(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
            const std::string left = ReadFile(file),
                              whole = ReadFile(file + ".meant");
            FRESH_CHECK(whole.compare(0, left.size(), left) ==
                        0); /* a prefix */
            if (c.first == Point::OpenedForWriting || !c.second)
                FRESH_CHECK(left.empty());
            else
                FRESH_CHECK(left.size() % 4096 == 0 &&
                            left.size() < whole.size() && !left.empty());
            FRESH_CHECK(ExitedCleanly(InChild([&] {
                FRESH_CHECK(__FFTW_LoadWisdom() == 1 && TransformsWork());
                FRESH_CHECK(__FFTW_SaveWisdom() == 1 &&
                            IsWholeWisdom(ReadFile(file)));
            })));
        });
}
