/* Small helpers shared by the filter tests. */
#ifndef TOLV_FILTER_TEST_UTIL_H
#define TOLV_FILTER_TEST_UTIL_H

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "keel.h"
#include "tolv.h"

using FilterPtr = std::unique_ptr<_TOLV_FILTER, int (*)(_TOLV_FILTER *)>;

inline FilterPtr Coefs(int M, const std::vector<double> &b,
                       const std::vector<double> &a)
{
    return FilterPtr(TOLV_CreateFilterFromCoefs(M, (uint32_t)b.size(), b.data(),
                                                (uint32_t)a.size(), a.data()),
                     TOLV_DestroyFilter);
}

inline FilterPtr Biquads(int M, const std::vector<double> &q)
{
    static const double none[1] = {0};
    return FilterPtr(TOLV_CreateFilterFromBiquads(M, (uint32_t)(q.size() / 5),
                                                  q.empty() ? none : q.data()),
                     TOLV_DestroyFilter);
}

/* TOLV_Filter over the whole block into a fresh buffer. */
inline std::vector<float> Filtered(_TOLV_FILTER *f, const std::vector<float> &x)
{
    std::vector<float> y(x.size());
    TOLV_Filter(f, x.data(), y.data(), (uint32_t)x.size());
    return y;
}

/* Deterministic white noise in [-1, 1). */
inline std::vector<float> Noise(size_t n, uint32_t seed)
{
    std::vector<float> x(n);
    for (float &v : x) {
        seed = seed * 1664525u + 1013904223u;
        v = (float)((int32_t)seed) * (1.0f / 2147483648.0f);
    }
    return x;
}

/* Bit patterns, so that comparisons tell -0 from 0 and see NaNs. */
inline std::vector<uint32_t> Bits(const std::vector<float> &x)
{
    std::vector<uint32_t> u(x.size());
    if (!x.empty())
        std::memcpy(u.data(), x.data(), x.size() * sizeof(float));
    return u;
}

/* Each value rounded to f32 and back, so f32 and f64 paths share inputs. */
inline std::vector<double> Rounded(std::vector<double> v)
{
    for (double &d : v)
        d = (float)d;
    return v;
}

/* Collects the library's messages while alive. */
struct MessageLog {
    struct Entry {
        int level, code;
        std::string text;
    };
    std::vector<Entry> entries;
    MessageLog() { KEELDEBUG_SetMessageHandler(Collect, this); }
    ~MessageLog() { KEELDEBUG_SetMessageHandler(nullptr, nullptr); }
    static void Collect(int level, int code, const char *message, void *user)
    {
        ((MessageLog *)user)->entries.push_back({level, code, message});
    }
};

#endif
