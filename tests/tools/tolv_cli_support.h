/*
 * Support for the end-to-end tests of the tolv command: a scratch folder,
 * audio written and read back through libsndfile, and runs of the program
 * with its exit status and both output streams.
 */
#ifndef TOLV_CLI_SUPPORT_H
#define TOLV_CLI_SUPPORT_H

#include <algorithm>
#include <cmath>
#include <dirent.h>
#include <fstream>
#include <sndfile.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/signal.h"

namespace clitest {

const int kFloatWav = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

struct Audio {
    int rate = 0, channels = 0, format = 0;
    int64_t frames = 0;
    std::vector<float> samples; /* interleaved */
    std::vector<float> channel(int c) const;
};
struct Tone {
    double amplitude, hz;
};
struct Outcome {
    int status = -1;
    std::string out, err;
    bool says(const std::string &part) const;
};

/* A fresh folder under the test scratch area, removed with all it holds;
 * "@" in a text stands for it, '|' separates arguments in a row. */
class ScratchDir {
  public:
    ScratchDir();
    ~ScratchDir();
    std::string path(const std::string &name) const { return dir_ + name; }
    std::string expand(std::string text) const;
    std::vector<std::string> args(const std::string &row) const;
    std::vector<std::string> entries() const; /* names, sorted */

