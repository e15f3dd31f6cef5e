/*
 * Helpers shared by the spectral-analysis tests: float comparison by bits,
 * 16-byte aligned buffers with guard values behind them, and a private
 * wisdom folder set before the library starts.
 */
#ifndef TOLV_SPECTRAL_TEST_SUPPORT_H
#define TOLV_SPECTRAL_TEST_SUPPORT_H

#include <errno.h>
#include <math.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include <fftw3.h>

namespace spectral_test {

inline uint32_t Bits(float value)
{
    uint32_t bits;
    memcpy(&bits, &value, sizeof(bits));
    return bits;
}

inline float FromBits(uint32_t bits)
{
    float value;
    memcpy(&value, &bits, sizeof(value));
    return value;
}

/* Same value to the bit, any NaN matching any NaN. */
inline bool SameFloat(float a, float b)
{
    return (isnan(a) && isnan(b)) || Bits(a) == Bits(b);
}

/* Distance in units in the last place between two finite floats. */
inline int64_t UlpDistance(float a, float b)
{
    auto ordered = [](float v) {
        const int64_t bits = (int32_t)Bits(v);
        return bits < 0 ? (int64_t)INT32_MIN - bits : bits;
    };
    const int64_t d = ordered(a) - ordered(b);
    return d < 0 ? -d : d;
}

/* A float buffer from fftwf_malloc (so aligned as the FFT wants) with
 * `used` floats followed by guard floats, all preset to a marker. */
class GuardedFloats {
  public:
    static constexpr float kMarker = -12345.5f;
    GuardedFloats(size_t used, size_t guard = 16)
        : size_(used + guard),
          data_((float *)fftwf_malloc(sizeof(float) * (size_ ? size_ : 1)))
    {
        for (size_t i = 0; i < size_; i++)
            data_[i] = kMarker;
    }
    ~GuardedFloats() { fftwf_free(data_); }
    GuardedFloats(const GuardedFloats &) = delete;
    GuardedFloats &operator=(const GuardedFloats &) = delete;
    float *data() { return data_; }
    float &operator[](size_t i) { return data_[i]; }
    size_t size() const { return size_; }
    /* One past the last index whose marker was overwritten. */
    size_t WrittenExtent() const
    {
        size_t extent = 0;
        for (size_t i = 0; i < size_; i++)
            if (Bits(data_[i]) != Bits(kMarker))
                extent = i + 1;
        return extent;
    }

  private:
    size_t size_;
    float *data_;
};

/* Runs before the library's own start-up so that no test ever reads or
 * writes wisdom outside a private folder of the build tree: with
 * TOLV_TEST_TMP set, a fresh folder below it; otherwise no folder at all. */
__attribute__((constructor(101), used)) static void PrivateWisdomFolder()
{
    const char *base = getenv("TOLV_TEST_TMP");
    if (base == nullptr || *base == '\0' ||
        (mkdir(base, 0700) != 0 && errno != EEXIST)) {
        unsetenv("KEEL_DATA_PATH");
        return;
    }
    std::string pattern = std::string(base) + "/wisdom-XXXXXX";
    std::vector<char> path(pattern.begin(), pattern.end());
    path.push_back('\0');
    if (mkdtemp(path.data()) != nullptr)
        setenv("KEEL_DATA_PATH", path.data(), 1);
    else
        unsetenv("KEEL_DATA_PATH");
}

} // namespace spectral_test

#endif
