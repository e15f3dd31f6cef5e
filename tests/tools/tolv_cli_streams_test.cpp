/*
 * End to end: devices, pipes, FIFOs and symlinks as outputs, the modes of
 * new files, and runs killed while they write.
 */
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tolv_cli_support.h"

using namespace clitest;

namespace {

bool isType(const std::string &path, mode_t type)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0 && (st.st_mode & S_IFMT) == type;
}

/* A FIFO, a device or /dev/stdout is written in place, streamed in the
 * input's container, and stays what it is; when the audio goes to standard
 * output the report goes to stderr. A symlink keeps pointing at its file,
 * which gets the output. New files get 0666 less the umask, neither a
 * temporary file's private mode nor a fixed one. (The devices are nodes in
 * the scratch folder, so that a faulty build cannot replace /dev/null.) */
TEST(TolvOutputs, NonRegularOutputsAreWrittenInPlace)
{
    ScratchDir dir;
    const std::string in = dir.path("in.au");
    const int kAu = SF_FORMAT_AU | SF_FORMAT_PCM_16;
    writeAudio(in, makeSignal(4000, 16000, {{{0.5, 440}}}), 1, 16000, kAu);
    ASSERT_EQ(
        0, std::system(
               dir.expand(
                      "cd @ && mkfifo fifo && mknod null c 1 3 && mknod full c "
                      "1 7 && echo old >target.au && ln -s target.au link.au")
                   .c_str()));
    const mode_t old = umask(002);
    Outcome r =
        runTolv({"resample", in, dir.path("named.au"), "--rate", "8000"});
    const std::vector<float> named = readAudio(dir.path("named.au")).samples;
    const struct {
        const char *out, *shell, *report; /* on stderr after a '>' */
    } rows[] = {
        // clang-format off
        {"@fifo", "& cat @fifo >@got.au; wait", "fifo: 2000 frames"},
        {"@fifo", ">@fifo & cat @fifo >@got.au; wait", "fifo: 2000 frames"},
        {"-", ">@got.au", "-: 2000 frames (expected 2000)"},
        {"/dev/stdout", ">@got.au", "/dev/stdout: 2000 frames"},
        {"@link.au", "&& cp @target.au @got.au", "link.au: 2000 frames"},
        {"@null", "&& cp @named.au @got.au", "null: 2000 frames"},
        // clang-format on
    };
    for (const auto &row : rows) {
        r = runShell({"resample", in, dir.expand(row.out), "--rate", "8000"},
                     dir.expand(row.shell));
        EXPECT_EQ(0, r.status) << row.out << r.err;
        EXPECT_NE(std::string::npos,
                  (row.shell[0] == '>' ? r.err : r.out).find(row.report))
            << r.out << r.err;
        const Audio got = readAudio(dir.path("got.au"));
        EXPECT_EQ(kAu, got.format) << row.out;
        EXPECT_EQ(named, got.samples) << row.out;
    }
    EXPECT_TRUE(isType(dir.path("fifo"), S_IFIFO) &&
                isType(dir.path("link.au"), S_IFLNK));
    EXPECT_TRUE(isType(dir.path("null"), S_IFCHR) &&
                isType("/dev/stdout", S_IFLNK));
    r = runTolv({"spectrum", in, "--csv", dir.path("full")});
    EXPECT_TRUE(r.status == 1 && r.says("full: No space left on device"))
        << r.err;
    r = runTolv({"spectrum", in, "--csv", dir.path("o.csv")});
    umask(old);
    for (const char *name : {"named.au", "o.csv"}) {
        struct stat st;
        ASSERT_EQ(0, stat(dir.path(name).c_str(), &st)) << r.err;
        EXPECT_EQ(0664u, st.st_mode & 0777) << name;
    }
    // A pipe cannot take WAV, whose header is completed last.
    writeAudio(dir.path("in.wav"), makeSignal(400, 16000, {{{0.5, 440}}}), 1,
               16000);
    r = runShell({"resample", dir.path("in.wav"), "-", "--rate", "8000"},
                 "| cat >/dev/null");
    EXPECT_TRUE(r.says("WAV (Microsoft) cannot be streamed")) << r.err;
}

/* True once process `pid` holds an open file in `dir` that has no name
 * there yet (unnamed, or a hidden temporary). */
bool writesInto(int pid, const std::string &dir)
{
    for (int fd = 0; fd < 64; fd++) {
        char target[4096];
        const std::string link =
            "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd);
        ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
        const std::string t(target, size_t(std::max<ssize_t>(n, 0)));
        if (t.rfind(dir, 0) == 0 && (t.find("(deleted)") != std::string::npos ||
                                     t.find(".tmp-") != std::string::npos))
            return true;
    }
    return false;
}

/* A run stopped by a signal while it writes, even one that cannot be
 * caught, leaves the folder holding only the input. */
TEST(TolvOutputs, InterruptedRunLeavesNothingBehind)
{
    for (int sig : {SIGTERM, SIGINT, SIGKILL}) {
        ScratchDir dir;
        writeAudio(dir.path("in.wav"),
                   makeSignal(30 * 44100, 44100, {{{0.5, 440}}}), 1, 44100);
        // A long prototype makes the conversion take seconds.
        int pid =
            startTolv({"resample", dir.path("in.wav"), dir.path("out.wav"),
                       "--rate", "48000", "--order", "800"});
        bool writing = false;
        for (int i = 0; i < 2000 && !writing; i++, usleep(5000))
            writing = writesInto(pid, dir.path(""));
        ASSERT_TRUE(writing) << "the temporary output never appeared";
        kill(pid, sig);
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the run ended before the signal";
        EXPECT_EQ(sig, WTERMSIG(status));
        EXPECT_EQ(std::vector<std::string>{"in.wav"}, dir.entries()) << sig;
    }
}

} // namespace
