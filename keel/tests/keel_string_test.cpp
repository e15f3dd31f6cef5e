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

constexpr double kInf = std::numeric_limits<double>::infinity();
const double kUnset = -777.0; // a slot no getter wrote

// Short names for the getters.
const auto getText = KEELSTRING_GetStringValueFromString;
const auto getInt = KEELSTRING_GetIntegerValueFromString;
const auto getFloat = KEELSTRING_GetFloatValueFromString;
const auto getBool = KEELSTRING_GetBooleanValueFromString;
const auto vecSize = KEELSTRING_GetVectorSizeFromString;
const auto matSize = KEELSTRING_GetMatrixSizeFromString;
const auto vecValues = KEELSTRING_GetDoubleVectorValuesFromString;
const auto matValues = KEELSTRING_GetDoubleMatrixValuesFromString;

// The text value of key, or "default" when the getter reports no value.
std::string text(const char *config, const char *key)
{
    char dest[256];
    std::memset(dest, 'X', sizeof dest);
    const int found = getText(config, key, "default", dest, sizeof dest);
    EXPECT_EQ(found != 0, std::strcmp(dest, "default") != 0) << key;
    return dest;
}

std::string show(const char *s)
{
    return s ? s : "null";
}

TEST(KeelString, CompareInsensitiveNAndStrlwrFoldAsciiOnly)
{
    // Unsigned bytes, only ASCII letters fold, NULL reads as "".
    // clang-format off
    const struct {
        const char *a, *b;
        uint64_t count;
        int sign;
    } cases[] = {
        {"HAMMING", "hamming", 1000, 0}, {"Hanning", "Hanning-Periodic", 16, -1}, {"abc", "abd", 2, 0},
        {"b", "A", 1, 1}, {"@", "`", 1, -1}, {"\xC4", "\xE4", 1, -1}, {"\x80", "a", 1, 1}, {nullptr, "a", 3, -1}};
    // clang-format on
    for (const auto &c : cases) {
        const int r = KEELSTRING_CompareInsensitiveN(c.a, c.b, c.count);
        EXPECT_EQ((r > 0) - (r < 0), c.sign) << show(c.a) << " / " << c.b;
    }
    char lower[] = "Type=ZOH, DelayCompensation=ON \xC4[]@";
    EXPECT_EQ(KEELSTRING_Strlwr(lower, 0), lower);
    EXPECT_STREQ(lower, "type=zoh, delaycompensation=on \xC4[]@");
    EXPECT_EQ(KEELSTRING_Strlwr(nullptr, 0), nullptr);
}

// Keys fold case, values keep it; separators ; , and line ends; blanks around
// all; the first occurrence wins; whole keys only; quotes protect separators
// (a quote inside a word is a plain byte); malformed or unclosed values, which
// swallow the rest, give the default.
TEST(KeelString, EntryGrammarForTextValues)
{
    // clang-format off
    const struct {
        const char *config, *key, *expected;
    } cases[] = {
        {"TYPE=Lowpass", "type", "Lowpass"}, {"w=Hanning-Periodic", "W", "Hanning-Periodic"},
        {"a=1;b=2\nc=3,d=4", "b", "2"}, {"a=1;b=2\nc=3,d=4", "c", "3"}, {" \t type \t = \t hp \r\nx=1", "type", "hp"},
        {"window = Hanning Periodic , x=1", "window", "Hanning Periodic"}, {"a=b=c", "a", "b=c"},
        {"type=  ,x=1", "type", ""}, {"type=lp, type=hp", "type", "lp"}, {"type, type=hp", "type", "hp"},
        {"fpass1=300, fpass=100", "fpass", "100"}, {"fs=1", "s", "default"}, {"fs=1", "fss", "default"},
        {"name='a,b;c', x=1", "name", "a,b;c"}, {"name=\"it's [x\", x=1", "name", "it's [x"},
        {"name=\"it's [x\", x=1", "x", "1"}, {"name=O'Brien, x=1", "x", "1"}, {"m=[[1],[2]], x=1", "x", "1"},
        {"m=[ 1 2;\n 3 4 \n], x=1", "m", "1 2;\n 3 4"}, {"type=]x, y=1", "type", "]x"},
        {"type='lowpass", "type", "default"}, {"type=\"a\"b, x=1", "type", "default"}, {"m=[1 2]x", "m", "default"},
        {"m=[1 2]]", "m", "default"}, {"m=[1 2, fs=16000", "fs", "default"}, {"q='1, fs=16000", "fs", "default"},
        {"", "type", "default"}, {nullptr, "type", "default"}, {"=5", "", "default"}, {"type=lp", nullptr, "default"}};
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(text(c.config, c.key), c.expected)
            << show(c.config) << " / " << show(c.key);
}

