// convert.cpp - float samples to and from the 16-bit scale.
//
// Full scale is 32768: x maps to round-to-nearest-even(x * 32768), the
// product formed in double (exact, since 32768 is a power of two), then
// saturated to [-32768, 32767]. So 1.0 gives 32767 and -1.0 gives -32768.
// A NaN sample gives 0. The reverse divides by 32768 in float, which is
// exact, so every 16-bit value survives a round trip.
#include "keel.h"

#include <cmath>

extern "C" {

KEEL_API void KEELUTILS_ConvertIEEEFloatToWord16(const float *src,
                                                 int16_t *dest, int count)
{
    if (src == nullptr || dest == nullptr)
        return;
    for (int i = 0; i < count; ++i) {
        const double scaled = static_cast<double>(src[i]) * 32768.0;
        int16_t sample;
        if (std::isnan(scaled))
            sample = 0;
        else if (scaled >= 32767.0)
            sample = 32767;
        else if (scaled <= -32768.0)
            sample = -32768;
        else
            sample = static_cast<int16_t>(std::nearbyint(scaled));
        dest[i] = sample;
    }
}

KEEL_API void KEELUTILS_ConvertWord16ToIEEEFloat(const int16_t *src,
                                                 float *dest, int count)
{
    if (src == nullptr || dest == nullptr)
        return;
    for (int i = 0; i < count; ++i)
        dest[i] = static_cast<float>(src[i]) / 32768.0f;
}

} // extern "C"
