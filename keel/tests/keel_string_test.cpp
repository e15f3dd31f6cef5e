// Configuration texts: key lookup, the value kinds, bounds and robustness.
#include "keel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

const char *const kBandpass =
    "type=bandpass, approximation=ellip, fpass1=300, fpass2=3400, "
    "fstop1=200, fstop2=4000, Ap=1, As=60, fs=16000";
const char *const kCoefs =
    "numerator=[0.2 0.4 0.2]; denominator=[1, -0.5, 0.1]";
const char *const kBiquads =
    "biquads=[-1.2 0.5 0.1 0.2 0.1; -0.3 0.1 1 2 1], nc=2";
const char *const kResampler = "type=zoh, order=16, delaycompensation=off";
constexpr double kInf = std::numeric_limits<double>::infinity();

// The text value of key, or "default" when the getter reports no value.
std::string text(const char *config, const char *key)
{
    char dest[256];
    std::memset(dest, 'X', sizeof dest);
    const int found = KEELSTRING_GetStringValueFromString(
        config, key, "default", dest, sizeof dest);
    EXPECT_EQ(found != 0, std::strcmp(dest, "default") != 0) << key;
    return dest;
}

std::vector<double> vector(const char *config, const char *key, int count)
{
    std::vector<double> values(count, -777.0);
    EXPECT_EQ(KEELSTRING_GetDoubleVectorValuesFromString(config, key,
                                                         values.data(), count),
              count);
    return values;
}

TEST(KeelString, TheFourExampleTextsReadWhole)
{
    EXPECT_EQ(text(kBandpass, "approximation"), "ellip");
    EXPECT_EQ(text(kResampler, "type"), "zoh");
    // -1 is the default: the key is absent.
    const std::pair<const char *, float> reals[] = {
        {"fpass1", 300}, {"fpass2", 3400}, {"fstop2", 4000}, {"As", 60},
        {"fs", 16000},   {"fpass", -1},    {"gain", -1},     {"ap", 1}};
    for (const auto &r : reals)
        EXPECT_EQ(KEELSTRING_GetFloatValueFromString(kBandpass, r.first, -1.0f),
                  r.second)
            << r.first;
    EXPECT_EQ(KEELSTRING_GetIntegerValueFromString(kResampler, "order", -1),
              16);
    EXPECT_FALSE(KEELSTRING_GetBooleanValueFromString(
        kResampler, "delaycompensation", true));
    int count = 0, rows = 0, columns = 0;
    EXPECT_EQ(KEELSTRING_GetVectorSizeFromString(kCoefs, "denominator", &count),
              1);
    EXPECT_EQ(vector(kCoefs, "denominator", count),
              (std::vector<double>{1, -0.5, 0.1}));
    EXPECT_EQ(KEELSTRING_GetVectorSizeFromString(kBiquads, "biquads", &count),
              0);
    ASSERT_EQ(KEELSTRING_GetMatrixSizeFromString(kBiquads, "biquads", &rows,
                                                 &columns),
              1);
    ASSERT_EQ(rows * 10 + columns, 25);
    std::vector<double> q(10);
    EXPECT_EQ(KEELSTRING_GetDoubleMatrixValuesFromString(kBiquads, "biquads",
                                                         q.data(), 2, 5),
              10);
    EXPECT_EQ(
        q, (std::vector<double>{-1.2, 0.5, 0.1, 0.2, 0.1, -0.3, 0.1, 1, 2, 1}));
}

