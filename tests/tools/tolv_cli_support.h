/*
 * Support for the end-to-end tests of the tolv command: a scratch folder,
 * audio written and read back through libsndfile, and runs of the program
 * with its exit status and both output streams.
 */
#ifndef TOLV_CLI_SUPPORT_H
#define TOLV_CLI_SUPPORT_H

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include <sndfile.h>

namespace clitest {

const int kFloatWav = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

struct Audio {
    int rate = 0, channels = 0, format = 0;
    int64_t frames = 0;
    std::vector<float> samples; /* interleaved */
    std::vector<float> channel(int c) const;
};
void writeAudio(const std::string &path, const std::vector<float> &samples,
                int channels, int rate,
                int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16);
Audio readAudio(const std::string &path);

/* Interleaved: per channel a sum of sines (amplitude, Hz), plus uniform
 * noise of the given peak. */
struct Tone {
    double amplitude, hz;
};
std::vector<float> makeSignal(int64_t frames, int rate,
                              const std::vector<std::vector<Tone>> &perChannel,
                              float noise = 0.0f, unsigned seed = 1);
/* Amplitude of the component at `hz`, by correlation over whole periods. */
double toneAmplitude(const std::vector<float> &x, int rate, double hz);

struct Outcome {
    int status = -1;
    std::string out, err;
    /* Whether stdout or stderr holds `part`, where a '*' stands for one
     * CSV cell (any text without a comma or a line break). */
    bool says(const std::string &part) const;
};
/* `env` entries "NAME=value" are set, a bare "NAME=" unsets NAME,
 * "RLIMIT_AS=MB" limits the address space (not under sanitizers) and
 * "TTY=1" runs tolv on a terminal; the file `input`, when given, comes
 * through a pipe as standard input. */
Outcome runTolv(const std::vector<std::string> &args,
                const std::vector<std::string> &env = {},
                const std::string &input = "");
/* Runs `tolv ARGS after` through the shell; stdout is captured unless
 * `after` starts with a redirection. */
Outcome runShell(const std::vector<std::string> &args,
                 const std::string &after);
/* Starts tolv in the background, its output discarded; returns its pid. */
int startTolv(const std::vector<std::string> &args);
std::string quote(const std::string &s); /* for the shell */

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

std::string bytesOf(const std::string &path); /* "" when unreadable */
/* The first number behind `label` in text, NAN when absent. */
double numberAfter(const std::string &text, const std::string &label);

} // namespace clitest

#endif
