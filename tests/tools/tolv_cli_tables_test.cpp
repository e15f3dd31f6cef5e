/*
 * End to end: the CSV tables behind the demo page's pictures. The design's
 * response against filters whose magnitude and phase are known in closed
 * form, its template against the bands of the text; the delay's
 * correlations against the figures the command prints; the stretch's
 * cursor table against the block grid and the speed.
 */
#include <cmath>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "tolv_cli_support.h"

using namespace clitest;

namespace {

/* A CSV file as text cells; row 0 is the header. */
using Table = std::vector<std::vector<std::string>>;
Table readCsv(const std::string &path)
{
    Table rows;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        rows.emplace_back();
        std::stringstream cells(line);
        for (std::string cell; std::getline(cells, cell, ',');)
            rows.back().push_back(cell);
        if (!line.empty() && line.back() == ',')
            rows.back().push_back("");
    }
    return rows;
}

double cell(const Table &t, size_t row, size_t column)
{
    return std::stod(t.at(row).at(column));
}

/* Degrees into (-180, 180]. */
double wrapped(double degrees)
{
    double d = std::fmod(degrees, 360.0);
    if (d > 180.0)
        d -= 360.0;
    if (d <= -180.0)
        d += 360.0;
    return d;
}

/* Section texts whose response is known: a delay of one and of two
 * samples, and the two-point mean, cos(w / 2) with the phase of half a
 * sample. x is the frequency as a fraction of Nyquist. */
struct KnownFilter {
    const char *text;
    double (*db)(double x);
    double (*degrees)(double x);
};
const KnownFilter kKnown[] = {
    {"biquads=[0 0 0 1 0]", [](double) { return 0.0; },
     [](double x) { return -180.0 * x; }},
    {"biquads=[0 0 0 0 1]", [](double) { return 0.0; },
     [](double x) { return -360.0 * x; }},
    {"biquads=[0 0 0.5 0.5 0]",
     [](double x) { return 20 * std::log10(std::cos(M_PI * x / 2)); },
     [](double x) { return -90.0 * x; }},
};

TEST(TolvDesignCsv, MagnitudeAndPhaseOfKnownFilters)
{
    ScratchDir dir;
    for (const KnownFilter &f : kKnown) {
        Outcome r = runTolv({"design", f.text, "--csv", dir.path("r.csv")});
        ASSERT_EQ(0, r.status) << r.err;
        const Table t = readCsv(dir.path("r.csv"));
        ASSERT_EQ("frequency_x_nyquist", t[0][0]);
        const double length = numberAfter(r.out, "measured on ");
        ASSERT_EQ(size_t(length / 2 + 2), t.size()) << f.text;
        for (size_t k = 1; k < t.size(); k++) {
            const double x = 2.0 * double(k - 1) / length;
            ASSERT_NEAR(x, cell(t, k, 0), 1e-4) << f.text;
            if (x > 0.99) /* the mean's zero at Nyquist has no phase */
                break;
            ASSERT_NEAR(f.db(x), cell(t, k, 1), 0.002) << f.text << " " << x;
            ASSERT_NEAR(0.0, wrapped(cell(t, k, 2) - f.degrees(x)), 0.02)
                << f.text << " " << x;
        }
    }
}

/* In Hz: the template sits on every bin of the text's bands, relative to
 * the peak the report prints, and is blank in the transition bands. */
TEST(TolvDesignCsv, TemplateFollowsTheBandsOfTheText)
{
    ScratchDir dir;
    Outcome r = runTolv({"design",
                         "type=bandpass, approximation=ellip, fpass1=1000, "
                         "fpass2=2000, fstop1=700, fstop2=2500, Ap=0.5, As=40",
                         "--fs", "16000", "--csv", dir.path("r.csv")});
    ASSERT_EQ(0, r.status) << r.err;
    const double peak = numberAfter(r.out, "peak gain: ");
    const Table t = readCsv(dir.path("r.csv"));
    ASSERT_EQ("frequency_hz", t[0][0]);
    int pass = 0, stop = 0, open = 0;
    double highest = -1e9;
    for (size_t k = 1; k < t.size(); k++) {
        ASSERT_EQ(5u, t[k].size()) << k;
        const double hz = cell(t, k, 0), db = cell(t, k, 1);
        highest = std::max(highest, db);
        if (hz >= 1000 && hz <= 2000) {
            pass++;
            ASSERT_NEAR(peak, cell(t, k, 3), 0.006) << hz;
            ASSERT_NEAR(peak - 0.5, cell(t, k, 4), 0.006) << hz;
            ASSERT_GE(db, cell(t, k, 4) - 0.01) << hz;
        } else if (hz <= 700 || hz >= 2500) {
            stop++;
            ASSERT_NEAR(peak - 40, cell(t, k, 3), 0.006) << hz;
            ASSERT_EQ("", t[k][4]) << hz;
            ASSERT_LE(db, cell(t, k, 3)) << hz;
        } else {
            open++;
            ASSERT_EQ("", t[k][3]) << hz;
            ASSERT_EQ("", t[k][4]) << hz;
        }
    }
    const double binHz = 16000.0 / numberAfter(r.out, "measured on ");
    EXPECT_NEAR(1000 / binHz, pass, 1.5);
    EXPECT_NEAR((700 + 5500) / binHz, stop, 2.5);
    EXPECT_NEAR(800 / binHz, open, 2.5);
    EXPECT_NEAR(peak, highest, 0.006);
}