TEST(KeelString, StringCopyNeverPassesTheDestinationSize)
{
    // "bandpass" and the default "lowpass!" both need 9 bytes; a NULL
    // expectation: nothing written.
    // clang-format off
    const struct {
        const char *key;
        size_t size;
        const char *expected;
    } cases[] = {{"type", 0, nullptr}, {"type", 1, ""}, {"type", 8, "bandpas"}, {"type", 9, "bandpass"},
                 {"other", 0, nullptr}, {"other", 8, "lowpass"}, {"other", 9, "lowpass!"}};
    // clang-format on
    for (const auto &c : cases) {
        char dest[32];
        std::memset(dest, 'X', sizeof dest);
        EXPECT_EQ(getText("type=bandpass", c.key, "lowpass!", dest, c.size),
                  c.key[0] == 't');
        if (c.expected != nullptr) {
            EXPECT_STREQ(dest, c.expected) << c.size;
        }
        for (size_t i = c.expected ? c.size : 0; i < sizeof dest; ++i)
            ASSERT_EQ(dest[i], 'X') << c.key << " size " << c.size << " @" << i;
    }
    char dest[8] = "XXXXXXX"; // a NULL default copies the empty text
    EXPECT_EQ(getText("a=1", "b", nullptr, dest, 8), 0);
    EXPECT_STREQ(dest, "");
}

TEST(KeelString, ScalarValuesOrTheDefault)
{
    // -1 is the default: not a whole number within int32.
    // clang-format off
    const std::pair<const char *, int> integers[] = {
        {"+16", 16}, {"1e3", 1000}, {"0x10", 16}, {"'16'", 16}, {"-2147483648", INT32_MIN}, {"2147483648", -1},
        {"16.5", -1}, {"nan", -1}, {"16x", -1}, {"[16]", -1}, {"' 16'", -1}, {"", -1}};
    // clang-format on
    for (const auto &c : integers)
        EXPECT_EQ(
            getInt((std::string("x=1, order=") + c.first).c_str(), "order", -1),
            c.second)
            << c.first;
    // -1 is the default; NaN stands for any NaN; "1,5": the comma ends the
    // entry; the last row rounds once, to float.
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = kInf;
    // clang-format off
    const std::pair<const char *, float> reals[] = {
        {".5", 0.5f}, {"0x1p-3", 0.125f}, {"\"2.5\"", 2.5f}, {"1e39", inf}, {"-Infinity", -inf}, {"NaN(123)", nan},
        {"1,5", 1.0f}, {"5e", -1}, {"3 4", -1}, {"[2.5]", -1}, {"\v5", -1}, {"'5", -1},
        {"1.0000000596046448", std::nextafter(1.0f, 2.0f)}};
    // clang-format on
    for (const auto &c : reals) {
        const float got = getFloat(
            (std::string("fs=") + c.first + ", g=7").c_str(), "fs", -1.0f);
        EXPECT_TRUE(std::isnan(c.second) ? std::isnan(got) : got == c.second)
            << c.first << " gave " << got;
    }
    // -1: not a boolean, the default.
    // clang-format off
    const std::pair<const char *, int> booleans[] = {
        {"TRUE", 1}, {"Yes", 1}, {"ON", 1}, {"1", 1}, {"'yes'", 1}, {"False", 0}, {"no", 0}, {"oFF", 0}, {"0", 0},
        {"\"off\"", 0}, {"2", -1}, {"truee", -1}, {"", -1}, {"1.0", -1}, {"o n", -1}};
    // clang-format on
    for (const auto &c : booleans) {
        const std::string config = "delaycompensation=" + std::string(c.first);
        for (bool fallback : {false, true})
            EXPECT_EQ(getBool((config + ", x=1").c_str(), "delaycompensation",
                              fallback),
                      c.second < 0 ? fallback : c.second == 1)
                << c.first;
    }
}

// Shapes, sizes and values of a list through all four list getters; two more
// elements than there are are asked for and stay untouched. -1 rows:
// malformed, or no list at all.
TEST(KeelString, ListShapesAndValues)
{
    // clang-format off
    const struct {
        const char *value;
        int rows, columns;
        std::vector<double> elements;
    } cases[] = {
        {"[1,-0.5 ,0.1]", 1, 3, {1, -0.5, 0.1}}, {"[1 2 3;\n 4 5 6\n]", 2, 3, {1, 2, 3, 4, 5, 6}},
        {"[1 2 3\n4 5 6]", 1, 6, {1, 2, 3, 4, 5, 6}}, {"[1;2;3]", 3, 1, {1, 2, 3}},
        {"[0x10 1e400 -inf]", 1, 3, {16, kInf, -kInf}}, {"[ \t\n ]", 0, 0, {}}, {"[1 2; 3]", -1, 0, {}},
        {"[1,,2]", -1, 0, {}}, {"[,1]", -1, 0, {}}, {"[1,]", -1, 0, {}}, {"[1;]", -1, 0, {}}, {"[;1]", -1, 0, {}},
        {"[1 2x]", -1, 0, {}}, {"[[1 2]]", -1, 0, {}}, {"['1' 2]", -1, 0, {}}, {"[1 2", -1, 0, {}},
        {"1 2 3", -1, 0, {}}, {"'[1 2]'", -1, 0, {}}};
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.value);
        const std::string config = std::string("x=1; m=") + c.value + ", y=2";
        const char *t = config.c_str();
        const bool isVector = c.rows == 0 || c.rows == 1;
        int count = -1, rows = -1, columns = -1;
        EXPECT_EQ(vecSize(t, "m", &count), isVector);
        EXPECT_EQ(count, isVector ? c.columns : 0);
        EXPECT_EQ(matSize(t, "m", &rows, &columns), c.rows >= 0);
        EXPECT_EQ(rows * 100 + columns, std::max(c.rows, 0) * 100 + c.columns);
        const int n = static_cast<int>(c.elements.size());
        std::vector<double> expected(c.elements), untouched(n + 2, kUnset),
            vec(untouched), mat(untouched);
        expected.resize(n + 2, kUnset);
        EXPECT_EQ(vecValues(t, "m", vec.data(), n + 2), isVector ? n : 0);
        EXPECT_EQ(matValues(t, "m", mat.data(), 1, n + 2), c.rows >= 0 ? n : 0);
        EXPECT_EQ(vec, isVector ? expected : untouched);
        EXPECT_EQ(mat, c.rows >= 0 ? expected : untouched);
    }
}