TEST(KeelString, CompareInsensitiveNAndStrlwrFoldAsciiOnly)
{
    const struct {
        const char *a, *b;
        uint64_t count;
        int sign;
    } cases[] = {{"HAMMING", "hamming", 1000, 0}, // count beyond both texts
                 {"Hanning", "Hanning-Periodic", 16, -1},
                 {"abc", "abd", 2, 0},
                 {"b", "A", 1, 1},
                 {"@", "`", 1, -1},
                 {"\xC4", "\xE4", 1, -1}, // not letters: not folded
                 {"\x80", "a", 1, 1},
                 {nullptr, "a", 3, -1}}; // unsigned bytes; NULL reads as ""
    for (const auto &c : cases) {
        const int r = KEELSTRING_CompareInsensitiveN(c.a, c.b, c.count);
        EXPECT_EQ((r > 0) - (r < 0), c.sign)
            << (c.a ? c.a : "null") << " / " << c.b;
    }
    char lower[] = "Type=ZOH, DelayCompensation=ON \xC4[]@";
    EXPECT_EQ(KEELSTRING_Strlwr(lower, 0), lower);
    EXPECT_STREQ(lower, "type=zoh, delaycompensation=on \xC4[]@");
    EXPECT_EQ(KEELSTRING_Strlwr(nullptr, 0), nullptr);
}

TEST(KeelString, EntryGrammarForTextValues)
{
    const struct {
        const char *config, *key, *expected;
    } cases[] = {
        {"TYPE=Lowpass", "type", "Lowpass"}, // keys fold case, values keep it
        {"w=Hanning-Periodic", "W", "Hanning-Periodic"},
        {"a=1;b=2\nc=3,d=4", "b", "2"},
        {"a=1;b=2\nc=3,d=4", "c", "3"},                // separators
        {" \t type \t = \t hp \r\nx=1", "type", "hp"}, // blanks around all
        {"window = Hanning Periodic , x=1", "window", "Hanning Periodic"},
        {"a=b=c", "a", "b=c"},
        {"type=  ,x=1", "type", ""},
        {"type=lp, type=hp", "type", "lp"}, // the first occurrence wins
        {"type, type=hp", "type", "hp"}, // an entry without '=' names nothing
        {"fpass1=300, fpass=100", "fpass", "100"}, // whole keys only
        {"fs=1", "s", "default"},
        {"fs=1", "fss", "default"},
        {"name='a,b;c', x=1", "name", "a,b;c"}, // quotes protect separators
        {"name=\"it's [x\", x=1", "name", "it's [x"},
        {"name=\"it's [x\", x=1", "x", "1"},
        {"name=O'Brien, x=1", "x",
         "1"}, // a quote inside a word is a plain byte
        {"m=[ 1 2;\n 3 4 \n], x=1", "m", "1 2;\n 3 4"},
        {"m=[[1],[2]], x=1", "x", "1"},
        {"type=]x, y=1", "type", "]x"},
        {"type='lowpass", "type", "default"},
        {"type=\"a\"b, x=1", "type", "default"},
        {"m=[1 2]x", "m", "default"},
        {"m=[1 2]]", "m", "default"},          // malformed
        {"m=[1 2, fs=16000", "fs", "default"}, // unclosed: swallows the rest
        {"q='1, fs=16000", "fs", "default"},
        {"", "type", "default"},
        {nullptr, "type", "default"},
        {"=5", "", "default"},
        {"type=lp", nullptr, "default"}};
    for (const auto &c : cases)
        EXPECT_EQ(text(c.config, c.key), c.expected)
            << (c.config ? c.config : "null") << " / "
            << (c.key ? c.key : "null");
}

