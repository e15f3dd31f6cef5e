/*
 * End to end: what the tolv command does with the names it is given.
 * Outputs never replace inputs, devices and pipes are written in place,
 * "-" and streams of unknown length work, and work and memory stay bounded
 * on hostile inputs. Every case runs in its own scratch folder.
 */
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <pty.h>

#include "tolv_cli_support.h"

using namespace clitest;

namespace {

#ifdef TOLV_TEST_SANITIZED
constexpr bool kFiguresHold = false;
#else
constexpr bool kFiguresHold = true;
#endif

const int kFloatWav = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
const int kOgg = SF_FORMAT_OGG | SF_FORMAT_VORBIS;

std::string quote(const std::string &s)
{
    std::string out = "'";
    for (char c : s)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

/* Runs `before | tolv ARGS after` through the shell; both may be empty. */
Outcome runPiped(const std::string &before,
                 const std::vector<std::string> &args,
                 const std::string &after = "")
{
    ScratchDir io;
    std::string command = before.empty() ? "" : before + " | ";
    command += quote(TOLV_CLI);
    for (const std::string &a : args)
        command += " " + quote(a);
    command += " 2>" + quote(io.path("err"));
    if (after.find('>') == std::string::npos)
        command += " >" + quote(io.path("out"));
    command += " " + after;
    int status = std::system(command.c_str());
    Outcome r;
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = bytesOf(io.path("out"));
    r.err = bytesOf(io.path("err"));
    return r;
}

/* Runs tolv with its output discarded; returns the exit status (-1 when it
 * had to be killed after `seconds`) and the peak resident size in MB. */
struct Measured {
    int status;
    double peakMb;
};
Measured runMeasured(const std::vector<std::string> &args, double seconds)
{
    int pid = startTolv(args);
    int status = 0;
    struct rusage usage {};
    for (int waited = 0; waited < int(seconds * 100); waited++) {
        if (wait4(pid, &status, WNOHANG, &usage) == pid)
            return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                    double(usage.ru_maxrss) / 1024.0};
        usleep(10000);
    }
    kill(pid, SIGKILL);
    wait4(pid, &status, 0, &usage);
    return {-1, double(usage.ru_maxrss) / 1024.0};
}

/* No output may replace an input, through any name: every refusal comes
 * before any work (nothing on stdout) and leaves the input's bytes. */
TEST(TolvOutputs, NeverReplaceAnInput)
{
    const struct {
        std::vector<std::string> args; /* "@" stands for the folder */
        const char *message;
    } rows[] = {
        {{"spectrum", "@/in.wav", "--csv", "@/in.wav"}, "is an input file"},
        {{"spectrum", "@/in.wav", "--plot", "@/link.wav"}, "is an input file"},
        {{"spectrum", "@/in.wav", "--spectrogram", "@/hard.wav"},
         "is an input file"},
        {{"spectrum", "@/in.wav", "--csv", "@/o.csv", "--plot", "@/o.csv"},
         "is named twice"},
        {{"filter", "@/in.wav", "@/link.wav", "fpass=0.5, order=2"},
         "is an input file"},
        {{"resample", "@/in.wav", "@/hard.wav", "--rate", "8000"},
         "is an input file"},
        {{"stretch", "@/link.wav", "@/in.wav", "--speed", "2"},
         "is an input file"},
        {{"stretch", "@/in.wav", "@/new.wav", "--speed", "2", "--cursor",
          "@/./new.wav"},
         "is named twice"},
        {{"stretch", "@/in.wav", "@/new.wav", "--speed", "2", "--cursor",
          "@/hard.wav"},
         "is an input file"},
        {{"delay", "@/in.wav", "@/in.wav", "--csv", "@/link.wav"},
         "is an input file"},
        {{"delay", "@/in.wav", "@/in.wav"}, ""},
    };
    for (const auto &row : rows) {
        ScratchDir dir;
        writeAudio(dir.path("in.wav"), makeSignal(4000, 16000, {{{0.5, 440}}}),
                   1, 16000);
        ASSERT_EQ(0, symlink("in.wav", dir.path("link.wav").c_str()));
        ASSERT_EQ(
            0, link(dir.path("in.wav").c_str(), dir.path("hard.wav").c_str()));
        std::ofstream(dir.path("o.csv")) << "kept\n";
        const std::string original = bytesOf(dir.path("in.wav"));
        std::vector<std::string> args;
        for (const std::string &a : row.args)
            args.push_back(a[0] == '@' ? dir.path(a.substr(2)) : a);
        Outcome r = runTolv(args);
        EXPECT_EQ(original, bytesOf(dir.path("in.wav"))) << args[0];
        if (!*row.message) {
            EXPECT_EQ(0, r.status) << r.err; /* two inputs: nothing written */
            continue;
        }
        EXPECT_EQ(1, r.status) << args[0];
        EXPECT_EQ("", r.out) << args[0];
        EXPECT_NE(std::string::npos, r.err.find(row.message)) << r.err;
        EXPECT_EQ("kept\n", bytesOf(dir.path("o.csv")));
        EXPECT_EQ((std::vector<std::string>{"hard.wav", "in.wav", "link.wav",
                                            "o.csv"}),
                  dir.entries());
    }
}

/* A device, a FIFO or /dev/stdout is written in place and stays what it
 * is; a symlink to a file keeps pointing at the new file; a directory and
 * a read-only file are refused. */
TEST(TolvOutputs, NonRegularOutputsAreWrittenInPlace)
{
    ScratchDir dir;
    writeAudio(dir.path("in.au"), makeSignal(4000, 16000, {{{0.5, 440}}}), 1,
               16000, SF_FORMAT_AU | SF_FORMAT_PCM_16);
    const std::string in = dir.path("in.au");

    Outcome r = runTolv({"resample", in, "/dev/null", "--rate", "8000"});
    EXPECT_EQ(0, r.status) << r.err;
    struct stat st;
    ASSERT_EQ(0, stat("/dev/null", &st));
    EXPECT_TRUE(S_ISCHR(st.st_mode)) << "/dev/null was replaced";

    r = runTolv({"spectrum", in, "--csv", "/dev/stdout"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("frequency_hz,channel_1_db\n"));
    ASSERT_EQ(0, lstat("/dev/stdout", &st));
    EXPECT_TRUE(S_ISLNK(st.st_mode)) << "/dev/stdout was replaced";

    ASSERT_EQ(0, mkfifo(dir.path("fifo").c_str(), 0600));
    r = runPiped("", {"resample", in, dir.path("fifo"), "--rate", "8000"},
                 "& cat " + quote(dir.path("fifo")) + " >" +
                     quote(dir.path("from-fifo.au")) + "; wait");
    Audio fromFifo = readAudio(dir.path("from-fifo.au"));
    EXPECT_EQ(2000, fromFifo.frames);
    EXPECT_EQ(8000, fromFifo.rate);
    ASSERT_EQ(0, lstat(dir.path("fifo").c_str(), &st));
    EXPECT_TRUE(S_ISFIFO(st.st_mode));

    // The FIFO is also standard output: the report must not go into it.
    r = runPiped("", {"resample", in, dir.path("fifo"), "--rate", "8000"},
                 ">" + quote(dir.path("fifo")) + " & cat " +
                     quote(dir.path("fifo")) + " >" +
                     quote(dir.path("both.au")) + "; wait");
    EXPECT_NE(std::string::npos, r.err.find("fifo: 2000 frames")) << r.err;
    EXPECT_EQ(fromFifo.samples, readAudio(dir.path("both.au")).samples);

    ASSERT_EQ(0, symlink("target.au", dir.path("link.au").c_str()));
    std::ofstream(dir.path("target.au")) << "old";
    r = runTolv({"resample", in, dir.path("link.au"), "--rate", "8000"});
    EXPECT_EQ(0, r.status) << r.err;
    ASSERT_EQ(0, lstat(dir.path("link.au").c_str(), &st));
    EXPECT_TRUE(S_ISLNK(st.st_mode)) << "the symlink was replaced";
    EXPECT_EQ(2000, readAudio(dir.path("target.au")).frames);

    ASSERT_EQ(0, mkdir(dir.path("folder").c_str(), 0755));
    std::ofstream(dir.path("ro.au")) << "read only";
    chmod(dir.path("ro.au").c_str(), 0444);
    const struct {
        std::vector<std::string> args;
        std::string message;
    } refused[] = {
        {{"resample", in, dir.path("folder"), "--rate", "8000"},
         "cannot write " + dir.path("folder") + ": it is a directory"},
        {{"resample", in, dir.path("ro.au"), "--rate", "8000"},
         "ro.au: permission denied"},
        {{"spectrum", in, "--csv", dir.path("ro.au")},
         "ro.au: permission denied"},
        {{"design", "fpass=0.2, order=2", "--plot", dir.path("ro.au")},
         "ro.au: permission denied"},
    };
    for (const auto &row : refused) {
        r = runTolv(row.args);
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("", r.out);
        EXPECT_NE(std::string::npos, r.err.find(row.message)) << r.err;
    }
    EXPECT_EQ("read only", bytesOf(dir.path("ro.au")));
    rmdir(dir.path("folder").c_str());
    chmod(dir.path("ro.au").c_str(), 0644);
}

/* Audio and side files get 0666 less the umask, not a temporary file's
 * private mode. */
TEST(TolvOutputs, PermissionsFollowTheUmask)
{
    for (mode_t mask : {mode_t(022), mode_t(002), mode_t(077)}) {
        ScratchDir dir;
        writeAudio(dir.path("in.wav"), makeSignal(3000, 8000, {{{0.5, 440}}}),
                   1, 8000);
        mode_t old = umask(mask);
        Outcome a = runTolv({"resample", dir.path("in.wav"), dir.path("o.wav"),
                             "--rate", "16000"});
        Outcome b = runTolv(
            {"spectrum", dir.path("in.wav"), "--csv", dir.path("o.csv")});
        umask(old);
        ASSERT_EQ(0, a.status) << a.err;
        ASSERT_EQ(0, b.status) << b.err;
        for (const char *name : {"o.wav", "o.csv"}) {
            struct stat st;
            ASSERT_EQ(0, stat(dir.path(name).c_str(), &st));
            EXPECT_EQ(0666 & ~mask, st.st_mode & 0777) << name << " " << mask;
        }
    }
}

/* "-" and pipes: a stream of unknown length is read to its end, and gives
 * what the same file gives by name. */
TEST(TolvPipes, StreamsOfUnknownLengthAreReadToTheEnd)
{
    ScratchDir dir;
    const std::string ogg = dir.path("in.ogg");
    writeAudio(ogg, makeSignal(24000, 48000, {{{0.4, 440}}, {{0.3, 1000}}}), 2,
               48000, kOgg);
    const struct {
        std::vector<std::string> args; /* "IN" is replaced */
        const char *report;
    } rows[] = {
        {{"resample", "IN", dir.path("o.wav"), "--rate", "16000", "--encoding",
          "float"},
         "o.wav: 8000 frames (expected 8000)"},
        {{"stretch", "IN", dir.path("o.wav"), "--speed", "0.8", "--encoding",
          "float"},
         "o.wav: 30000 frames (expected 30000)"},
        {{"filter", "IN", dir.path("o.wav"), "fpass=0.5, order=2", "--encoding",
          "float"},
         "o.wav: 24000 frames (expected 24000)"},
        {{"spectrum", "IN"}, "24000 frames, 2 channels at 48000 Hz"},
    };
    for (const auto &row : rows) {
        std::string byName;
        std::vector<float> byNameSamples;
        for (const char *input : {"FILE", "-", "/dev/stdin"}) {
            std::vector<std::string> args = row.args;
            args[1] = *input == 'F' ? ogg : input;
            Outcome r = *input == 'F' ? runTolv(args)
                                      : runPiped("cat " + quote(ogg), args);
            EXPECT_EQ(0, r.status) << args[0] << " " << input << r.err;
            EXPECT_NE(std::string::npos, r.out.find(row.report))
                << args[0] << " " << input << ": " << r.out;
            // The samples written, or the analysis printed.
            std::vector<float> got;
            if (fileExists(dir.path("o.wav")))
                got = readAudio(dir.path("o.wav")).samples;
            const std::string said = r.out.substr(r.out.find(':'));
            if (*input == 'F') {
                byName = said;
                byNameSamples = got;
            } else {
                EXPECT_EQ(byNameSamples, got) << args[0] << " from " << input;
                if (got.empty()) {
                    EXPECT_EQ(byName, said) << args[0] << " from " << input;
                }
            }
            unlink(dir.path("o.wav").c_str());
        }
    }
}

/* "-" as the output streams the audio to standard output, the report goes
 * to stderr; a container that cannot be streamed is refused. */
TEST(TolvPipes, StandardOutputTakesTheInputsContainer)
{
    ScratchDir dir;
    writeAudio(dir.path("in.au"), makeSignal(4000, 16000, {{{0.5, 440}}}), 1,
               16000, SF_FORMAT_AU | SF_FORMAT_PCM_16);
    writeAudio(dir.path("in.wav"), makeSignal(4000, 16000, {{{0.5, 440}}}), 1,
               16000);
    Outcome r =
        runPiped("", {"resample", dir.path("in.au"), "-", "--rate", "8000"},
                 "> " + quote(dir.path("piped.au")));
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("-: 2000 frames (expected 2000)"));
    ASSERT_EQ(0, runTolv({"resample", dir.path("in.au"), dir.path("named.au"),
                          "--rate", "8000"})
                     .status);
    Audio piped = readAudio(dir.path("piped.au")),
          named = readAudio(dir.path("named.au"));
    EXPECT_EQ(SF_FORMAT_AU | SF_FORMAT_PCM_16, piped.format);
    EXPECT_EQ(named.samples, piped.samples);

    // /dev/stdout sent to a file by the shell: written in place, the
    // report beside it.
    r = runPiped(
        "", {"resample", dir.path("in.au"), "/dev/stdout", "--rate", "8000"},
        "> " + quote(dir.path("shell.au")));
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("/dev/stdout: 2000 frames"));
    EXPECT_EQ(named.samples, readAudio(dir.path("shell.au")).samples);

