// Helpers of the filter tests: owned filters, records, bits, report texts.
#ifndef TOLV_FILTER_TEST_UTIL_H
#define TOLV_FILTER_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>

#include "TOLVfilter/design.h"
#include "TOLVfilter/filter.h"
#include "support/messages.h"
#include "support/signal.h"

using tolv_test::Messages;
using tolv_test::UniformNoise;
using FilterPtr = std::unique_ptr<_TOLV_FILTER, int (*)(_TOLV_FILTER *)>;
using Strings = std::vector<std::string>;
using Doubles = std::vector<double>;
using Floats = std::vector<float>;

inline const auto Own = [](_TOLV_FILTER *f) {
    return FilterPtr(f, TOLV_DestroyFilter);
};
inline const auto Make = [](const char *t) {
    return Own(TOLV_CreateFilter("%s", t));
};
inline const auto Coefs = [](int M, const Doubles &b, const Doubles &a) {
    return Own(
        TOLV_CreateFilterFromCoefs(M, b.size(), b.data(), a.size(), a.data()));
};
inline const auto Biquads = [](int M, const Doubles &q) {
    static const double none = 0; // no sections still takes records
    return Own(TOLV_CreateFilterFromBiquads(M, q.size() / 5,
                                            q.empty() ? &none : q.data()));
};
inline const auto DF = [](const auto &f) { return (_DFIIstate *)f->stateData; };
inline const auto SOS = [](const auto &f) {
    return (_DFIISOSstate *)f->stateData;
};
inline const auto Sections = [](const FilterPtr &f) {
    return Doubles(SOS(f)->sections,
                   SOS(f)->sections + 5 * SOS(f)->numSections);
};
inline const auto Filtered = [](_TOLV_FILTER *f, const Floats &x) {
    Floats y(x.size());
    TOLV_Filter(f, x.data(), y.data(), x.size());
    return y;
};
// Bit patterns, so that comparisons tell -0 from 0 and see NaNs.
inline const auto Bits = [](const Floats &x) {
    std::vector<uint32_t> u(x.size());
    std::memcpy(u.data(), x.data(), x.size() * sizeof(float));
    return u;
};
inline const auto Db = [](double m) { return 20 * std::log10(m); };
// The texts of the reports; every report of the filters is an error, code -1.
inline const auto Texts = [](const Messages &m) {
    Strings t;
    for (const Messages::Line &l : m.lines) {
        EXPECT_TRUE(l.level == KEEL_LEVEL_ERROR && l.code == -1) << l.text;
        t.push_back(l.text);
    }
    return t;
};

#endif