TEST(TolvDelayCsv, PeakStandsAtTheDelayFound)
{
    ScratchDir dir;
    const int rate = 22050, frames = 2 * rate;
    const std::vector<float> a =
        makeSignal(frames + 4000, rate, {{{0.3, 440}, {0.2, 3000}}}, 0.3f, 5);
    writeAudio(dir.path("a.wav"),
               std::vector<float>(a.begin() + 2000, a.begin() + 2000 + frames),
               1, rate);
    for (int delay : {777, -321}) {
        writeAudio(dir.path("b.wav"),
                   std::vector<float>(a.begin() + 2000 - delay,
                                      a.begin() + 2000 - delay + frames),
                   1, rate);
        Outcome r = runTolv({"delay", dir.path("a.wav"), dir.path("b.wav"),
                             "--csv", dir.path("c.csv")});
        ASSERT_EQ(0, r.status) << r.err;
        const Table t = readCsv(dir.path("c.csv"));
        const long span = std::lround(0.1 * rate);
        ASSERT_EQ(size_t(2 * span + 2), t.size());
        size_t best = 1;
        for (size_t k = 1; k < t.size(); k++) {
            ASSERT_EQ(double(long(k) - 1 - span), cell(t, k, 0));
            ASSERT_NEAR(1000.0 * cell(t, k, 0) / rate, cell(t, k, 1), 1e-4);
            if (cell(t, k, 3) > cell(t, best, 3))
                best = k;
            ASSERT_LE(std::fabs(cell(t, k, 2)),
                      numberAfter(r.out, "correlation coefficient ") + 1e-4);
        }
        EXPECT_EQ(delay, cell(t, best, 0));
        EXPECT_EQ(1.0, cell(t, best, 3));
        EXPECT_NEAR(numberAfter(r.out, "correlation coefficient "),
                    cell(t, best, 2), 1e-4);
    }
}

/* One row per output block of W / 2 frames (W: the frame in samples, a
 * multiple of 8), up to the output's end; at a steady speed the source is
 * the output position times the speed, truncated in single precision. */
TEST(TolvStretchCursor, OneRowPerBlockAtTheSpeedsSourcePosition)
{
    ScratchDir dir;
    const int rate = 16000, frames = 30011;
    writeAudio(dir.path("in.wav"), makeSignal(frames, rate, {{{0.5, 300}}}), 1,
               rate);
    for (const char *speed : {"0.5", "1.25", "3"})
        for (int ms : {10, 20}) {
            Outcome r =
                runTolv({"stretch", dir.path("in.wav"), dir.path("out.wav"),
                         "--speed", speed, "--frame-ms", std::to_string(ms),
                         "--cursor", dir.path("c.csv")});
            ASSERT_EQ(0, r.status) << r.err;
            const int64_t out = readAudio(dir.path("out.wav")).frames;
            const int64_t step = ((ms * rate / 1000) & ~7) / 2;
            const Table t = readCsv(dir.path("c.csv"));
            ASSERT_EQ(size_t((out + step - 1) / step + 1), t.size())
                << speed << " " << ms;
            const float s = std::stof(speed);
            for (size_t k = 1; k < t.size(); k++) {
                const int64_t o = int64_t(k - 1) * step;
                ASSERT_EQ(double(o), cell(t, k, 0));
                ASSERT_EQ(std::trunc(float(o) * s), cell(t, k, 1))
                    << speed << " " << o;
            }
        }
}

} // namespace