TEST(KeelString, ListFillsNeverPassTheCountAsked)
{
    const double s = kUnset;
    const char *config = "v=[1 2 3 4], m=[1 2 3; 4 5 6]";
    // asked: the vector count, or rows of 2 columns for the matrix getter;
    // 3 x 2 asked of 2 x 3 fills in stored order.
    const struct {
        const char *key;
        int asked;
        std::vector<double> dest;
    } fills[] = {{"v", 2, {1, 2, s, s, s, s, s}},
                 {"v", -3, {s, s, s, s, s, s, s}},
                 {"m", 3, {1, 2, 3, 4, 5, 6, s}},
                 {"m", 1, {1, 2, s, s, s, s, s}}};
    for (const auto &f : fills) {
        std::vector<double> dest(7, s);
        const int written =
            f.key[0] == 'm' ? matValues(config, f.key, dest.data(), f.asked, 2)
                            : vecValues(config, f.key, dest.data(), f.asked);
        EXPECT_EQ(dest, f.dest) << f.key << " " << f.asked;
        EXPECT_EQ(written, 7 - std::count(dest.begin(), dest.end(), s));
    }
    EXPECT_EQ(vecValues(config, "v", nullptr, 4), 0);
    EXPECT_EQ(matSize(config, "m", nullptr, nullptr), 1);
}

TEST(KeelString, LongAndHostileTexts)
{
    const std::string zeros(5000, '0'); // numbers too long for a short copy
    EXPECT_EQ(getFloat(("g=" + zeros + "2.5" + zeros).c_str(), "g", -1.0f),
              2.5f);
    double v[2] = {kUnset, kUnset};
    EXPECT_EQ(
        vecValues(("v=[1" + zeros + " 0." + zeros + "1]").c_str(), "v", v, 2),
        2);
    EXPECT_TRUE(v[0] == kInf && v[1] == 0.0);
    const size_t depth = 1 << 20; // deep nesting, unclosed brackets and quotes
    const std::string nested =
        "m=" + std::string(depth, '[') + std::string(depth, ']') + ",x=1";
    char dest[8];
    EXPECT_EQ(getText(nested.c_str(), "m", "d", dest, 8), 1);
    EXPECT_STREQ(dest, "[[[[[[[");
    EXPECT_EQ(matSize(nested.c_str(), "m", nullptr, nullptr), 0);
    EXPECT_EQ(getInt(nested.c_str(), "x", -1), 1);
    const std::string open = "m=" + std::string(depth, '[') + ", x=1";
    EXPECT_EQ(getInt(open.c_str(), "x", -1), -1);
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
        SCOPED_TRACE(config);
        char dest[6];
        std::memset(dest, 'X', sizeof dest);
        const int found = getText(t, "m", "dflt", dest, 5);
        ASSERT_TRUE(dest[5] == 'X' && std::strlen(dest) < 5);
        ASSERT_TRUE(found || std::strcmp(dest, "dflt") == 0);
        int count = -1, rows = -1, columns = -1;
        const bool isVector = vecSize(t, "m", &count) != 0;
        const bool isMatrix = matSize(t, "m", &rows, &columns) != 0;
        ASSERT_TRUE(!isVector || (isMatrix && rows <= 1 && count == columns));
        ASSERT_TRUE(isMatrix ? found : rows == 0 && columns == 0);
        std::vector<double> values(17, kUnset);
        ASSERT_EQ(matValues(t, "m", values.data(), 4, 4),
                  isMatrix ? std::min(16, rows * columns) : 0);
        ASSERT_EQ(values[16], kUnset);
        ASSERT_EQ(vecValues(t, "m", values.data(), 16),
                  isVector ? std::min(16, count) : 0);
    }
}

} // namespace
