/*
 * Throughput of the polyphase resampler at the default order, in its widest
 * lanes and in the plain loop, side by side with two other converters on
 * the same 10 s of mono noise, fed in blocks of 4096 frames. Counters:
 * input and output samples per second.
 */
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "TOLVresample/resample.h"
#include "tolv.h"

#ifdef TOLV_BENCH_SAMPLERATE
#include <samplerate.h>
#endif
#ifdef TOLV_BENCH_SOXR
#include <soxr.h>
#endif

namespace {

const int kBlock = 4096;

const std::vector<float> &Noise(int rate)
{
    static std::vector<float> cache[3];
    static int rates[3] = {0, 0, 0};
    for (int i = 0; i < 3; i++) {
        if (rates[i] == rate)
            return cache[i];
        if (rates[i] == 0) {
            std::mt19937 gen(1234);
            std::uniform_real_distribution<float> dist(-0.5f, 0.5f);
            cache[i].resize(size_t(rate) * 10);
            for (float &v : cache[i])
                v = dist(gen);
            rates[i] = rate;
            return cache[i];
        }
    }
    abort();
}

void Count(benchmark::State &state, int64_t in, int64_t out)
{
    state.counters["in/s"] = benchmark::Counter(double(in) * state.iterations(),
                                                benchmark::Counter::kIsRate);
    state.counters["out/s"] =
        benchmark::Counter(double(out), benchmark::Counter::kIsRate);
}

void Tolv(benchmark::State &state, int in, int out, int lanes)
{
    _PolyphaseSetLanes(lanes);
    const std::vector<float> &x = Noise(in);
    std::vector<float> y(size_t(kBlock) * (out / in + 2) + 1);
    int64_t produced = 0;
    for (auto _ : state) {
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(in, out, nullptr);
        for (size_t pos = 0; pos < x.size(); pos += kBlock) {
            int n = int(std::min<size_t>(kBlock, x.size() - pos));
            produced += TOLV_Resample(r, x.data() + pos, y.data(), n);
        }
        produced += TOLV_ResampleFlushBuffersEx(r, y.data(), 0);
        TOLV_ResampleDestroy(r);
        benchmark::DoNotOptimize(y.data());
    }
    Count(state, int64_t(x.size()), produced);
    _PolyphaseSetLanes(0);
}

#ifdef TOLV_BENCH_SAMPLERATE
void Samplerate(benchmark::State &state, int in, int out, int converter)
{
    const std::vector<float> &x = Noise(in);
    std::vector<float> y(size_t(kBlock) * (out / in + 2) + 64);
    int64_t produced = 0;
    for (auto _ : state) {
        int error = 0;
        SRC_STATE *s = src_new(converter, 1, &error);
        SRC_DATA d = {};
        d.src_ratio = double(out) / in;
        size_t pos = 0;
        for (;;) {
            size_t n = std::min<size_t>(kBlock, x.size() - pos);
            d.data_in = x.data() + pos;
            d.input_frames = long(n);
            d.data_out = y.data();
            d.output_frames = long(y.size());
            d.end_of_input = pos + n == x.size();
            src_process(s, &d);
            pos += size_t(d.input_frames_used);
            produced += d.output_frames_gen;
            if (d.end_of_input && d.output_frames_gen == 0)
                break;
        }
        src_delete(s);
        benchmark::DoNotOptimize(y.data());
    }
    Count(state, int64_t(x.size()), produced);
}
#endif

#ifdef TOLV_BENCH_SOXR
void Soxr(benchmark::State &state, int in, int out)
{
    const std::vector<float> &x = Noise(in);
    std::vector<float> y(size_t(kBlock) * (out / in + 2) + 64);
    int64_t produced = 0;
    for (auto _ : state) {
        soxr_error_t error;
        soxr_quality_spec_t q = soxr_quality_spec(SOXR_HQ, 0);
        soxr_t s = soxr_create(in, out, 1, &error, nullptr, &q, nullptr);
        size_t pos = 0, done = 0, got = 0;
        while (pos < x.size()) {
            size_t n = std::min<size_t>(kBlock, x.size() - pos);
            soxr_process(s, x.data() + pos, n, &done, y.data(), y.size(), &got);
            pos += done;
            produced += int64_t(got);
        }
        do { /* drain */
            soxr_process(s, nullptr, 0, nullptr, y.data(), y.size(), &got);
            produced += int64_t(got);
        } while (got != 0);
        soxr_delete(s);
        benchmark::DoNotOptimize(y.data());
    }
    Count(state, int64_t(x.size()), produced);
}
#endif

void Register(int in, int out)
{
    std::string pair = std::to_string(in) + "to" + std::to_string(out);
    benchmark::RegisterBenchmark(("tolv_polyphase/" + pair).c_str(), Tolv, in,
                                 out, 0)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("tolv_polyphase_plain/" + pair).c_str(), Tolv,
                                 in, out, 1)
        ->Unit(benchmark::kMillisecond);
#ifdef TOLV_BENCH_SAMPLERATE
    benchmark::RegisterBenchmark(("samplerate_medium/" + pair).c_str(),
                                 Samplerate, in, out, SRC_SINC_MEDIUM_QUALITY)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("samplerate_fastest/" + pair).c_str(),
                                 Samplerate, in, out, SRC_SINC_FASTEST)
        ->Unit(benchmark::kMillisecond);
#endif
#ifdef TOLV_BENCH_SOXR
    benchmark::RegisterBenchmark(("soxr_hq/" + pair).c_str(), Soxr, in, out)
        ->Unit(benchmark::kMillisecond);
#endif
}

const int kRegistered = [] {
    Register(44100, 48000);
    Register(48000, 44100);
    Register(8000, 16000);
    return 0;
}();

} // namespace
