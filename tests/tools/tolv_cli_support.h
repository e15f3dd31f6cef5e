/*
 * Support for the end-to-end tests of the tolv command: a scratch folder,
 * audio files written and read back through libsndfile, and runs of the
 * program with its exit status and both output streams.
 */
#ifndef TOLV_CLI_SUPPORT_H
#define TOLV_CLI_SUPPORT_H

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include <sndfile.h>

namespace clitest {

struct Audio {
    int rate = 0, channels = 0, format = 0;
    int64_t frames = 0;
    std::vector<float> samples; /* interleaved */
    float at(int64_t frame, int channel) const
    {
        return samples[size_t(frame * channels + channel)];
    }
    std::vector<float> channel(int c) const;
};

/* Writes interleaved samples; format defaults to 16-bit WAV. */
void writeAudio(const std::string &path, const std::vector<float> &samples,
                int channels, int rate,
                int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16);
Audio readAudio(const std::string &path);

/* Interleaved test signals: per channel a sum of sines (amplitude, Hz) plus
 * uniform noise of the given peak from a fixed seed. */
struct Tone {
    double amplitude, hz;
};
std::vector<float> makeSignal(int64_t frames, int rate,
                              const std::vector<std::vector<Tone>> &perChannel,
                              float noise = 0.0f, uint32_t seed = 1);

/* Amplitude of the component at `hz` in x, by correlation over a whole
 * number of its periods. */
double toneAmplitude(const std::vector<float> &x, int rate, double hz);

struct Outcome {
    int status = -1;
    std::string out, err;
};
/* Runs the tolv program with the arguments; `env` entries ("NAME=value")
 * are added to the environment, a bare "NAME=" removes NAME. */
Outcome runTolv(const std::vector<std::string> &args,
                const std::vector<std::string> &env = {});

/* Starts the tolv program in the background, its output discarded;
 * returns the process id. */
int startTolv(const std::vector<std::string> &args);

/* A fresh folder under the test scratch area, removed at the end. */
class ScratchDir {
  public:
    ScratchDir();
    ~ScratchDir();
    std::string path(const std::string &name) const
    {
        return dir_ + "/" + name;
    }
    /* Names in the folder, sorted. */
    std::vector<std::string> entries() const;

  private:
    std::string dir_;
};

bool fileExists(const std::string &path);
/* The whole content of a file, "" when it cannot be read. */
std::string bytesOf(const std::string &path);
/* Where gnuplot is on PATH, "" when it is not installed. */
std::string findGnuplot();
/* The first number behind `label` in text, NAN when absent. */
double numberAfter(const std::string &text, const std::string &label);

} // namespace clitest

#endif
