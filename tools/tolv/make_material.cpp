/*
 * Built-in material for the demonstration: a few seconds of stereo test
 * audio at 44100 Hz (steady tones, a logarithmic chirp and low-level noise)
 * and a copy of it delayed by a known number of frames, with noise of its
 * own so that finding the delay is not a matter of matching bits.
 *
 * usage: tolv_make_material OUTDIR [--seconds S] [--delay FRAMES]
 */
#include <cerrno>
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
const double kMaxSeconds = 3600.0;

/* A small linear congruential generator: the material is the same on every
 * run and every machine. Only the top 24 bits are used; the low bits of such
 * a generator repeat with short periods. */
struct Noise {
    uint32_t state;
    float next()
    {
        state = state * 1664525u + 1013904223u;
        return float(state >> 8) / 8388608.0f - 1.0f;
    }
};

/* Left: 440 Hz and 5000 Hz; right: 1000 Hz; both: the chirp and independent
 * noise. The amplitudes add up to at most 0.62 (-4.2 dBFS), so neither the
 * 16-bit file nor the filters and converters downstream clip. */
std::vector<float> material(int64_t frames)
{
    const double pi = 3.141592653589793;
    const double seconds = double(frames) / kRate;
    const double f0 = 100.0, f1 = 15000.0, k = std::log(f1 / f0) / seconds;
    // 50 ms linear ramps, so the ends do not click and the spectrum does not
    // smear from a step at the start.
    const double fade = 0.05 * kRate;
    Noise noise{20261122u};
    std::vector<float> x(size_t(frames) * kChannels);
    for (int64_t n = 0; n < frames; n++) {
        const double t = double(n) / kRate;
        // The chirp's phase integrates its exponentially rising frequency
        // f0 * exp(k t), which reaches f1 at the last frame.
        const double chirp =
            std::sin(2.0 * pi * f0 * (std::exp(k * t) - 1.0) / k);
        const double gain =
            std::fmin(1.0, std::fmin(double(n), double(frames - 1 - n)) / fade);
        const double left = 0.25 * std::sin(2 * pi * 440 * t) +
                            0.15 * std::sin(2 * pi * 5000 * t) + 0.2 * chirp;
        const double right = 0.25 * std::sin(2 * pi * 1000 * t) + 0.2 * chirp;
        x[size_t(n) * 2] = float(gain * (left + 0.02 * noise.next()));
        x[size_t(n) * 2 + 1] = float(gain * (right + 0.02 * noise.next()));
    }
    return x;
}

/* The same signal later by `delay` frames, cut to the same length, plus
 * quieter noise (about -45 dBFS) drawn from another seed. */
std::vector<float> delayed(const std::vector<float> &x, int64_t delay)
{
    const size_t shift = size_t(delay) * kChannels;
    std::vector<float> y(x.size(), 0.0f);
    for (size_t i = shift; i < y.size(); i++)
        y[i] = x[i - shift];
    Noise noise{7u};
    for (float &v : y)
        v += 0.01f * noise.next();
    return y;
}

bool write(const std::string &path, const std::vector<float> &x,
           const char *note)
{
    SF_INFO info{};
    info.channels = kChannels;
    info.samplerate = kRate;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!f) {
        std::fprintf(stderr, "tolv_make_material: cannot write %s: %s\n",
                     path.c_str(), sf_strerror(nullptr));
        return false;
    }
    const sf_count_t frames = sf_count_t(x.size() / kChannels);
    bool ok = sf_writef_float(f, x.data(), frames) == frames;
    ok = sf_close(f) == 0 && ok;
    if (!ok) {
        std::fprintf(stderr, "tolv_make_material: error writing %s\n",
                     path.c_str());
        return false;
    }
    std::printf("%s: %lld frames, %d channels at %d Hz%s\n", path.c_str(),
                (long long)frames, kChannels, kRate, note);
    return true;
}

/* Creates `dir` and any missing parents. */
bool make_dirs(const std::string &dir)
{
    for (size_t at = 1; at <= dir.size(); at++) {
        if (at < dir.size() && dir[at] != '/')
            continue;
        const std::string part = dir.substr(0, at);
        if (mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) {
            std::fprintf(stderr, "tolv_make_material: cannot create %s: %s\n",
                         part.c_str(), std::strerror(errno));
            return false;
        }
    }
    struct stat st;
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        std::fprintf(stderr, "tolv_make_material: %s is not a folder\n",
                     dir.c_str());
        return false;
    }
    return true;
}

[[noreturn]] void usage_error(const char *what, const char *text)
{
    std::fprintf(stderr, "tolv_make_material: %s, not \"%s\"\n", what, text);
    std::exit(2);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2 || argv[1][0] == '-') {
        std::fprintf(stderr, "usage: tolv_make_material OUTDIR [--seconds S] "
                             "[--delay FRAMES]\n");
        return 2;
    }
    const std::string dir = argv[1];
    double seconds = 4.0;
    long long delay = 1234;
    for (int i = 2; i < argc; i += 2) {
        const bool is_seconds = !std::strcmp(argv[i], "--seconds");
        if (!is_seconds && std::strcmp(argv[i], "--delay")) {
            std::fprintf(stderr, "tolv_make_material: unknown option %s\n",
                         argv[i]);
            return 2;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "tolv_make_material: %s needs a value\n",
                         argv[i]);
            return 2;
        }
        const char *value = argv[i + 1];
        char *end = nullptr;
        if (is_seconds) {
            seconds = std::strtod(value, &end);
            if (!*value || *end || !(seconds > 0.0 && seconds <= kMaxSeconds))
                usage_error(
                    "--seconds must be a number above 0 and at most 3600",
                    value);
        } else {
            errno = 0;
            delay = std::strtoll(value, &end, 10);
            if (!*value || *end || errno || delay < 0)
                usage_error(
                    "--delay must be a whole number of frames, 0 or more",
                    value);
        }
    }
    const int64_t frames = std::llround(seconds * kRate);
    if (delay >= frames) {
        std::fprintf(stderr,
                     "tolv_make_material: a delay of %lld frames leaves "
                     "nothing of %lld frames\n",
                     delay, (long long)frames);
        return 2;
    }
    if (!make_dirs(dir))
        return 1;

    const std::vector<float> x = material(frames);
    char note[96];
    std::snprintf(note, sizeof note, ", delayed by %lld frames (%.3f ms)",
                  delay, 1000.0 * double(delay) / kRate);
    if (!write(dir + "/material.wav", x, "") ||
        !write(dir + "/material-delayed.wav", delayed(x, delay), note))
        return 1;
    return 0;
}