TEST(KeelString, StringCopyNeverPassesTheDestinationSize)
{
    // "bandpass" and the default "lowpass!" both need 9 bytes.
    // A NULL expectation: nothing written.
    const struct {
        const char *key;
        size_t size;
        const char *expected;
    } cases[] = {{"type", 0, nullptr},    {"type", 1, ""},
                 {"type", 8, "bandpas"},  {"type", 9, "bandpass"},
                 {"other", 0, nullptr},   {"other", 8, "lowpass"},
                 {"other", 9, "lowpass!"}};
    for (const auto &c : cases) {
        char dest[32];
        std::memset(dest, 'X', sizeof dest);
        EXPECT_EQ(KEELSTRING_GetStringValueFromString("type=bandpass", c.key,
                                                      "lowpass!", dest, c.size),
                  c.key[0] == 't');
        if (c.expected != nullptr) {
            EXPECT_STREQ(dest, c.expected) << c.size;
        }
        for (size_t i = c.expected ? c.size : 0; i < sizeof dest; ++i)
            ASSERT_EQ(dest[i], 'X')
                << c.key << " size " << c.size << " byte " << i;
    }
    char dest[8] = "XXXXXXX"; // a NULL default copies the empty text
    EXPECT_EQ(KEELSTRING_GetStringValueFromString("a=1", "b", nullptr, dest, 8),
              0);
    EXPECT_STREQ(dest, "");
}

TEST(KeelString, ScalarValuesOrTheDefault)
{
    // -1 is the default: not a whole number within int32.
    const struct {
        const char *value;
        int expected;
    } integers[] = {{"+16", 16},
                    {"1e3", 1000},
                    {"0x10", 16},
                    {"'16'", 16},
                    {"-2147483648", INT32_MIN},
                    {"2147483648", -1},
                    {"16.5", -1},
                    {"nan", -1},
                    {"16x", -1},
                    {"[16]", -1},
                    {"' 16'", -1},
                    {"", -1}};
    for (const auto &c : integers) {
        const std::string config = std::string("x=1, order=") + c.value;
        EXPECT_EQ(
            KEELSTRING_GetIntegerValueFromString(config.c_str(), "order", -1),
            c.expected)
            << c.value;
    }
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // -1 is the default; NaN stands for any NaN.
    const struct {
        const char *value;
        float expected;
    } reals[] = {{".5", 0.5f},
                 {"0x1p-3", 0.125f},
                 {"\"2.5\"", 2.5f},
                 {"1e39", float(kInf)},
                 {"-Infinity", -float(kInf)},
                 {"NaN(123)", nan},
                 {"1,5", 1.0f}, // the comma ends the entry
                 {"5e", -1},
                 {"3 4", -1},
                 {"[2.5]", -1},
                 {"\v5", -1},
                 {"'5", -1},
                 // one rounding, to float
                 {"1.0000000596046448", std::nextafter(1.0f, 2.0f)}};
    for (const auto &c : reals) {
        const std::string config = std::string("fs=") + c.value + ", g=7";
        const float got =
            KEELSTRING_GetFloatValueFromString(config.c_str(), "fs", -1.0f);
        EXPECT_TRUE(std::isnan(c.expected) ? std::isnan(got)
                                           : got == c.expected)
            << c.value << " gave " << got;
    }
    // -1: not a boolean, the default.
    const struct {
        const char *value;
        int expected;
    } booleans[] = {{"TRUE", 1},  {"Yes", 1},     {"ON", 1},  {"1", 1},
                    {"'yes'", 1}, {"False", 0},   {"no", 0},  {"oFF", 0},
                    {"0", 0},     {"\"off\"", 0}, {"2", -1},  {"truee", -1},
                    {"", -1},     {"1.0", -1},    {"o n", -1}};
    for (const auto &c : booleans) {
        const std::string config =
            std::string("delaycompensation=") + c.value + ", x=1";
        for (bool fallback : {false, true})
            EXPECT_EQ(KEELSTRING_GetBooleanValueFromString(
                          config.c_str(), "delaycompensation", fallback),
                      c.expected < 0 ? fallback : c.expected == 1)
                << c.value;
    }
}