    // Standard output a pipe: WAV's header needs seeking back.
    const std::string script =
        "{ " + quote(TOLV_CLI) + " resample " + quote(dir.path("in.wav")) +
        " - --rate 8000 2>" + quote(dir.path("err")) + "; echo $? >" +
        quote(dir.path("status")) + "; } | cat >/dev/null";
    ASSERT_EQ(0, std::system(script.c_str()));
    EXPECT_EQ("1\n", bytesOf(dir.path("status")));
    EXPECT_NE(
        std::string::npos,
        bytesOf(dir.path("err")).find("WAV (Microsoft) cannot be streamed"))
        << bytesOf(dir.path("err"));
}

/* A file whose header declares more than it holds: a warning with both
 * lengths, by name and from a pipe, and an output of what was there. */
TEST(TolvPipes, TruncatedFileWarnsWithBothLengths)
{
    ScratchDir dir;
    writeAudio(dir.path("whole.wav"), makeSignal(8000, 8000, {{{0.5, 440}}}), 1,
               8000);
    std::string bytes = bytesOf(dir.path("whole.wav"));
    std::ofstream(dir.path("cut.wav"), std::ios::binary)
        << bytes.substr(0, 44 + 2 * 3000);
    for (const char *input : {"NAME", "-"}) {
        std::vector<std::string> args = {"resample", dir.path("cut.wav"),
                                         dir.path("o.wav"), "--rate", "16000"};
        if (*input == '-')
            args[1] = "-";
        Outcome r = *input == '-'
                        ? runPiped("cat " + quote(dir.path("cut.wav")), args)
                        : runTolv(args);
        EXPECT_EQ(0, r.status) << r.err;
        EXPECT_NE(
            std::string::npos,
            r.err.find("header declares 8000 frames, only 3000 are there"))
            << input << ": " << r.err;
        EXPECT_EQ(6000, readAudio(dir.path("o.wav")).frames) << input;
    }
}

