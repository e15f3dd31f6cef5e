/*
 * Built-in material for the demonstration: a few seconds of stereo test
 * audio at 44100 Hz (steady tones, a logarithmic chirp and low-level noise)
 * and a copy of it delayed by a known number of frames, with noise of its
 * own so that finding the delay is not a matter of matching bits.
 *
 * usage: tolv_make_material OUTDIR [--seconds S] [--delay FRAMES]
 */
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <sndfile.h>

namespace {

const int kRate = 44100, kChannels = 2;

/* A small linear congruential generator: the material is the same on every
 * run and every machine. */
struct Noise {
    uint32_t state;
    float next()
    {
        state = state * 1664525u + 1013904223u;
        return float(state >> 8) / 8388608.0f - 1.0f;
    }
};

std::vector<float> material(int64_t frames)
{
    const double pi = 3.141592653589793;
    const double seconds = double(frames) / kRate;
    const double f0 = 100.0, f1 = 15000.0, k = std::log(f1 / f0) / seconds;
    const double fade = 0.05 * kRate;
    Noise noise{20261122u};
    std::vector<float> x(size_t(frames) * kChannels);
    for (int64_t n = 0; n < frames; n++) {
        const double t = double(n) / kRate;
        // The chirp's phase integrates its exponentially rising frequency.
        const double chirp = std::sin(2.0 * pi * f0 * (std::exp(k * t) - 1.0) / k);
        const double gain = std::fmin(1.0, std::fmin(double(n), double(frames - 1 - n)) / fade);
        const double left = 0.25 * std::sin(2 * pi * 440 * t) +
                            0.15 * std::sin(2 * pi * 5000 * t) + 0.2 * chirp;
        const double right = 0.25 * std::sin(2 * pi * 1000 * t) + 0.2 * chirp;
        x[size_t(n) * 2] = float(gain * (left + 0.02 * noise.next()));
        x[size_t(n) * 2 + 1] = float(gain * (right + 0.02 * noise.next()));
    }
    return x;
}

bool write(const std::string &path, const std::vector<float> &x)
{
    SF_INFO info{};
    info.channels = kChannels;
    info.samplerate = kRate;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!f) {
        std::fprintf(stderr, "tolv_make_material: cannot write %s: %s\n", path.c_str(),
                     sf_strerror(nullptr));
        return false;
    }
    const sf_count_t frames = sf_count_t(x.size() / kChannels);
    bool ok = sf_writef_float(f, x.data(), frames) == frames;
    ok = sf_close(f) == 0 && ok;
    if (!ok)
        std::fprintf(stderr, "tolv_make_material: error writing %s\n", path.c_str());
    else
        std::printf("%s: %lld frames, %d channels at %d Hz\n", path.c_str(),
                    (long long)frames, kChannels, kRate);
    return ok;
}

long number(const char *text, const char *what)
{
    char *end = nullptr;
    long v = std::strtol(text, &end, 10);
    if (!*text || *end || v < 0) {
        std::fprintf(stderr, "tolv_make_material: %s must be a whole number, not \"%s\"\n",
                     what, text);
        std::exit(2);
    }
    return v;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2 || argv[1][0] == '-') {
        std::fprintf(stderr, "usage: tolv_make_material OUTDIR [--seconds S] [--delay FRAMES]\n");
        return 2;
    }
    const std::string dir = argv[1];
    long seconds = 4, delay = 1234;
    for (int i = 2; i < argc; i += 2) {
        if (i + 1 >= argc) {
            std::fprintf(stderr, "tolv_make_material: %s needs a value\n", argv[i]);
            return 2;
        }
        if (!std::strcmp(argv[i], "--seconds"))
            seconds = number(argv[i + 1], "--seconds");
        else if (!std::strcmp(argv[i], "--delay"))
            delay = number(argv[i + 1], "--delay");
        else {
            std::fprintf(stderr, "tolv_make_material: unknown option %s\n", argv[i]);
            return 2;
        }
    }
    const int64_t frames = int64_t(seconds) * kRate;
    if (frames < 1 || delay >= frames) {
        std::fprintf(stderr, "tolv_make_material: the delay must be shorter than the material\n");
        return 2;
    }
    mkdir(dir.c_str(), 0777);

    const std::vector<float> x = material(frames);
    // The same signal, later by `delay` frames and cut to the same length,
    // with quieter noise of its own.
    std::vector<float> y(x.size(), 0.0f);
    Noise noise{7u};
    for (size_t i = 0; i < y.size(); i++) {
        const size_t from = i - size_t(delay) * kChannels;
        y[i] = (i >= size_t(delay) * kChannels ? x[from] : 0.0f) + 0.01f * noise.next();
    }
    if (!write(dir + "/material.wav", x) || !write(dir + "/material-delayed.wav", y))
        return 1;
    std::printf("delay put in: %ld frames (%.3f ms)\n", delay, 1000.0 * delay / kRate);
    return 0;
}
