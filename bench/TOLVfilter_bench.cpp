/*
 * Filter run-time speed, in time per sample (the "per_sample" counter):
 * a cascade of 8 biquads, mono and stereo, in its lanes and in the plain
 * walk, and a direct form of order 8,
 * 48000 frames a call. Beside them, a bare loop of the cascade's own
 * arithmetic a frame at a time with its state in locals (as far as a
 * frame-by-frame loop goes), one section of it alone (one recursion's
 * chain), and liquid-dsp's second-order-section filter on the same
 * coefficients when it is installed.
 */
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "TOLVfilter/filter.h"
#include "tolv.h"

#ifdef TOLV_BENCH_LIQUID
#include <liquid/liquid.h>
#endif

namespace {

const int kFrames = 48000;
const int kSections = 8;

/* Eight resonant sections (radius 0.95, spread angles), zeros at -1. */
std::vector<double> Records()
{
    std::vector<double> q;
    for (int s = 0; s < kSections; s++) {
        const double r = 0.95, th = 0.1 + 0.35 * s;
        const double g = 0.01 * (s + 1);
        q.insert(q.end(), {-2 * r * std::cos(th), r * r, g, 2 * g, g});
    }
    return q;
}

std::vector<float> Noise(size_t n)
{
    std::vector<float> x(n);
    uint32_t seed = 1;
    for (float &v : x) {
        seed = seed * 1664525u + 1013904223u;
        v = (float)((int32_t)seed) * (1.0f / 2147483648.0f);
    }
    return x;
}

void PerSample(benchmark::State &state, int channels)
{
    state.counters["per_sample"] =
        benchmark::Counter((double)kFrames * channels,
                           benchmark::Counter::kIsIterationInvariantRate |
                               benchmark::Counter::kInvert);
}

void Run(benchmark::State &state, _TOLV_FILTER *f, int channels)
{
    const std::vector<float> x = Noise((size_t)kFrames * channels);
    std::vector<float> y(x.size());
    for (auto _ : state) {
        TOLV_Filter(f, x.data(), y.data(), (uint32_t)x.size());
        benchmark::DoNotOptimize(y.data());
        benchmark::ClobberMemory();
    }
    PerSample(state, channels);
    TOLV_DestroyFilter(f);
}

/* Second argument: the lane width (0 the widest the processor has, 1 the
 * plain walk, 2, 4, 8; a width the processor lacks runs the widest). */
void BM_Sections(benchmark::State &state)
{
    const int channels = (int)state.range(0);
    const std::vector<double> q = Records();
    _DFIISOSSetLanes((int)state.range(1));
    state.counters["lanes"] = _DFIISOSLanes();
    Run(state, TOLV_CreateFilterFromBiquads(channels, kSections, q.data()),
        channels);
    _DFIISOSSetLanes(0);
}
BENCHMARK(BM_Sections)->ArgsProduct({{1, 2}, {0, 1, 2, 4}});

/* Order 8: four of the sections multiplied out. */
void BM_DirectForm8(benchmark::State &state)
{
    const std::vector<double> q = Records();
    std::vector<double> a = {1}, b = {1};
    for (int s = 0; s < 4; s++) {
        std::vector<double> na(a.size() + 2, 0.0), nb(b.size() + 2, 0.0);
        for (size_t k = 0; k < a.size(); k++) {
            na[k] += a[k];
            na[k + 1] += q[5 * s] * a[k];
            na[k + 2] += q[5 * s + 1] * a[k];
            nb[k] += q[5 * s + 2] * b[k];
            nb[k + 1] += q[5 * s + 3] * b[k];
            nb[k + 2] += q[5 * s + 4] * b[k];
        }
        a = na;
        b = nb;
    }
    Run(state, TOLV_CreateFilterFromCoefs(1, 9, b.data(), 9, a.data()), 1);
}
BENCHMARK(BM_DirectForm8);

/* The same arithmetic as the cascade, state in locals, no ring, no walk. */
void BM_BoundCascade(benchmark::State &state)
{
    const std::vector<double> q = Records();
    const std::vector<float> x = Noise(kFrames);
    std::vector<float> y(x.size());
    double w1[kSections] = {0}, w2[kSections] = {0};
    for (auto _ : state) {
        for (int n = 0; n < kFrames; n++) {
            float v = x[n];
            for (int s = 0; s < kSections; s++) {
                const double *c = &q[5 * s];
                const double t = ((double)v - c[0] * w1[s]) - c[1] * w2[s];
                v = (float)((c[3] * w1[s] + c[2] * t) + c[4] * w2[s]);
                w2[s] = w1[s];
                w1[s] = t;
            }
            y[n] = v;
        }
        benchmark::DoNotOptimize(y.data());
        benchmark::ClobberMemory();
    }
    PerSample(state, 1);
}
BENCHMARK(BM_BoundCascade);

/* One section alone on the input stream: its own recurrence through w is
 * the only chain the loop carries. */
void BM_BoundOneSection(benchmark::State &state)
{
    const std::vector<double> q = Records();
    const std::vector<float> x = Noise(kFrames);
    std::vector<float> y(x.size());
    const double a1 = q[0], a2 = q[1], b0 = q[2], b1 = q[3], b2 = q[4];
    double w1 = 0, w2 = 0;
    for (auto _ : state) {
        for (int n = 0; n < kFrames; n++) {
            const double t = ((double)x[n] - a1 * w1) - a2 * w2;
            y[n] = (float)((b1 * w1 + b0 * t) + b2 * w2);
            w2 = w1;
            w1 = t;
        }
        benchmark::DoNotOptimize(y.data());
        benchmark::ClobberMemory();
    }
    PerSample(state, 1);
}
BENCHMARK(BM_BoundOneSection);

#ifdef TOLV_BENCH_LIQUID
/* liquid-dsp keeps each channel in its own object and buffer. */
void BM_LiquidSections(benchmark::State &state)
{
    const int channels = (int)state.range(0);
    const std::vector<double> q = Records();
    std::vector<float> b, a;
    for (int s = 0; s < kSections; s++) {
        b.insert(b.end(), {(float)q[5 * s + 2], (float)q[5 * s + 3],
                           (float)q[5 * s + 4]});
        a.insert(a.end(), {1.0f, (float)q[5 * s], (float)q[5 * s + 1]});
    }
    std::vector<iirfilt_rrrf> f;
    std::vector<std::vector<float>> x, y;
    for (int c = 0; c < channels; c++) {
        f.push_back(iirfilt_rrrf_create_sos(b.data(), a.data(), kSections));
        x.push_back(Noise(kFrames));
        y.emplace_back(kFrames);
    }
    for (auto _ : state) {
        for (int c = 0; c < channels; c++)
            iirfilt_rrrf_execute_block(f[c], x[c].data(), kFrames, y[c].data());
        benchmark::ClobberMemory();
    }
    PerSample(state, channels);
    for (iirfilt_rrrf g : f)
        iirfilt_rrrf_destroy(g);
}
BENCHMARK(BM_LiquidSections)->Arg(1)->Arg(2);
#endif

} // namespace
