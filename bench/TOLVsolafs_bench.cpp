/*
 * Time-scale modification of 10 s of 44100 Hz mono at speeds 0.75 and 1.5,
 * with 20 ms frames, fed in calls of 100 ms and drained behind every call.
 * Where the SoundTouch library is installed, its tempo change runs on the same
 * signal at the same tempo, as a yardstick.
 */
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "TOLVsolafs/solafs.h"

#ifdef TOLV_HAVE_SOUNDTOUCH
#include <SoundTouch.h>
#endif

namespace {

const int kRate = 44100;
const int kFrames = 10 * kRate;
const int kChunk = kRate / 10;

/* Speech-like material: a few drifting partials over a little noise. */
const std::vector<float> &Signal()
{
    static const std::vector<float> signal = [] {
        std::vector<float> v(kFrames);
        std::mt19937 rng(1);
        std::normal_distribution<float> noise(0.0f, 0.05f);
        for (int i = 0; i < kFrames; i++) {
            double t = (double)i / kRate;
            double f0 = 140.0 + 30.0 * std::sin(2.0 * M_PI * 0.7 * t);
            double s = 0.0;
            for (int h = 1; h <= 5; h++)
                s += 0.3 / h * std::sin(2.0 * M_PI * f0 * h * t);
            v[i] = (float)s + noise(rng);
        }
        return v;
    }();
    return signal;
}

void BM_Solafs(benchmark::State &state)
{
    const float speed = (float)state.range(0) / 100.0f;
    const std::vector<float> &in = Signal();
    std::vector<float> out(kRate);
    int64_t produced = 0;
    for (auto _ : state) {
        _TOLV_SOLAFS *s = TOLV_SolafsCreate(20, kRate, 1);
        produced = 0;
        for (int next = 0; next < kFrames;) {
            int offer = kFrames - next < kChunk ? kFrames - next : kChunk;
            next += TOLV_SolafsInputData(s, 0, in.data() + next, offer, speed);
            int n;
            while ((n = TOLV_SolafsOutputData(s, 0, out.data(), kRate)) > 0)
                produced += n;
        }
        benchmark::DoNotOptimize(out.data());
        KEELMEM_DisposeMemDescr(s->memDescr);
    }
    state.SetItemsProcessed(state.iterations() * (int64_t)kFrames);
    state.counters["outFrames"] = (double)produced;
}
BENCHMARK(BM_Solafs)->Arg(75)->Arg(150)->Unit(benchmark::kMillisecond);

#ifdef TOLV_HAVE_SOUNDTOUCH
void BM_SoundTouchTempo(benchmark::State &state)
{
    const float tempo = (float)state.range(0) / 100.0f;
    const std::vector<float> &in = Signal();
    std::vector<float> out(kRate);
    int64_t produced = 0;
    for (auto _ : state) {
        soundtouch::SoundTouch st;
        st.setSampleRate(kRate);
        st.setChannels(1);
        st.setTempo(tempo);
        produced = 0;
        for (int next = 0; next < kFrames; next += kChunk) {
            int offer = kFrames - next < kChunk ? kFrames - next : kChunk;
            st.putSamples(in.data() + next, (unsigned)offer);
            unsigned n;
            while ((n = st.receiveSamples(out.data(), (unsigned)kRate)) > 0)
                produced += n;
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * (int64_t)kFrames);
    state.counters["outFrames"] = (double)produced;
}
BENCHMARK(BM_SoundTouchTempo)->Arg(75)->Arg(150)->Unit(benchmark::kMillisecond);
#endif

} // namespace
