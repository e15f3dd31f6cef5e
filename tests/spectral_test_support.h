/* Helpers of the spectral-analysis tests: float bits and aligned buffers
 * with guard values (noise, norms and message capture live in support/). */
#ifndef TOLV_SPECTRAL_TEST_SUPPORT_H
#define TOLV_SPECTRAL_TEST_SUPPORT_H

#include <math.h>
#include <string.h>

#include <string>
#include <vector>

#include <fftw3.h>

#include "support/messages.h"
#include "support/signal.h"

namespace spectral_test {

inline uint32_t Bits(float value)
{
    uint32_t bits;
    memcpy(&bits, &value, sizeof(bits));
    return bits;
}

/* `used` floats from fftwf_malloc (aligned as the four-wide loops want) and
 * `guard` more, all preset to a marker, so that the extent written shows. */
struct GuardedFloats {
    GuardedFloats(size_t used, size_t guard = 16)
        : size(used + guard), data((float *)fftwf_malloc(4 * size + 4))
    {
        std::fill(data, data + size, kMarker);
    }
    ~GuardedFloats() { fftwf_free(data); }
    float &operator[](size_t i) { return data[i]; }
    size_t WrittenExtent() const /* one past the last marker overwritten */
    {
        size_t extent = 0;
        for (size_t i = 0; i < size; i++)
            extent = Bits(data[i]) != Bits(kMarker) ? i + 1 : extent;
        return extent;
    }
    static constexpr float kMarker = -12345.5f;
    const size_t size;
    float *const data;
};

/* Reports as "level code text" lines: left only for TOLVspline_test, which
 * moves to tolv_test::Messages with its own slice; nothing here uses it. */
struct Messages {
    Messages() { KEELDEBUG_SetMessageHandler(Collect, this); }
    ~Messages() { KEELDEBUG_SetMessageHandler(nullptr, nullptr); }
    static void Collect(int level, int code, const char *text, void *self)
    {
        ((Messages *)self)
            ->lines.push_back(std::to_string(level) + " " +
                              std::to_string(code) + " " + text);
    }
    std::vector<std::string> lines;
};

} // namespace spectral_test

#endif