TEST(KeelString, ListShapesAndValues)
{
    // -1 rows: malformed, or no list at all.
    const struct {
        const char *value;
        int rows, columns;
        std::vector<double> elements;
    } cases[] = {{"[1,-0.5 ,0.1]", 1, 3, {1, -0.5, 0.1}},
                 {"[1 2 3;\n 4 5 6\n]", 2, 3, {1, 2, 3, 4, 5, 6}},
                 {"[1 2 3\n4 5 6]", 1, 6, {1, 2, 3, 4, 5, 6}},
                 {"[1;2;3]", 3, 1, {1, 2, 3}},
                 {"[0x10 1e400 -inf]", 1, 3, {16, kInf, -kInf}},
                 {"[ \t\n ]", 0, 0, {}},
                 {"[1 2; 3]", -1, 0, {}},
                 {"[1,,2]", -1, 0, {}},
                 {"[,1]", -1, 0, {}},
                 {"[1,]", -1, 0, {}},
                 {"[1;]", -1, 0, {}},
                 {"[;1]", -1, 0, {}},
                 {"[1 2x]", -1, 0, {}},
                 {"[[1 2]]", -1, 0, {}},
                 {"['1' 2]", -1, 0, {}},
                 {"[1 2", -1, 0, {}},
                 {"1 2 3", -1, 0, {}},
                 {"'[1 2]'", -1, 0, {}}};
    for (const auto &c : cases) {
        const std::string config = std::string("x=1; m=") + c.value + ", y=2";
        const char *t = config.c_str();
        const bool isVector = c.rows == 0 || c.rows == 1;
        int count = -1, rows = -1, columns = -1;
        EXPECT_EQ(KEELSTRING_GetVectorSizeFromString(t, "m", &count), isVector)
            << c.value;
        EXPECT_EQ(count, isVector ? c.columns : 0) << c.value;
        EXPECT_EQ(KEELSTRING_GetMatrixSizeFromString(t, "m", &rows, &columns),
                  c.rows >= 0)
            << c.value;
        EXPECT_EQ(rows * 100 + columns, std::max(c.rows, 0) * 100 + c.columns)
            << c.value;
        // Ask for two more elements than there are: the surplus stays untouched.
        const int n = static_cast<int>(c.elements.size());
        std::vector<double> expected(c.elements), vec(n + 2, -777.0),
            mat(n + 2, -777.0);
        expected.resize(n + 2, -777.0);
        EXPECT_EQ(KEELSTRING_GetDoubleVectorValuesFromString(t, "m", vec.data(),
                                                             n + 2),
                  isVector ? n : 0);
        EXPECT_EQ(KEELSTRING_GetDoubleMatrixValuesFromString(t, "m", mat.data(),
                                                             1, n + 2),
                  c.rows >= 0 ? n : 0);
        EXPECT_EQ(vec, isVector ? expected : std::vector<double>(n + 2, -777.0))
            << c.value;
        EXPECT_EQ(mat,
                  c.rows >= 0 ? expected : std::vector<double>(n + 2, -777.0))
            << c.value;
    }
}

TEST(KeelString, ListFillsNeverPassTheCountAsked)
{
    const double s = -777.0;
    const char *config = "v=[1 2 3 4], m=[1 2 3; 4 5 6]";
    // asked: the vector count, or rows of 2 columns for the matrix getter.
    const struct {
        const char *key;
        int asked;
        bool matrix;
        std::vector<double> dest;
    } fills[] = {{"v", 2, false, {1, 2, s, s, s, s, s}},
                 {"v", -3, false, {s, s, s, s, s, s, s}},
                 {"m",
                  3,
                  true,
                  {1, 2, 3, 4, 5, 6, s}}, // 3 x 2 asked of 2 x 3: stored order
                 {"m", 1, true, {1, 2, s, s, s, s, s}}};
    for (const auto &f : fills) {
        std::vector<double> dest(7, s);
        const int written = f.matrix
                                ? KEELSTRING_GetDoubleMatrixValuesFromString(
                                      config, f.key, dest.data(), f.asked, 2)
                                : KEELSTRING_GetDoubleVectorValuesFromString(
                                      config, f.key, dest.data(), f.asked);
        EXPECT_EQ(dest, f.dest) << f.key << " " << f.asked;
        EXPECT_EQ(written, std::count_if(dest.begin(), dest.end(),
                                         [&](double v) { return v != s; }));
    }
    EXPECT_EQ(
        KEELSTRING_GetDoubleVectorValuesFromString(config, "v", nullptr, 4), 0);
    EXPECT_EQ(KEELSTRING_GetMatrixSizeFromString(config, "m", nullptr, nullptr),
              1);
}

