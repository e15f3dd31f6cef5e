/*
 * The price of subnormal numbers in a decaying filter tail, with and
 * without flush-to-zero and denormals-are-zero in the calling thread.
 *
 * The library leaves the floating-point control word as the host set it.
 * A resonant direct form II (float state) and a cascade of four resonant
 * biquads (double state, float signal between sections) are given an
 * impulse and then silence until their output is subnormal; every iteration
 * starts from that state (copied from a primed twin) and filters a block of
 * silence. Beside it the same filters on low-level noise, where everything
 * stays normal. Counters: "per_frame", time per frame; "subnormal", the
 * share of the output frames that were subnormal. Second argument 1: FTZ
 * and DAZ set for the run (the subnormal state then reads as zero).
 */
#include <benchmark/benchmark.h>
#include <xmmintrin.h>

#include <cfloat>
#include <cmath>
#include <vector>

#include "tolv.h"

namespace {

const int kFrames = 4096;
const unsigned kFtzDaz = 0x8040; /* MXCSR bits 15 (FTZ) and 6 (DAZ) */

_TOLV_FILTER *Make(int form)
{
    const double r = 0.999, th = 0.05;
    if (form == 0) {
        // All-pole, so the output is the state itself.
        const double b[3] = {1.0, 0.0, 0.0};
        const double a[3] = {1.0, -2 * r * std::cos(th), r * r};
        return TOLV_CreateFilterFromCoefs(1, 3, b, 3, a);
    }
    std::vector<double> q;
    for (int s = 0; s < 4; s++)
        q.insert(q.end(),
                 {-2 * r * std::cos(th * (s + 1)), r * r, 1.0, 0.0, 0.0});
    return TOLV_CreateFilterFromBiquads(1, 4, q.data());
}

/* Feeds an impulse, then silence until the output has stayed subnormal
 * (non-zero and below the smallest normal float) for 256 frames, two
 * periods of the slowest resonance; false when it never gets there. */
bool PrimeIntoSubnormals(_TOLV_FILTER *f)
{
    float x = 1.0f, y = 0.0f;
    TOLV_Filter(f, &x, &y, 1);
    x = 0.0f;
    int run = 0;
    for (long n = 0; n < 50000000L && run < 256; n++) {
        TOLV_Filter(f, &x, &y, 1);
        run = std::fabs(y) < FLT_MIN ? run + 1 : 0;
        if (y == 0.0f && run == 256)
            return false;
    }
    return run == 256 && y != 0.0f;
}

/* range(0): 0 direct form II, 1 cascade; range(1): FTZ/DAZ off or on;
 * range(2): 0 low-level noise, 1 subnormal tail. */
void BM_DecayingTail(benchmark::State &state)
{
    const int form = int(state.range(0));
    const bool tail = state.range(2) != 0;
    _TOLV_FILTER *primed = Make(form), *f = Make(form);
    std::vector<float> in(kFrames, 0.0f), out(kFrames);
    if (tail) {
        if (!PrimeIntoSubnormals(primed)) {
            state.SkipWithError("the tail never became subnormal");
            return;
        }
    } else {
        unsigned seed = 1;
        for (float &v : in) {
            seed = seed * 1103515245u + 12345u;
            v = 1e-6f * (float((seed >> 9) & 0xffff) / 32768.0f - 1.0f);
        }
        TOLV_Filter(primed, in.data(), out.data(), kFrames);
    }
    const unsigned saved = _mm_getcsr();
    if (state.range(1) != 0)
        _mm_setcsr(saved | kFtzDaz);
    for (auto _ : state) {
        TOLV_CopyFilterMemories(f, primed);
        TOLV_Filter(f, in.data(), out.data(), kFrames);
        benchmark::DoNotOptimize(out.data());
    }
    _mm_setcsr(saved);
    double subnormalOut = 0.0;
    for (float v : out)
        subnormalOut += v != 0.0f && std::fabs(v) < FLT_MIN;
    state.counters["per_frame"] = benchmark::Counter(
        double(state.iterations()) * kFrames,
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    // Share of the last block's output frames that were subnormal.
    state.counters["subnormal"] = subnormalOut / kFrames;
    state.SetLabel(std::string(form == 0 ? "direct form II" : "4 biquads") +
                   (tail ? ", subnormal tail" : ", noise") +
                   (state.range(1) ? ", FTZ+DAZ" : ""));
    TOLV_DestroyFilter(primed);
    TOLV_DestroyFilter(f);
}
BENCHMARK(BM_DecayingTail)->ArgsProduct({{0, 1}, {0, 1}, {0, 1}});

} // namespace
