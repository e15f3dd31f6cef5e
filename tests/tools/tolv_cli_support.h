/*
 * Support for the end-to-end tests of the tolv command: a scratch folder,
 * audio written and read back through libsndfile, and runs of the program
 * through the shell, with its exit status and both output streams.
 */
#ifndef TOLV_CLI_SUPPORT_H
#define TOLV_CLI_SUPPORT_H

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sndfile.h>
#include <sstream>
#include <sys/wait.h>

#include "support/signal.h"

namespace clitest {

const int kFloatWav = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

using Tone = std::pair<double, double>; /* amplitude, Hz */
struct Audio : SF_INFO {
    std::vector<float> samples; /* interleaved */
    std::vector<float> channel(int c) const
    {
        std::vector<float> x(static_cast<size_t>(frames));
        for (size_t f = 0; f < x.size(); f++)
            x[f] = samples[f * size_t(channels) + size_t(c)];
        return x;
    }
};

/* The whole file, "" when unreadable. */
inline std::string bytesOf(const std::string &path)
{
    std::stringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}

struct Outcome {
    int status = -1;
    std::string out, err;
    /* Whether stdout or stderr holds `part`, where a '*' stands for one CSV
     * cell (any text without a comma or a line break) and a closing
     * "{low,high}" for a number in that range; a leading '!' asks that
     * `part` is not there. */
    bool says(const std::string &part) const
    {
        const bool absent = part[0] == '!';
        const size_t brace = std::min(part.find('{'), part.size());
        std::string re, text = out + err;
        for (char c : part.substr(absent, brace - absent))
            re += c == '*' ? "[^,\n]*"
                           : (std::strchr("\\^$.|?+()[]", c) ? "\\" : "") +
                                 std::string(1, c);
        double low = -INFINITY, high = INFINITY;
        std::sscanf(part.c_str() + brace, "{%lf,%lf}", &low, &high);
        std::smatch m;
        const bool found =
            std::regex_search(text, m, std::regex(re + "([-+.0-9]*)"));
        const double x =
            found && m[1].length() ? std::atof(m[1].str().c_str()) : NAN;
        return (found && (brace == part.size() || (x >= low && x <= high))) !=
               absent;
    }
};

/* A fresh folder under the test scratch area, removed with all it holds;
 * "@" in a text stands for it. */
class ScratchDir {
  public:
    ScratchDir()
    {
        const char *root = std::getenv("TOLV_TEST_TMP");
        std::string pattern = root && *root ? root : "/tmp";
        std::filesystem::create_directories(pattern);
        pattern += "/tolv-cli-XXXXXX";
        if (!mkdtemp(pattern.data()))
            throw std::runtime_error("mkdtemp failed");
        dir_ = pattern + "/";
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }
    std::string path(const std::string &name) const { return dir_ + name; }
    std::string expand(const std::string &s) const
    {
        return std::regex_replace(s, std::regex("@"), dir_);
    }

  private:
    std::string dir_; /* with its trailing slash */
};

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
    Audio a{};
    SNDFILE *f = sf_open(path.c_str(), SFM_READ, &a);
    if (!f)
        throw std::runtime_error("cannot read " + path);
    a.samples.resize(size_t(a.frames * a.channels));
    sf_readf_float(f, a.samples.data(), a.frames);
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
            x[i] += float(t.first * std::sin(2 * M_PI * t.second *
                                             double(i / channels) / rate));
    return x;
}

/* Runs a shell line with '@' for the folder and "tolv" for the program,
 * from a folder of its own, its stdout and stderr captured where the line
 * does not send them elsewhere; a run killed by signal s ends with status
 * 128 + s. Under sanitizers, whose shadow memory needs terabytes of
 * addresses, and under the emulator of a cross build, which reserves the
 * guest's whole address space, limits on them (ulimit -v) are left out. */
inline Outcome run(const ScratchDir &dir, std::string line)
{
    ScratchDir io;
    line = std::regex_replace(line, std::regex("(^|[ \"])tolv "),
                              "$1" TOLV_CLI " ");
    if (TOLV_TEST_SANITIZED || TOLV_TEST_EMULATED)
        line = std::regex_replace(line, std::regex("ulimit -v [0-9]+;"), "");
    const int status =
        std::system(("cd " + io.path("") + " && { " + dir.expand(line) +
                     "; } >" + io.path("out") + " 2>" + io.path("err"))
                        .c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            bytesOf(io.path("out")), bytesOf(io.path("err"))};
}

} // namespace clitest

#endif
