#include "tolv_cli_support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace clitest {

std::vector<float> Audio::channel(int c) const
{
    std::vector<float> x(static_cast<size_t>(frames));
    for (int64_t f = 0; f < frames; f++)
        x[size_t(f)] = at(f, c);
    return x;
}

void writeAudio(const std::string &path, const std::vector<float> &samples,
                int channels, int rate, int format)
{
    SF_INFO info{};
    info.channels = channels;
    info.samplerate = rate;
    info.format = format;
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!f)
        throw std::runtime_error("cannot write " + path + ": " +
                                 sf_strerror(nullptr));
    sf_command(f, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    sf_writef_float(f, samples.data(),
                    sf_count_t(samples.size() / size_t(channels)));
    sf_close(f);
}

Audio readAudio(const std::string &path)
{
    SF_INFO info{};
    SNDFILE *f = sf_open(path.c_str(), SFM_READ, &info);
    if (!f)
        throw std::runtime_error("cannot read " + path + ": " +
                                 sf_strerror(nullptr));
    Audio a;
    a.rate = info.samplerate;
    a.channels = info.channels;
    a.format = info.format;
    a.frames = info.frames;
    a.samples.resize(size_t(info.frames * info.channels));
    sf_readf_float(f, a.samples.data(), info.frames);
    sf_close(f);
    return a;
}

std::vector<float> makeSignal(int64_t frames, int rate,
                              const std::vector<std::vector<Tone>> &perChannel,
                              float noise, uint32_t seed)
{
    const size_t channels = perChannel.size();
    std::vector<float> x(size_t(frames) * channels);
    for (int64_t n = 0; n < frames; n++)
        for (size_t c = 0; c < channels; c++) {
            double v = 0.0;
            for (const Tone &t : perChannel[c])
                v += t.amplitude *
                     std::sin(2.0 * M_PI * t.hz * double(n) / rate);
            seed = seed * 1664525u + 1013904223u;
            v += noise * (double(seed >> 8) / 8388608.0 - 1.0);
            x[size_t(n) * channels + c] = float(v);
        }
    return x;
}

double toneAmplitude(const std::vector<float> &x, int rate, double hz)
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

std::string bytesOf(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

namespace {
std::string scratchRoot()
{
    const char *root = std::getenv("TOLV_TEST_TMP");
    std::string dir = root && *root ? root : "/tmp";
    mkdir(dir.c_str(), 0777);
    return dir;
}

/* In a forked child: the streams to the two files, then the program. */
[[noreturn]] void execTolv(const std::vector<std::string> &args,
                           const std::string &out, const std::string &err)
{
    if (!freopen(out.c_str(), "w", stdout) ||
        !freopen(err.c_str(), "w", stderr))
        _exit(127);
    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(TOLV_CLI));
    for (const std::string &a : args)
        argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execv(TOLV_CLI, argv.data());
    _exit(127);
}
} // namespace

Outcome runTolv(const std::vector<std::string> &args,
                const std::vector<std::string> &env)
{
    ScratchDir io;
    const std::string out = io.path("stdout"), err = io.path("stderr");
    pid_t pid = fork();
    if (pid == 0) {
        for (const std::string &e : env) {
            size_t eq = e.find('=');
            if (eq + 1 == e.size())
                unsetenv(e.substr(0, eq).c_str());
            else
                setenv(e.substr(0, eq).c_str(), e.substr(eq + 1).c_str(), 1);
        }
        execTolv(args, out, err);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    Outcome r;
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    r.out = bytesOf(out);
    r.err = bytesOf(err);
    return r;
}

int startTolv(const std::vector<std::string> &args)
{
    pid_t pid = fork();
    if (pid == 0)
        execTolv(args, "/dev/null", "/dev/null");
    return pid;
}

ScratchDir::ScratchDir()
{
    std::string pattern = scratchRoot() + "/tolv-cli-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (!mkdtemp(name.data()))
        throw std::runtime_error("mkdtemp failed");
    dir_ = name.data();
}

ScratchDir::~ScratchDir()
{
    for (const std::string &e : entries())
        unlink(path(e).c_str());
    rmdir(dir_.c_str());
}

std::vector<std::string> ScratchDir::entries() const
{
    std::vector<std::string> names;
    if (DIR *d = opendir(dir_.c_str())) {
        while (dirent *e = readdir(d))
            if (std::strcmp(e->d_name, ".") && std::strcmp(e->d_name, ".."))
                names.push_back(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool fileExists(const std::string &path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

std::string findGnuplot()
{
    const char *path = std::getenv("PATH");
    std::stringstream dirs(path ? path : "");
    std::string dir;
    while (std::getline(dirs, dir, ':'))
        if (!dir.empty() && access((dir + "/gnuplot").c_str(), X_OK) == 0)
            return dir + "/gnuplot";
    return "";
}

double numberAfter(const std::string &text, const std::string &label)
{
    size_t at = text.find(label);
    if (at == std::string::npos)
        return NAN;
    return std::strtod(text.c_str() + at + label.size(), nullptr);
}

} // namespace clitest