/* Names whose extension gives no container this tool writes are refused
 * before anything is created. */
TEST(TolvOutputs, UnwritableNamesAreRefused)
{
    ScratchDir dir;
    writeAudio(dir.path("in.wav"), makeSignal(300, 8000, {{{0.5, 440}}}), 1,
               8000);
    for (const char *name : {"o.mp3", "o.opus", "o", "o.dat", "o.wav.txt"}) {
        Outcome r = runTolv({"resample", dir.path("in.wav"), dir.path(name),
                             "--rate", "16000"});
        EXPECT_EQ(2, r.status) << name;
        EXPECT_NE(std::string::npos, r.err.find("name the output with one of"))
            << r.err;
        EXPECT_EQ(std::vector<std::string>{"in.wav"}, dir.entries()) << name;
    }
}

/* Memory does not follow the rate ratio or option values, and inputs the
 * engines cannot take are refused before they are built. */
TEST(TolvBounds, WorkAndMemoryStayBounded)
{
    ScratchDir dir;
    // A WAV at 1 Hz and one that declares 2^31 - 1 Hz.
    const std::vector<float> short100(100, 0.25f);
    writeAudio(dir.path("one.wav"), short100, 1, 1);
    writeAudio(dir.path("huge.wav"), short100, 1, 2147483647);
    Measured up = runMeasured({"resample", dir.path("one.wav"),
                               dir.path("up.wav"), "--rate", "44100"},
                              60);
    EXPECT_EQ(0, up.status);
    EXPECT_TRUE(!kFiguresHold || up.peakMb < 300.0) << up.peakMb;
    EXPECT_EQ(4410000, readAudio(dir.path("up.wav")).frames);

    Measured huge = runMeasured(
        {"stretch", dir.path("huge.wav"), dir.path("o.wav"), "--speed", "1"},
        20);
    EXPECT_EQ(1, huge.status) << "the stretch did not refuse in time";
    /* it grew past 4 GB */
    EXPECT_TRUE(!kFiguresHold || huge.peakMb < 500.0) << huge.peakMb;
    Outcome r = runTolv(
        {"stretch", dir.path("huge.wav"), dir.path("o.wav"), "--speed", "1"});
    EXPECT_NE(std::string::npos,
              r.err.find("the stretcher takes rates up to 107374182 Hz"))
        << r.err;
    EXPECT_FALSE(fileExists(dir.path("o.wav")));
    r = runTolv(
        {"stretch", dir.path("one.wav"), dir.path("o.wav"), "--speed", "1"});
    EXPECT_NE(std::string::npos, r.err.find("needs at least 73 Hz")) << r.err;

    writeAudio(dir.path("b.wav"), makeSignal(4800, 48000, {{{0.5, 440}}}), 1,
               48000);
    writeAudio(dir.path("a.ogg"), makeSignal(4800, 48000, {{{0.5, 440}}}), 1,
               48000, kOgg);
    r = runPiped("cat " + quote(dir.path("a.ogg")),
                 {"delay", "-", dir.path("b.wav"), "--max-seconds", "3600"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(
        std::string::npos,
        r.err.find("searching 3600 s at 48000 Hz would take about 6.4 GB; "
                   "use --max-seconds 699 or less"))
        << r.err;
    r = runPiped("cat " + quote(dir.path("a.ogg")),
                 {"delay", "-", dir.path("b.wav"), "--max-seconds", "699"});
    EXPECT_EQ(0, r.status) << r.err;
}

/* Messages name what a user can change. */
TEST(TolvMessages, SayWhatToChange)
{
    ScratchDir dir;
    writeAudio(dir.path("tone.wav"), makeSignal(1000, 8000, {{{0.5, 440}}}), 1,
               8000);
    std::vector<float> late(16000, 0.0f);
    for (size_t i = 12000; i < late.size(); i++)
        late[i] = (i % 7) * 0.05f;
    writeAudio(dir.path("late.wav"), late, 1, 8000);
    writeAudio(dir.path("quiet.wav"), std::vector<float>(4000, 0.0f), 1, 8000);
    writeAudio(dir.path("slow.wav"), std::vector<float>(50, 0.1f), 1, 50);
    const struct {
        std::vector<std::string> args, env;
        int status;
        std::string message;
    } rows[] = {
        {{"spectrum", dir.path("tone.wav"), "--csv", "/dev/full"},
         {},
         1,
         "cannot write /dev/full: No space left on device"},
        {{"delay", dir.path("late.wav"), dir.path("tone.wav"), "--max-seconds",
          "1"},
         {},
         1,
         "the first 1.000 s of " + dir.path("late.wav") +
             " (the span searched) are silent; raise --max-seconds"},
        {{"delay", dir.path("quiet.wav"), dir.path("tone.wav")},
         {},
         1,
         dir.path("quiet.wav") + " is silent"},
        {{"spectrum", dir.path("slow.wav")}, {}, 0, "0.02441 Hz per bin"},
        {{"info"},
         {"KEEL_DATA_PATH=" + dir.path("missing")},
         0,
         "KEEL_DATA_PATH names " + dir.path("missing") +
             ", which is not an existing folder"},
    };
    for (const auto &row : rows) {
        Outcome r = runTolv(row.args, row.env);
        EXPECT_EQ(row.status, r.status) << row.message << r.err;
        EXPECT_NE(std::string::npos, (r.out + r.err).find(row.message))
            << r.out << r.err;
    }
}

/* On a terminal, long work draws a bar with the time left; the bar never
 * reaches a pipe. */
TEST(TolvProgress, ShowsTheTimeLeftOnATerminal)
{
    ScratchDir dir;
    writeAudio(dir.path("in.wav"),
               makeSignal(20 * 44100, 44100, {{{0.5, 440}}}), 1, 44100);
    const std::vector<std::string> args = {
        "resample", dir.path("in.wav"), dir.path("o.wav"), "--rate", "48000"};
    // Any run counts as long, so the bar shows on a machine of any speed.
    setenv("TOLV_PROGRESS_AFTER", "0", 1);
    int master = -1;
    pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        std::vector<char *> argv = {const_cast<char *>(TOLV_CLI)};
        for (const std::string &a : args)
            argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        execv(TOLV_CLI, argv.data());
        _exit(127);
    }
    std::string screen;
    char buffer[4096];
    ssize_t n;
    while ((n = read(master, buffer, sizeof buffer)) > 0)
        screen.append(buffer, size_t(n));
    close(master);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(0, WEXITSTATUS(status)) << screen;
    EXPECT_NE(std::string::npos, screen.find("resampling [")) << screen;
    // "M:SS left" behind the percentage.
    size_t left = screen.find(" left");
    ASSERT_NE(std::string::npos, left) << screen;
    EXPECT_EQ(':', screen[left - 3]) << screen;

    Outcome piped = runTolv(args);
    EXPECT_EQ(0, piped.status);
    EXPECT_EQ(std::string::npos, piped.err.find("left")) << piped.err;
}

} // namespace

