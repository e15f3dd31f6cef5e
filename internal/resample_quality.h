/*
 * Quality presets of the polyphase converter: orders of its prototype, the
 * half-length in units of the rate ratio. The order narrows the transition
 * band around 0.95 of the lower Nyquist frequency; the window sets the
 * floor. "high" is the default of the command and the bindings; the
 * library's own default (30) leaves the top of the band aliased near -30 dB.
 */
#ifndef TOLV_INTERNAL_RESAMPLE_QUALITY_H
#define TOLV_INTERNAL_RESAMPLE_QUALITY_H

#include <cstring>

struct _TOLV_QUALITY_PRESET {
    const char *name;
    long order;
};

constexpr _TOLV_QUALITY_PRESET _kQualityPresets[] = {
    {"low", 16}, {"medium", 64}, {"high", 128}, {"very-high", 256}};
constexpr const char *_kDefaultQuality = "high";

/* The order of a preset name, or 0 when it names none. */
inline long _QualityOrder(const char *name)
{
    for (const _TOLV_QUALITY_PRESET &p : _kQualityPresets)
        if (std::strcmp(name, p.name) == 0)
            return p.order;
    return 0;
}

#endif
