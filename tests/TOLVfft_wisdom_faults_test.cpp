/*
 * The wisdom file under faults: a data folder that is missing, a file or
 * read-only; a wisdom file that is damaged, very large or a folder; a save
 * racing with a load in another process; a process killed in the middle of
 * a save. Whatever the file holds, the library must not crash or read past
 * its buffers, its processors must keep transforming correctly, and the next
 * save must leave a whole wisdom text behind where the folder allows it.
 * Each scenario runs in a fresh process.
 *
 * Faults in the middle of the file operations are injected by wrapping the
 * base library's open, write and read calls in this program (the library's
 * objects are linked into it, so its calls bind to these wrappers first).
 */
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <functional>
#include <string>

#include "TOLVfft/fftproc.h"
#include "wisdom_file_support.h"

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

/* Forward then inverse gives N times the frame back: the planner still
 * works, whatever wisdom it was fed. */
bool TransformsWork()
{
    bool ok = true;
    for (int n : {64, 100, 1024}) {
        _TOLV_FFTPROC *forward = TOLV_FFTProcCreate(n),
                      *inverse = TOLV_IFFTProcCreate(n);
        float *x = (float *)fftwf_malloc(sizeof(float) * n),
              *y = (float *)fftwf_malloc(sizeof(float) * n);
        TOLV_COMPLEX *spectrum = TOLV_CreateComplexVector(forward);
        for (int i = 0; i < n; i++)
            x[i] = (float)std::sin(0.1 * i * i);
        TOLV_FFTProcExecute(forward, x, spectrum);
        TOLV_IFFTProcExecuteEx(inverse, spectrum, y, false);
        ok = ok && forward->plan != nullptr && inverse->plan != nullptr;
        for (int i = 0; i < n; i++)
            ok = ok && std::fabs(y[i] / n - x[i]) < 1e-5f;
        TOLV_DestroyComplexVector(spectrum);
        fftwf_free(y);
        fftwf_free(x);
        TOLV_FFTProcDestroy(inverse);
        TOLV_FFTProcDestroy(forward);
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

/* A sparse file of `size` bytes: only the last 4 KiB are written. */
bool MakeSparse(const std::string &path, long long size)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::string tail(4096, 'x');
    const bool ok = fd >= 0 && ftruncate(fd, size) == 0 &&
                    pwrite(fd, tail.data(), tail.size(), size - 4096) == 4096;
    close(fd);
    return ok;
}

/* A wisdom text of many lengths, longer than one stdio buffer. */
std::string LargeWisdom()
{
    for (int n = 16; n <= 16384; n *= 2) {
        TOLV_FFTProcDestroy(TOLV_FFTProcCreate(n));
        TOLV_FFTProcDestroy(TOLV_IFFTProcCreate(n));
    }
    for (int n : {100, 480, 1000, 1536, 2205, 3000, 4410, 6000})
        TOLV_FFTProcDestroy(TOLV_FFTProcCreate(n));
    return ExportWisdom();
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

/* A folder in which no file can be created. Permissions refuse it to an
 * ordinary user; the superuser ignores them, so then a folder of the
 * process information filesystem stands in, which refuses new files to
 * everyone. */
std::string FolderRefusingNewFiles()
{
    const std::string dir = MakeTempFolder("readonly"), probe = dir + "/probe";
    chmod(dir.c_str(), 0555);
    const int fd = open(probe.c_str(), O_WRONLY | O_CREAT, 0600);
    if (fd < 0)
        return dir;
    close(fd);
    unlink(probe.c_str());
    return "/proc/self";
}

/* Data paths where the save cannot leave a file: the load reads what is
 * there (1) or settles on nothing (0), the save gives 0, and neither the
 * data path nor the wisdom file changes. */
TEST(WisdomFaults, UnwritablePlacesAreReadButNeverChanged)
{
    const struct {
        const char *name;
        int loads;
        /* Prepares the place in a fresh folder; returns the data path. */
        std::function<std::string(const std::string &)> place;
    } cases[] = {
        {"missing folder", 0,
         [](const std::string &d) { return d + "/not/there"; }},
        {"plain file", 0,
         [](const std::string &d) {
             WriteFile(d + "/plain", "not a folder");
             return d + "/plain";
         }},
        {"read-only folder", 0,
         [](const std::string &) { return FolderRefusingNewFiles(); }},
        {"wisdom file is a folder", 0,
         [](const std::string &d) {
             mkdir((d + "/brae.optimization").c_str(), 0700);
             return d;
         }},
        /* Opening either for writing would block or fill nothing. */
        {"wisdom file is a named pipe", 0,
         [](const std::string &d) {
             mkfifo((d + "/brae.optimization").c_str(), 0600);
             return d;
         }},
        {"wisdom file links to a device", 0,
         [](const std::string &d) {
             symlink("/dev/full", (d + "/brae.optimization").c_str());
             return d;
         }},
        {"read-only folder and file", 1,
         [](const std::string &d) {
             const std::string file = d + "/brae.optimization";
             /* Planned in another process, so that the wisdom here grows. */
             InChild([&] { WriteFile(file, PlanAndExport(40)); });
             chmod(file.c_str(), 0444);
             chmod(d.c_str(), 0555);
             return d;
         }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        if (c.loads == 1 && geteuid() == 0) {
            fprintf(stderr, "skipped: the superuser writes read-only files\n");
            continue;
        }
        RUN_IN_FRESH_PROCESS({
            const std::string data = c.place(MakeTempFolder("place"));
            const std::string file = data + "/brae.optimization";
            const std::string before = State(data) + State(file);
            setenv("KEEL_DATA_PATH", data.c_str(), 1);
            FRESH_CHECK(__FFTW_LoadWisdom() == c.loads);
            FRESH_CHECK(TransformsWork());
            FRESH_CHECK(__FFTW_SaveWisdom() == 0);
            FRESH_CHECK(State(data) + State(file) == before);
        });
    }
}

TEST(WisdomFaults, DamagedWisdomFilesLoadAndAreReplacedByTheNextSave)
{
    const long long kGiB = 1LL << 30;
    const struct {
        const char *name;
        /* Prepares the file; false when the file system cannot hold it. */
        std::function<bool(const std::string &)> make;
    } cases[] = {
        {"empty",
         [](const std::string &f) {
             WriteFile(f, "");
             return true;
         }},
        {"truncated",
         [](const std::string &f) {
             const std::string whole = LargeWisdom();
             WriteFile(f, whole.substr(0, whole.size() / 2));
             return true;
         }},
        {"garbage with zero bytes",
         [](const std::string &f) {
             std::string junk;
             for (int i = 0; i < 5000; i++)
                 junk.push_back((char)((i * 7919) % 251));
             WriteFile(f, junk);
             return true;
         }},
        {"8 MiB of text",
         [](const std::string &f) {
             WriteFile(f, std::string(8 << 20, '('));
             return true;
         }},
        /* The load takes the size in 32 bits: 3 GiB reads as negative, and
         * 4 GiB plus 4 KiB as 4 KiB (the file's first bytes, zeros here). */
        {"3 GiB sparse",
         [=](const std::string &f) { return MakeSparse(f, 3 * kGiB); }},
        {"4 GiB + 4 KiB sparse",
         [=](const std::string &f) { return MakeSparse(f, 4 * kGiB + 4096); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        RUN_IN_FRESH_PROCESS({
            const std::string file = UsePath("damaged");
            /* Made by another process, so that this planner starts clean. */
            const int made = InChild([&] { _exit(c.make(file) ? 0 : 3); });
            if (WIFEXITED(made) && WEXITSTATUS(made) == 3) {
                fprintf(stderr,
                        "skipped: the file system cannot hold the file\n");
                return;
            }
            FRESH_CHECK(ExitedCleanly(made));
            FRESH_CHECK(__FFTW_LoadWisdom() == 1); /* read, whatever it held */
            FRESH_CHECK(TransformsWork());
            FRESH_CHECK(__FFTW_SaveWisdom() == 1);
            const std::string now = ReadFile(file);
            FRESH_CHECK(now == ExportWisdom() && IsWholeWisdom(now));
        });
    }
}

/* One byte through a pipe, to hand the turn to the other process. */
void Signal(int fd)
{
    const char go = 1;
    FRESH_CHECK(write(fd, &go, 1) == 1);
}

void Await(int fd)
{
    char go;
    FRESH_CHECK(read(fd, &go, 1) == 1);
}

/*
 * A writer process saves a larger wisdom over the file while this process
 * loads it, at the two worst moments: the writer has emptied the file but
 * not written yet, and the reader has taken the old size but not read yet
 * (it then reads the start of the new text, cut to the old size).
 */
TEST(WisdomFaults, SaveRacingWithALoadInAnotherProcess)
{
    for (bool emptied : {true, false}) {
        SCOPED_TRACE(emptied ? "file emptied" : "size taken");
        RUN_IN_FRESH_PROCESS({
            const std::string file = UsePath("race");
            /* Planned elsewhere: this process's load must stay unsettled. */
            FRESH_CHECK(ExitedCleanly(
                InChild([&] { WriteFile(file, PlanAndExport(32)); })));
            int toWriter[2], toReader[2];
            FRESH_CHECK(pipe(toWriter) == 0 && pipe(toReader) == 0);
            fflush(nullptr);
            const pid_t writer = fork();
            /* Each side keeps only its own ends, so that the death of one
             * ends the other's wait instead of hanging it. */
            close(writer == 0 ? toWriter[1] : toWriter[0]);
            close(writer == 0 ? toReader[0] : toReader[1]);
            if (writer == 0) {
                const std::string wisdom = LargeWisdom();
                if (emptied)
                    Arm(Point::OpenedForWriting, [&] {
                        Signal(toReader[1]);
                        Await(toWriter[0]); /* until the reader has read */
                    });
                else
                    Await(toWriter[0]); /* until the reader has the size */
                FRESH_CHECK(__FFTW_SaveWisdom() == 1 &&
                            ReadFile(file) == wisdom);
                Signal(toReader[1]);
                _exit(0);
            }
            if (emptied) {
                Await(toReader[0]);
                FRESH_CHECK(__FFTW_LoadWisdom() == 1);
                Signal(toWriter[1]);
                Await(toReader[0]);
            } else {
                Arm(Point::AboutToRead, [&] {
                    Signal(toWriter[1]);
                    Await(toReader[0]); /* the new text is written */
                });
                FRESH_CHECK(__FFTW_LoadWisdom() == 1);
            }
            int status = -1;
            waitpid(writer, &status, 0);
            FRESH_CHECK(ExitedCleanly(status) && TransformsWork());
            FRESH_CHECK(IsWholeWisdom(ReadFile(file)));
        });
    }
}

/*
 * A process killed in the middle of a save. The save opens the file with
 * "w" (emptying it), writes the text through the C library's buffered
 * stream and closes it. Killed after the open, it leaves an empty file;
 * killed after the write but before the close, it leaves what the stream
 * had already passed to the system: nothing of a text shorter than one
 * buffer, whole buffers of a longer one. In every case the next process
 * loads what is there without harm and its save puts a whole text back.
 */
TEST(WisdomFaults, CrashInTheMiddleOfASaveLeavesAPrefixThatTheNextSaveRepairs)
{
    const struct {
        Point killAt;
        bool large;
    } cases[] = {{Point::OpenedForWriting, true},
                 {Point::Wrote, false},
                 {Point::Wrote, true}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.large ? "large wisdom" : "small wisdom");
        RUN_IN_FRESH_PROCESS({
            const std::string file = UsePath("crash");
            WriteFile(file, "(stale wisdom)");
            /* The saving process leaves the text it meant to write beside
             * the file; this process plans nothing, so that the next one
             * starts as a fresh host would. */
            const int status = InChild([&] {
                WriteFile(file + ".meant",
                          c.large ? LargeWisdom() : PlanAndExport(64));
                Arm(c.killAt, [] { raise(SIGKILL); });
                __FFTW_SaveWisdom();
            });
            FRESH_CHECK(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
            const std::string left = ReadFile(file),
                              whole = ReadFile(file + ".meant");
            FRESH_CHECK(whole.compare(0, left.size(), left) ==
                        0); /* a prefix */
            if (c.killAt == Point::OpenedForWriting || !c.large)
                FRESH_CHECK(left.empty());
            else
                FRESH_CHECK(!left.empty() && left.size() % 4096 == 0 &&
                            left.size() < whole.size());
            FRESH_CHECK(ExitedCleanly(InChild([&] {
                FRESH_CHECK(__FFTW_LoadWisdom() == 1 && TransformsWork());
                FRESH_CHECK(__FFTW_SaveWisdom() == 1 &&
                            IsWholeWisdom(ReadFile(file)));
            })));
        });
    }
}

} // namespace