  private:
    std::string dir_; /* with its trailing slash */
};

#ifdef TOLV_TEST_SANITIZED
inline const bool kSanitized =
    true; /* shadow memory needs terabytes of addresses */
#else
inline const bool kSanitized = false;
#endif

inline std::vector<float> Audio::channel(int c) const
{
    std::vector<float> x{};
    x.resize(size_t(frames));
    for (size_t f = 0; f < x.size(); f++)
        x[f] = samples[f * size_t(channels) + size_t(c)];
    return x;
}

inline void writeAudio(const std::string &path,
                       const std::vector<float> &samples, int channels,
                       int rate, int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16)
{
    SF_INFO info{0, rate, channels, format, 0, 0};
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!f)
        throw std::runtime_error("cannot write " + path);
    sf_command(f, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    sf_writef_float(f, samples.data(), sf_count_t(samples.size()) / channels);
    sf_close(f);
}

inline Audio readAudio(const std::string &path)
{
    SF_INFO info{};
    SNDFILE *f = sf_open(path.c_str(), SFM_READ, &info);
    if (!f)
        throw std::runtime_error("cannot read " + path);
    Audio a{info.samplerate, info.channels, info.format, info.frames, {}};
    a.samples.resize(size_t(info.frames * info.channels));
    sf_readf_float(f, a.samples.data(), info.frames);
    sf_close(f);
    return a;
}

/* Interleaved: per channel a sum of sines (amplitude, Hz), plus uniform
 * noise of the given peak. */
inline std::vector<float>
makeSignal(int64_t frames, int rate,
           const std::vector<std::vector<Tone>> &perChannel, float noise = 0.0f,
           unsigned seed = 1)
{
    const size_t channels = perChannel.size();
    std::vector<float> x =
        tolv_test::UniformNoise(int(frames * int64_t(channels)), seed, noise);
    for (size_t i = 0; i < x.size(); i++)
        for (const Tone &t : perChannel[i % channels])
            x[i] += float(t.amplitude * std::sin(2 * M_PI * t.hz *
                                                 double(i / channels) / rate));
    return x;
}

/* Amplitude of the component at `hz`, by correlation over whole periods. */
inline double toneAmplitude(const std::vector<float> &x, int rate, double hz)
{
    const double period = rate / hz;
    const size_t span = size_t(std::floor(double(x.size()) / period) * period);
    double re = 0.0, im = 0.0;
    for (size_t n = 0; n < span; n++) {
        re += x[n] * std::cos(2.0 * M_PI * hz * double(n) / rate);
        im += x[n] * std::sin(2.0 * M_PI * hz * double(n) / rate);
    }
    return 2.0 * std::hypot(re, im) / double(span);
}

/* Whether text holds part at `at`, each '*' taking one cell. */
inline bool matchesAt(const std::string &text, size_t at,
                      const std::string &part)
{
    const size_t star = std::min(part.find('*'), part.size());
    if (text.compare(at, star, part, 0, star) != 0)
        return false;
    const size_t cell = text.find_first_of(",\n", at + star);
    return star == part.size() ||
           (cell != std::string::npos &&
            matchesAt(text, cell, part.substr(star + 1)));
}

/* Whether stdout or stderr holds `part`, where a '*' stands for one CSV
 * cell (any text without a comma or a line break). */
inline bool Outcome::says(const std::string &part) const
{
    const std::string text = out + err, head = part.substr(0, part.find('*'));
    for (size_t at = text.find(head); at != std::string::npos;
         at = text.find(head, at + 1))
        if (matchesAt(text, at, part))
            return true;
    return false;
}

/* The whole file, "" when unreadable. */
inline std::string bytesOf(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

inline std::string quote(const std::string &s)
{
    std::string out = "'";
    for (char c : s)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

/* In a forked child: the streams to the two files, then the program, on a
 * terminal of its own when `tty`. */
[[noreturn]] inline void execTolv(const std::vector<std::string> &args,
                                  const std::string &out,
                                  const std::string &err, bool tty = false)
{
    if (!freopen(out.c_str(), "w", stdout) ||
        !freopen(err.c_str(), "w", stderr))
        _exit(127);
    std::vector<char *> argv{const_cast<char *>(TOLV_CLI)};
    std::string command = quote(TOLV_CLI);
    for (const std::string &a : args)
        argv.push_back(const_cast<char *>(a.c_str())),
            command += " " + quote(a);
    argv.push_back(nullptr);
    if (tty)
        execl("/bin/sh", "sh", "-c",
              ("script -qec " + quote(command) + " /dev/null").c_str(),
              nullptr);
    execv(TOLV_CLI, argv.data());
    _exit(127);
}

inline Outcome finished(int status, const ScratchDir &io)
{
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            bytesOf(io.path("out")), bytesOf(io.path("err"))};
}

/* `env` entries "NAME=value" are set, a bare "NAME=" unsets NAME,
 * "RLIMIT_AS=MB" limits the address space (not under sanitizers) and
 * "TTY=1" runs tolv on a terminal; the file `input`, when given, comes
 * through a pipe as standard input. */
inline Outcome runTolv(const std::vector<std::string> &args,
                       const std::vector<std::string> &env = {},
                       const std::string &input = "")
{
    ScratchDir io;
    pid_t pid = fork();
    if (pid == 0) {
        for (const std::string &e : env) {
            const size_t eq = e.find('=');
            const rlim_t mb = rlim_t(std::atol(e.c_str() + eq + 1)) << 20;
            const rlimit limit{mb, mb};
            if (e.rfind("RLIMIT_AS=", 0) == 0 && !kSanitized)
                setrlimit(RLIMIT_AS, &limit);
            else if (eq + 1 == e.size())
                unsetenv(e.substr(0, eq).c_str());
            else
                setenv(e.substr(0, eq).c_str(), e.substr(eq + 1).c_str(), 1);
        }
        int fds[2];
        if (!input.empty() && pipe(fds) == 0) {
            if (fork() == 0) { /* the writer: a stream of unknown length */
                const std::string bytes = bytesOf(input);
                _exit(write(fds[1], bytes.data(), bytes.size()) < 0);
            }
            dup2(fds[0], 0), close(fds[0]), close(fds[1]);
        }
        execTolv(args, io.path("out"), io.path("err"), std::getenv("TTY"));
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return finished(status, io);
}

/* Runs `tolv ARGS after` through the shell; stdout is captured unless
 * `after` starts with a redirection or a pipe. */
inline Outcome runShell(const std::vector<std::string> &args,
                        const std::string &after)
{
    ScratchDir io;
    std::string command = quote(TOLV_CLI);
    for (const std::string &a : args)
        command += " " + quote(a);
    command += " 2>" + quote(io.path("err"));
    if (after.empty() || (after[0] != '>' && after[0] != '|'))
        command += " >" + quote(io.path("out"));
    return finished(std::system((command + " " + after).c_str()), io);
}

/* Starts tolv in the background, its output discarded; returns its pid. */
inline int startTolv(const std::vector<std::string> &args)
{
    pid_t pid = fork();
    if (pid == 0)
        execTolv(args, "/dev/null", "/dev/null");
    return pid;
}

inline ScratchDir::ScratchDir()
{
    const char *root = std::getenv("TOLV_TEST_TMP");
    std::string pattern = root && *root ? root : "/tmp";
    mkdir(pattern.c_str(), 0777);
    pattern += "/tolv-cli-XXXXXX";
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp failed");
    dir_ = pattern + "/";
}

inline ScratchDir::~ScratchDir()
{
    if (std::system(("rm -rf " + quote(dir_)).c_str()) != 0)
        std::fprintf(stderr, "could not remove %s\n", dir_.c_str());
}

inline std::string ScratchDir::expand(std::string s) const
{
    for (size_t at = 0; (at = s.find('@', at)) != std::string::npos;)
        s.replace(at, 1, dir_), at += dir_.size();
    return s;
}

inline std::vector<std::string> ScratchDir::args(const std::string &row) const
{
    std::vector<std::string> out;
    std::stringstream cells(row);
    for (std::string cell; std::getline(cells, cell, '|');)
        out.push_back(expand(cell));
    return out;
}

inline std::vector<std::string> ScratchDir::entries() const
{
    std::vector<std::string> names;
    if (DIR *d = opendir(dir_.c_str())) {
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.' || (e->d_name[1] && e->d_name[1] != '.'))
                names.push_back(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

/* The first number behind `label` in text, NAN when absent. */
inline double numberAfter(const std::string &text, const std::string &label)
{
    size_t at = text.find(label);
    if (at == std::string::npos)
        return NAN;
    return std::strtod(text.c_str() + at + label.size(), nullptr);
}

} // namespace clitest

#endif