/* Results that would be silently wrong carry a word: non-finite samples
 * with their count and first frame (and NaN counted among the clipped),
 * the polarity of a delayed copy, a file shorter than one analysis frame. */
TEST(TolvResults, NeverSilentlyWrong)
{
    ScratchDir dir;
    std::vector<float> tone = makeSignal(8000, 8000, {{{0.5, 440}}});
    std::vector<float> bad = tone;
    bad[1200] = NAN;
    bad[3000] = INFINITY;
    writeAudio(dir.path("bad.wav"), bad, 1, 8000, kFloatWav);
    writeAudio(dir.path("tone.wav"), tone, 1, 8000);
    /* Noise, so that the whitened correlation has one peak. */
    const std::vector<float> noisy =
        makeSignal(8000, 8000, {{{0.2, 440}}}, 0.5f);
    std::vector<float> flipped(noisy.size(), 0.0f);
    for (size_t i = 0; i + 37 < noisy.size(); i++)
        flipped[i + 37] = -noisy[i];
    writeAudio(dir.path("noisy.wav"), noisy, 1, 8000);
    writeAudio(dir.path("flipped.wav"), flipped, 1, 8000);
    writeAudio(dir.path("short.wav"), makeSignal(500, 8000, {{{0.5, 440}}}), 1,
               8000);
    const std::string nonFinite =
        "holds 2 non-finite samples (NaN or infinity), the first at frame 1200";
    const struct {
        std::vector<std::string> args;
        int status;
        std::string said;
    } rows[] = {
        {{"filter", dir.path("bad.wav"), dir.path("f.wav"),
          "fpass=0.2, order=2", "--encoding", "pcm16"},
         0,
         nonFinite},
        {{"filter", dir.path("bad.wav"), dir.path("f.wav"),
          "fpass=0.2, order=2", "--encoding", "pcm16"},
         0,
         "samples beyond full scale were clipped"},
        {{"resample", dir.path("bad.wav"), dir.path("r.wav"), "--rate",
          "16000"},
         0,
         nonFinite},
        {{"stretch", dir.path("bad.wav"), dir.path("s.wav"), "--speed", "0.8"},
         0,
         nonFinite},
        {{"spectrum", dir.path("bad.wav")}, 0, nonFinite},
        {{"delay", dir.path("tone.wav"), dir.path("bad.wav")},
         1,
         "holds non-finite samples in the span searched"},
        {{"delay", dir.path("noisy.wav"), dir.path("flipped.wav")},
         0,
         "37 samples (4.625 ms), correlation coefficient -0."},
        {{"delay", dir.path("noisy.wav"), dir.path("flipped.wav")},
         0,
         "(inverted: B is A upside down)\nPHAT method: 37 samples"},
        {{"delay", dir.path("tone.wav"), dir.path("tone.wav")},
         0,
         "correlation coefficient +1.0000\n"},
        {{"spectrum", dir.path("short.wav")},
         0,
         "has 500 frames, fewer than one analysis frame of 2048"},
    };
    for (const auto &row : rows) {
        Outcome r = runTolv(row.args);
        EXPECT_EQ(row.status, r.status) << row.args[0] << r.err;
        EXPECT_NE(std::string::npos, (r.out + r.err).find(row.said))
            << row.said << "\n"
            << r.out << r.err;
    }
    Outcome clean = runTolv({"spectrum", dir.path("tone.wav")});
    EXPECT_EQ(std::string::npos, clean.err.find("warning")) << clean.err;
}