TEST(KeelString, LongAndHostileTexts)
{
    const std::string zeros(5000, '0'); // numbers too long for a short copy
    EXPECT_EQ(KEELSTRING_GetFloatValueFromString(
                  ("g=" + zeros + "2.5" + zeros).c_str(), "g", -1.0f),
              2.5f);
    EXPECT_EQ(vector(("v=[1" + zeros + " 0." + zeros + "1]").c_str(), "v", 2),
              (std::vector<double>{kInf, 0.0}));
    const size_t depth = 1 << 20; // deep nesting, unclosed brackets and quotes
    const std::string nested =
        "m=" + std::string(depth, '[') + std::string(depth, ']') + ",x=1";
    char dest[8];
    EXPECT_EQ(
        KEELSTRING_GetStringValueFromString(nested.c_str(), "m", "d", dest, 8),
        1);
    EXPECT_STREQ(dest, "[[[[[[[");
    EXPECT_EQ(KEELSTRING_GetMatrixSizeFromString(nested.c_str(), "m", nullptr,
                                                 nullptr),
              0);
    EXPECT_EQ(KEELSTRING_GetIntegerValueFromString(nested.c_str(), "x", -1), 1);
    const std::string open = "m=" + std::string(depth, '[') + ", x=1";
    EXPECT_EQ(KEELSTRING_GetIntegerValueFromString(open.c_str(), "x", -1), -1);
    const std::string quote = "q='" + std::string(depth, 'a') + ", x=1";
    EXPECT_EQ(text(quote.c_str(), "q"), "default");
}

// Random texts over the bytes the grammar cares about: the getters must
// agree with one another and respect every bound (and ASan sees the reads).
TEST(KeelString, RandomTextsKeepTheGettersConsistent)
{
    const char alphabet[] = "mM=[];,\n '\"x1.-e\t\r9\x01\xff";
    std::mt19937 rng(12345);
    for (int trial = 0; trial < 5000; ++trial) {
        std::string config;
        for (size_t n = rng() % 41; n > 0; --n)
            config += alphabet[rng() % (sizeof alphabet - 1)];
        const char *t = config.c_str();
        char dest[6];
        std::memset(dest, 'X', sizeof dest);
        const int found =
            KEELSTRING_GetStringValueFromString(t, "m", "dflt", dest, 5);
        ASSERT_TRUE(dest[5] == 'X' && std::strlen(dest) < 5) << config;
        ASSERT_TRUE(found || std::strcmp(dest, "dflt") == 0) << config;
        int count = -1, rows = -1, columns = -1;
        const bool isVector =
            KEELSTRING_GetVectorSizeFromString(t, "m", &count) != 0;
        const bool isMatrix =
            KEELSTRING_GetMatrixSizeFromString(t, "m", &rows, &columns) != 0;
        ASSERT_TRUE(!isVector || (isMatrix && rows <= 1 && count == columns))
            << config;
        ASSERT_TRUE(isMatrix ? found : rows == 0 && columns == 0) << config;
        double values[17];
        std::fill(values, values + 17, -777.0);
        const int written =
            KEELSTRING_GetDoubleMatrixValuesFromString(t, "m", values, 4, 4);
        ASSERT_EQ(written, isMatrix ? std::min(16, rows * columns) : 0)
            << config;
        ASSERT_EQ(values[16], -777.0) << config;
        ASSERT_EQ(
            KEELSTRING_GetDoubleVectorValuesFromString(t, "m", values, 16),
            isVector ? std::min(16, count) : 0)
            << config;
    }
}

} // namespace
