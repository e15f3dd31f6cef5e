/*
 * A stretch of a sound file as CSV text, for the demonstration's waveform
 * pictures: one row per frame, the frame's number and each channel's
 * sample.
 *
 * usage: tolv_demo_excerpt FILE FIRST COUNT
 */
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <sndfile.h>

namespace {

/* A whole number of frames, 0 or more; -1 for anything else. */
long long frames(const char *text)
{
    char *end = nullptr;
    errno = 0;
    const long long n = std::strtoll(text, &end, 10);
    return *text && !*end && !errno && n >= 0 ? n : -1;
}

/* Frames [first, first + count) of an open file; fewer at its end. */
bool print(SNDFILE *f, const SF_INFO &info, long long first, long long count)
{
    if (first > info.frames)
        return false;
    if (sf_seek(f, first, SEEK_SET) < 0)
        return false;
    std::vector<float> x(size_t(count) * size_t(info.channels));
    const sf_count_t got = sf_readf_float(f, x.data(), count);
    std::printf("frame");
    for (int c = 0; c < info.channels; c++)
        std::printf(",channel_%d", c + 1);
    std::printf("\n");
    for (sf_count_t n = 0; n < got; n++) {
        std::printf("%lld", first + n);
        for (int c = 0; c < info.channels; c++)
            std::printf(",%.6f", x[size_t(n) * size_t(info.channels) + c]);
        std::printf("\n");
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    const long long first = argc == 4 ? frames(argv[2]) : -1;
    const long long count = argc == 4 ? frames(argv[3]) : -1;
    if (first < 0 || count < 0 || count > (1 << 24)) {
        std::fprintf(stderr, "usage: tolv_demo_excerpt FILE FIRST COUNT\n");
        return 2;
    }
    SF_INFO info{};
    SNDFILE *f = sf_open(argv[1], SFM_READ, &info);
    if (!f) {
        std::fprintf(stderr, "tolv_demo_excerpt: cannot read %s: %s\n", argv[1],
                     sf_strerror(nullptr));
        return 1;
    }
    const bool ok = print(f, info, first, count);
    sf_close(f);
    if (!ok) {
        std::fprintf(stderr, "tolv_demo_excerpt: %s has no frame %lld\n",
                     argv[1], first);
        return 1;
    }
    return 0;
}
