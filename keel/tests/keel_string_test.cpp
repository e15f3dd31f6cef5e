// Configuration texts: key lookup, the value kinds, bounds and robustness.
#include "keel.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr const char *kBandpass =
    "type=bandpass, approximation=ellip, fpass1=300, fpass2=3400, "
    "fstop1=200, fstop2=4000, Ap=1, As=60, fs=16000";
constexpr const char *kCoefs =
    "numerator=[0.2 0.4 0.2]; denominator=[1, -0.5, 0.1]";
constexpr const char *kBiquads =
    "biquads=[-1.2 0.5 0.1 0.2 0.1; -0.3 0.1 1 2 1], nc=2";
constexpr const char *kResampler = "type=zoh, order=16, delaycompensation=off";

struct StringResult {
    int found;
    std::string text;
};

StringResult GetString(const char *config, const char *key,
                       const char *fallback = "default") {
    char dest[256];
    std::memset(dest, 'X', sizeof dest);
    const int found = KEELSTRING_GetStringValueFromString(config, key, fallback,
                                                          dest, sizeof dest);
    return {found, std::string(dest)};
}

int Sign(int v) { return (v > 0) - (v < 0); }

// ---- Case-insensitive comparison and lowering ------------------------------

struct CompareCase {
    const char *a;
    const char *b;
    uint64_t count;
    int sign;
};

TEST(KeelString, CompareInsensitiveN) {
    const CompareCase cases[] = {
        {"Hanning", "hanning", 7, 0},
        {"HAMMING", "hamming", 1000, 0},       // count beyond both texts
        {"Hanning", "Hanning-Periodic", 16, -1},  // '\0' < '-'
        {"Hanning-Periodic", "Hanning", 16, 1},
        {"Hamming ", "Hamming", 8, 1},
        {"abc", "abd", 2, 0},
        {"abc", "abd", 3, -1},
        {"b", "A", 1, 1},
        {"abc", "xyz", 0, 0},
        {"", "", 5, 0},
        {"@", "`", 1, -1},           // not letters: no folding
        {"[", "{", 1, -1},
        {"\xC4", "\xE4", 1, -1},      // bytes above ASCII are not folded
        {"\x80", "a", 1, 1},          // compared as unsigned bytes
        {nullptr, "", 3, 0},
        {nullptr, "a", 3, -1},
        {"a", nullptr, 3, 1},
    };
    for (const CompareCase &c : cases) {
        SCOPED_TRACE(std::string(c.a ? c.a : "(null)") + " vs " +
                     (c.b ? c.b : "(null)"));
        EXPECT_EQ(Sign(KEELSTRING_CompareInsensitiveN(c.a, c.b, c.count)),
                  c.sign);
    }
}

TEST(KeelString, StrlwrLowersAsciiInPlace) {
    char text[] = "Type=ZOH, Order=16, DelayCompensation=ON \xC4[]@";
    EXPECT_EQ(KEELSTRING_Strlwr(text, 0), text);
    EXPECT_STREQ(text, "type=zoh, order=16, delaycompensation=on \xC4[]@");
    EXPECT_EQ(KEELSTRING_Strlwr(nullptr, 0), nullptr);
}

// ---- Text values and the entry grammar -------------------------------------

struct StringCase {
    const char *config;
    const char *key;
    int found;
    const char *text;
};

TEST(KeelString, StringValuesAndEntryGrammar) {
    const StringCase cases[] = {
        {kBandpass, "type", 1, "bandpass"},
        {kBandpass, "approximation", 1, "ellip"},
        {kBandpass, "As", 1, "60"},
        {kResampler, "type", 1, "zoh"},
        // keys fold case, values keep it
        {"TYPE=Lowpass", "type", 1, "Lowpass"},
        {"ap=2", "Ap", 1, "2"},
        {"w=Hanning-Periodic", "W", 1, "Hanning-Periodic"},
        // the three separators and the blanks around keys, '=' and values
        {"a=1;b=2\nc=3,d=4", "c", 1, "3"},
        {"a=1;b=2\nc=3,d=4", "d", 1, "4"},
        {" \t type \t = \t hp \r\nx=1", "type", 1, "hp"},
        {"window = Hanning Periodic , x=1", "window", 1, "Hanning Periodic"},
        {"a=b=c", "a", 1, "b=c"},
        {"type=", "type", 1, ""},
        {"type=  ,x=1", "type", 1, ""},
        // first occurrence wins; an entry without '=' names nothing
        {"type=lp, type=hp", "type", 1, "lp"},
        {"type, type=hp", "type", 1, "hp"},
        {"type;x=1", "type", 0, "default"},
        // keys are whole words (the filter keys below check fs / fstop1)
        {"fpass1=300, fpass=100", "fpass", 1, "100"},
        {"fs=1", "s", 0, "default"},
        {"fs=1", "fss", 0, "default"},
        // quotes protect separators, brackets and the other quote
        {"name='a,b;c', x=1", "name", 1, "a,b;c"},
        {"name=\"it's [x\", x=1", "name", 1, "it's [x"},
        {"name=\"it's [x\", x=1", "x", 1, "1"},
        {"name='two\nlines'", "name", 1, "two\nlines"},
        {"name=''", "name", 1, ""},
        {"name=O'Brien, x=1", "name", 1, "O'Brien"},  // quote inside a word
        {"name=O'Brien, x=1", "x", 1, "1"},
        // bracketed values give the text between the brackets
        {kCoefs, "numerator", 1, "0.2 0.4 0.2"},
        {kCoefs, "denominator", 1, "1, -0.5, 0.1"},
        {"m=[ 1 2;\n 3 4 \n]", "m", 1, "1 2;\n 3 4"},
        {"m=[[1],[2]], x=1", "m", 1, "[1],[2]"},
        {"m=[1, 2], x=1", "x", 1, "1"},
        {"type=]x, y=1", "type", 1, "]x"},  // a stray ']' is a plain byte
        // malformed values give the default
        {"type='lowpass", "type", 0, "default"},
        {"type=\"a\"b, x=1", "type", 0, "default"},
        {"type='a' 'b'", "type", 0, "default"},
        {"m=[1 2", "m", 0, "default"},
        {"m=[1 2]x", "m", 0, "default"},
        {"m=[1 2]]", "m", 0, "default"},
        // an unclosed bracket or quote swallows the rest of the text
        {"m=[1 2, fs=16000", "fs", 0, "default"},
        {"q='1, fs=16000", "fs", 0, "default"},
        // absent keys, empty and NULL texts and keys
        {kBandpass, "order", 0, "default"},
        {"", "type", 0, "default"},
        {nullptr, "type", 0, "default"},
        {"=5", "", 0, "default"},
        {"type=lp", nullptr, 0, "default"},
        {"garbage without any entry", "garbage", 0, "default"},
        {"\x01\x02=\x03\x04, x=1", "\x01\x02", 1, "\x03\x04"},
    };
    for (const StringCase &c : cases) {
        SCOPED_TRACE(std::string(c.config ? c.config : "(null)") + " / " +
                     (c.key ? c.key : "(null)"));
        const StringResult r = GetString(c.config, c.key);
        EXPECT_EQ(r.found, c.found);
        EXPECT_EQ(r.text, c.text);
    }
}

// ---- Destination bounds ----------------------------------------------------

struct BoundsCase {
    const char *key;   // "type" is found, "other" falls back to the default
    size_t size;
    const char *text;  // what must stand in dest, or NULL for untouched
};

TEST(KeelString, StringCopyNeverPassesTheDestinationSize) {
    // "bandpass" and the default "lowpass!" both need 9 bytes.
    const BoundsCase cases[] = {
        {"type", 0, nullptr},     {"type", 1, ""},
        {"type", 8, "bandpas"},   {"type", 9, "bandpass"},
        {"type", 20, "bandpass"}, {"other", 0, nullptr},
        {"other", 1, ""},         {"other", 8, "lowpass"},
        {"other", 9, "lowpass!"},
    };
    for (const BoundsCase &c : cases) {
        SCOPED_TRACE(std::string(c.key) + " size " + std::to_string(c.size));
        char dest[32];
        std::memset(dest, 'X', sizeof dest);
        const int found = KEELSTRING_GetStringValueFromString(
            "type=bandpass", c.key, "lowpass!", dest, c.size);
        EXPECT_EQ(found, std::strcmp(c.key, "type") == 0 ? 1 : 0);
        if (c.text == nullptr) {
            EXPECT_EQ(dest[0], 'X');
        } else {
            EXPECT_STREQ(dest, c.text);
        }
        for (size_t i = c.size; i < sizeof dest; ++i) {
            ASSERT_EQ(dest[i], 'X') << "byte " << i << " written";
        }
    }
    EXPECT_EQ(KEELSTRING_GetStringValueFromString("type=bp", "type", "x",
                                                  nullptr, 16),
              1);
    char dest[8] = "XXXXXXX";  // a NULL default copies the empty text
    EXPECT_EQ(KEELSTRING_GetStringValueFromString("a=1", "b", nullptr, dest,
                                                  sizeof dest),
              0);
    EXPECT_STREQ(dest, "");
}

// ---- Scalars ---------------------------------------------------------------

struct IntegerCase {
    const char *value;
    bool readable;
    int expected;
};

TEST(KeelString, IntegerValues) {
    const IntegerCase cases[] = {
        {"16", true, 16}, {"+16", true, 16}, {"-3", true, -3},
        {"16.0", true, 16}, {"1e3", true, 1000}, {"0x10", true, 16},
        {"-0", true, 0}, {"'16'", true, 16}, {"16 ", true, 16},
        {"2147483647", true, 2147483647},
        {"-2147483648", true, std::numeric_limits<int>::min()},
        {"2147483648", false, 0}, {"-2147483649", false, 0},
        {"3000000000", false, 0}, {"16.5", false, 0}, {"1e-3", false, 0},
        {"nan", false, 0}, {"inf", false, 0}, {"1 6", false, 0},
        {"16x", false, 0}, {"[16]", false, 0}, {"' 16'", false, 0},
        {"", false, 0}, {"abc", false, 0},
    };
    for (const IntegerCase &c : cases) {
        SCOPED_TRACE(c.value);
        const std::string config = std::string("x=1, order=") + c.value;
        for (int fallback : {-1, 77}) {
            EXPECT_EQ(KEELSTRING_GetIntegerValueFromString(config.c_str(),
                                                           "order", fallback),
                      c.readable ? c.expected : fallback);
        }
    }
    EXPECT_EQ(KEELSTRING_GetIntegerValueFromString(kResampler, "order", -1), 16);
    EXPECT_EQ(KEELSTRING_GetIntegerValueFromString(kBandpass, "order", -1), -1);
}

struct FloatCase {
    const char *value;
    bool readable;
    float expected;  // NaN stands for "a NaN"
};

TEST(KeelString, FloatValues) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const FloatCase cases[] = {
        {"1", true, 1.0f}, {"-0.5", true, -0.5f}, {"0.1", true, 0.1f},
        {"1e-3", true, 1e-3f}, {".5", true, 0.5f}, {"3.", true, 3.0f},
        {"16000.7", true, 16000.7f}, {"0x1p-3", true, 0.125f},
        {"'2.5'", true, 2.5f}, {"\"2.5\"", true, 2.5f},
        {"1e39", true, inf},  // beyond float, rounded to infinity
        {"-inf", true, -inf}, {"Infinity", true, inf}, {"nan", true, nan},
        {"NaN(123)", true, nan},
        // rounded once to float: through double the tie would round down
        {"1.0000000596046448", true, std::nextafter(1.0f, 2.0f)},
        {"1,5", true, 1.0f},  // the comma ends the entry
        {"5e", false, 0}, {"3 4", false, 0}, {"[2.5]", false, 0}, {"", false, 0},
        {"abc", false, 0}, {"\v5", false, 0}, {"'5", false, 0},
    };
    for (const FloatCase &c : cases) {
        SCOPED_TRACE(c.value);
        const std::string config = std::string("fs=") + c.value + ", g=7";
        const float got =
            KEELSTRING_GetFloatValueFromString(config.c_str(), "fs", -1.0f);
        if (!c.readable) {
            EXPECT_EQ(got, -1.0f);
        } else if (std::isnan(c.expected)) {
            EXPECT_TRUE(std::isnan(got));
        } else {
            EXPECT_EQ(got, c.expected);
        }
    }
}

TEST(KeelString, BooleanValues) {
    const char *trueWords[] = {"true", "TRUE", "Yes", "ON", "1", "'yes'"};
    const char *falseWords[] = {"false", "False", "no", "NO", "oFF", "0",
                                "\"off\""};
    const char *others[] = {"2", "y", "t", "truee", "", "[1]", "1.0", "o n"};
    auto read = [](const char *value, bool fallback) {
        const std::string config =
            std::string("delaycompensation=") + value + ", x=1";
        return KEELSTRING_GetBooleanValueFromString(
            config.c_str(), "delaycompensation", fallback);
    };
    for (const char *w : trueWords) {
        SCOPED_TRACE(w);
        EXPECT_TRUE(read(w, false));
    }
    for (const char *w : falseWords) {
        SCOPED_TRACE(w);
        EXPECT_FALSE(read(w, true));
    }
    for (const char *w : others) {
        SCOPED_TRACE(w);
        EXPECT_TRUE(read(w, true));
        EXPECT_FALSE(read(w, false));
    }
    EXPECT_FALSE(KEELSTRING_GetBooleanValueFromString(
        kResampler, "delaycompensation", true));
    EXPECT_TRUE(KEELSTRING_GetBooleanValueFromString(nullptr, "x", true));
}

// The keys a filter specification reads, in its order, with its defaults.
TEST(KeelString, FilterSpecificationReadsItsKeys) {
    struct Key {
        const char *name;
        float fallback;
        float expected;
    };
    const Key keys[] = {
        {"gain", 1.0f, 1.0f},     {"nc", 1.0f, 1.0f},
        {"Ap", 3.0f, 1.0f},       {"As", -1.0f, 60.0f},
        {"fpass", -1.0f, -1.0f},  {"fpass1", -1.0f, 300.0f},
        {"fpass2", -1.0f, 3400.0f}, {"fstop", -1.0f, -1.0f},
        {"fstop1", -1.0f, 200.0f}, {"fstop2", -1.0f, 4000.0f},
        {"fs", -1.0f, 16000.0f},
    };
    for (const Key &k : keys) {
        SCOPED_TRACE(k.name);
        EXPECT_EQ(KEELSTRING_GetFloatValueFromString(kBandpass, k.name,
                                                     k.fallback),
                  k.expected);
    }
    EXPECT_EQ(KEELSTRING_GetFloatValueFromString(kBiquads, "nc", 1.0f), 2.0f);
    int count = -5;
    EXPECT_EQ(KEELSTRING_GetVectorSizeFromString(kBandpass, "numerator", &count),
              0);
    EXPECT_EQ(count, 0);
}

// ---- Vectors and matrices --------------------------------------------------

struct ListCase {
    const char *value;
    bool vector;  // size query for a vector
    bool matrix;  // size query for a matrix
    int rows, columns;
    std::vector<double> elements;  // row after row
};

TEST(KeelString, VectorAndMatrixShapesAndValues) {
    const double inf = std::numeric_limits<double>::infinity();
    const ListCase cases[] = {
        {"[0.2 0.4 0.2]", true, true, 1, 3, {0.2, 0.4, 0.2}},
        {"[1, -0.5, 0.1]", true, true, 1, 3, {1, -0.5, 0.1}},
        {"[1,-0.5 ,0.1]", true, true, 1, 3, {1, -0.5, 0.1}},
        {"[ 5 ]", true, true, 1, 1, {5}},
        {"[-1.2 0.5 0.1 0.2 0.1; -0.3 0.1 1 2 1]", false, true, 2, 5,
         {-1.2, 0.5, 0.1, 0.2, 0.1, -0.3, 0.1, 1, 2, 1}},
        {"[1 2 3;\n 4 5 6\n]", false, true, 2, 3, {1, 2, 3, 4, 5, 6}},
        {"[1 2 3\n4 5 6]", true, true, 1, 6, {1, 2, 3, 4, 5, 6}},
        {"[1;2;3]", false, true, 3, 1, {1, 2, 3}},
        {"[0x10 1e1 -0]", true, true, 1, 3, {16, 10, 0}},
        {"[1e400 -inf]", true, true, 1, 2, {inf, -inf}},
        {"[]", true, true, 0, 0, {}},
        {"[ \t\n ]", true, true, 0, 0, {}},
        // malformed lists
        {"[1 2; 3]", false, false, 0, 0, {}},
        {"[1,,2]", false, false, 0, 0, {}},
        {"[,1]", false, false, 0, 0, {}},
        {"[1,]", false, false, 0, 0, {}},
        {"[1 , , 2]", false, false, 0, 0, {}},
        {"[1;]", false, false, 0, 0, {}},
        {"[;1]", false, false, 0, 0, {}},
        {"[;]", false, false, 0, 0, {}},
        {"[1 x]", false, false, 0, 0, {}},
        {"[1 2x]", false, false, 0, 0, {}},
        {"[[1 2]]", false, false, 0, 0, {}},
        {"[1 2", false, false, 0, 0, {}},
        {"[1 2]]", false, false, 0, 0, {}},
        {"[1 2] 3", false, false, 0, 0, {}},
        {"['1' 2]", false, false, 0, 0, {}},
        {"1 2 3", false, false, 0, 0, {}},
        {"0.5", false, false, 0, 0, {}},
        {"'[1 2]'", false, false, 0, 0, {}},
        {"", false, false, 0, 0, {}},
    };
    for (const ListCase &c : cases) {
        SCOPED_TRACE(c.value);
        const std::string config = std::string("x=1; m=") + c.value + ", y=2";
        const char *text = config.c_str();
        int count = -1, rows = -1, columns = -1;
        EXPECT_EQ(KEELSTRING_GetVectorSizeFromString(text, "m", &count) != 0,
                  c.vector);
        EXPECT_EQ(count, c.vector ? c.columns : 0);
        EXPECT_EQ(KEELSTRING_GetMatrixSizeFromString(text, "m", &rows,
                                                     &columns) != 0,
                  c.matrix);
        EXPECT_EQ(rows, c.rows);
        EXPECT_EQ(columns, c.columns);

        // Ask for two more elements than there are: the surplus stays put.
        const int n = static_cast<int>(c.elements.size());
        const double sentinel = -777.0;
        std::vector<double> got(n + 2, sentinel);
        EXPECT_EQ(KEELSTRING_GetDoubleVectorValuesFromString(text, "m",
                                                             got.data(), n + 2),
                  c.vector ? n : 0);
        std::vector<double> expected(n + 2, sentinel);
        if (c.vector) std::copy(c.elements.begin(), c.elements.end(),
                                expected.begin());
        EXPECT_EQ(got, expected);

        std::fill(got.begin(), got.end(), sentinel);
        EXPECT_EQ(KEELSTRING_GetDoubleMatrixValuesFromString(
                      text, "m", got.data(), 1, n + 2),
                  c.matrix ? n : 0);
        std::fill(expected.begin(), expected.end(), sentinel);
        if (c.matrix) std::copy(c.elements.begin(), c.elements.end(),
                                expected.begin());
        EXPECT_EQ(got, expected);
    }
}

TEST(KeelString, ListFillsNeverPassTheCountAsked) {
    const double s = -777.0;
    struct Fill {
        const char *what;
        int asked;      // vector count, or rows x 2 for the matrix getter
        bool matrix;
        int written;
        std::vector<double> dest;
    };
    const char *config =
        "v=[1 2 3 4], m=[1 2 3; 4 5 6]";  // m is stored 2 x 3
    const Fill fills[] = {
        {"v", 2, false, 2, {1, 2, s, s, s, s, s}},
        {"v", 0, false, 0, {s, s, s, s, s, s, s}},
        {"v", -3, false, 0, {s, s, s, s, s, s, s}},
        {"m", 4, false, 0, {s, s, s, s, s, s, s}},  // two rows: no vector
        // asked 3 x 2 of a 2 x 3 matrix: the elements in stored order
        {"m", 3, true, 6, {1, 2, 3, 4, 5, 6, s}},
        {"m", 1, true, 2, {1, 2, s, s, s, s, s}},
        {"m", 0, true, 0, {s, s, s, s, s, s, s}},
        {"v", 2, true, 4, {1, 2, 3, 4, s, s, s}},
    };
    for (const Fill &f : fills) {
        SCOPED_TRACE(std::string(f.what) + " asked " + std::to_string(f.asked));
        std::vector<double> dest(7, s);
        const int written =
            f.matrix ? KEELSTRING_GetDoubleMatrixValuesFromString(
                           config, f.what, dest.data(), f.asked, 2)
                     : KEELSTRING_GetDoubleVectorValuesFromString(
                           config, f.what, dest.data(), f.asked);
        EXPECT_EQ(written, f.written);
        EXPECT_EQ(dest, f.dest);
    }
    EXPECT_EQ(KEELSTRING_GetDoubleVectorValuesFromString(config, "v", nullptr, 4),
              0);
    EXPECT_EQ(KEELSTRING_GetDoubleMatrixValuesFromString(config, "m", nullptr, 2,
                                                         3),
              0);
    EXPECT_EQ(KEELSTRING_GetVectorSizeFromString(config, "v", nullptr), 1);
    EXPECT_EQ(KEELSTRING_GetMatrixSizeFromString(config, "m", nullptr, nullptr),
              1);
}

// The explicit filter forms as a specification text writes them.
TEST(KeelString, ExplicitFilterFormsReadWhole) {
    struct Form {
        const char *config, *key;
        int rows, columns;
        double first, last;
    };
    const Form forms[] = {{kCoefs, "numerator", 1, 3, 0.2, 0.2},
                          {kCoefs, "denominator", 1, 3, 1.0, 0.1},
                          {kBiquads, "biquads", 2, 5, -1.2, 1.0}};
    for (const Form &f : forms) {
        SCOPED_TRACE(f.key);
        int rows = 0, columns = 0;
        ASSERT_NE(KEELSTRING_GetMatrixSizeFromString(f.config, f.key, &rows,
                                                     &columns), 0);
        ASSERT_EQ(rows, f.rows);
        ASSERT_EQ(columns, f.columns);
        double q[10];
        ASSERT_EQ(KEELSTRING_GetDoubleMatrixValuesFromString(f.config, f.key,
                                                             q, rows, columns),
                  rows * columns);
        EXPECT_EQ(q[0], f.first);
        EXPECT_EQ(q[rows * columns - 1], f.last);
    }
}

// ---- Locale independence ---------------------------------------------------

TEST(KeelString, NumbersIgnoreTheProcessLocale) {
    const char *candidates[] = {"de_DE.UTF-8", "de_DE.utf8", "de_DE",
                                "fr_FR.UTF-8", "fr_FR.utf8", "pt_BR.UTF-8",
                                "pt_BR.utf8",  "nl_NL.UTF-8", "ru_RU.UTF-8"};
    const std::string saved = std::setlocale(LC_ALL, nullptr);
    const char *chosen = nullptr;
    for (const char *name : candidates) {
        if (std::setlocale(LC_ALL, name) != nullptr &&
            std::strcmp(std::localeconv()->decimal_point, ",") == 0) {
            chosen = name;
            break;
        }
    }
    if (chosen == nullptr) {
        std::setlocale(LC_ALL, saved.c_str());
        GTEST_SKIP() << "no locale with a decimal comma is installed";
    }
    SCOPED_TRACE(chosen);
    EXPECT_EQ(KEELSTRING_GetFloatValueFromString("fs=0.5", "fs", -1.0f), 0.5f);
    EXPECT_EQ(KEELSTRING_GetFloatValueFromString("fs='0,5'", "fs", -1.0f),
              -1.0f);
    EXPECT_EQ(KEELSTRING_GetIntegerValueFromString("order=16.0", "order", -1),
              16);
    double v[2] = {0, 0};
    EXPECT_EQ(KEELSTRING_GetDoubleVectorValuesFromString("v=[1.5 -2.25]", "v",
                                                         v, 2),
              2);
    EXPECT_EQ(v[0], 1.5);
    EXPECT_EQ(v[1], -2.25);
    std::setlocale(LC_ALL, saved.c_str());
}

// ---- Long and hostile texts ------------------------------------------------

TEST(KeelString, LongTexts) {
    // Many entries: the last one is still found, and the first wins.
    std::string entries;
    for (int i = 0; i < 100000; ++i) {
        entries += "k" + std::to_string(i) + "=" + std::to_string(i) + ", ";
    }
    entries += "k5=wrong";
    EXPECT_EQ(KEELSTRING_GetIntegerValueFromString(entries.c_str(), "k99999",
                                                   -1),
              99999);
    EXPECT_EQ(KEELSTRING_GetIntegerValueFromString(entries.c_str(), "k5", -1),
              5);

    // A vector of half a million elements.
    std::string vector = "v=[";
    for (int i = 0; i < 500000; ++i) vector += (i % 2) ? "2 " : "1,";
    vector += "]";
    int count = 0;
    ASSERT_NE(KEELSTRING_GetVectorSizeFromString(vector.c_str(), "v", &count),
              0);
    ASSERT_EQ(count, 500000);
    std::vector<double> values(count);
    ASSERT_EQ(KEELSTRING_GetDoubleVectorValuesFromString(vector.c_str(), "v",
                                                         values.data(), count),
              count);
    double sum = 0;
    for (double x : values) sum += x;
    EXPECT_EQ(sum, 750000.0);

    // Numbers of a megabyte: beyond the stack copy, still read exactly.
    const std::string zeros(1 << 20, '0');
    EXPECT_EQ(KEELSTRING_GetFloatValueFromString(("g=1" + zeros).c_str(), "g",
                                                 -1.0f),
              std::numeric_limits<float>::infinity());
    EXPECT_EQ(KEELSTRING_GetFloatValueFromString(("g=0." + zeros + "1").c_str(),
                                                 "g", -1.0f),
              0.0f);
    EXPECT_EQ(KEELSTRING_GetFloatValueFromString(
                  ("g=" + zeros + "2.5" + zeros).c_str(), "g", -1.0f),
              2.5f);

    // Deep nesting, unclosed quotes and brackets of a megabyte.
    const size_t depth = 1 << 20;
    const std::string nested =
        "m=" + std::string(depth, '[') + std::string(depth, ']') + ", x=1";
    char dest[8];
    EXPECT_EQ(KEELSTRING_GetStringValueFromString(nested.c_str(), "m", "d", dest,
                                                  sizeof dest),
              1);
    EXPECT_STREQ(dest, "[[[[[[[");
    EXPECT_EQ(KEELSTRING_GetMatrixSizeFromString(nested.c_str(), "m", nullptr,
                                                 nullptr),
              0);
    EXPECT_EQ(KEELSTRING_GetIntegerValueFromString(nested.c_str(), "x", -1), 1);
    const std::string open = "m=" + std::string(depth, '[') + ", x=1";
    EXPECT_EQ(KEELSTRING_GetIntegerValueFromString(open.c_str(), "x", -1), -1);
    const std::string quote = "q='" + std::string(depth, 'a') + ", x=1";
    EXPECT_EQ(KEELSTRING_GetStringValueFromString(quote.c_str(), "q", "d", dest,
                                                  sizeof dest),
              0);
    EXPECT_STREQ(dest, "d");
}

// Random texts over the bytes the grammar cares about. Whatever the text,
// the getters must agree with one another and respect every bound.
TEST(KeelString, RandomTextsKeepTheGettersConsistent) {
    const char alphabet[] = "mM=[];,\n '\"x1.-e ,\t\r9;[]=\x01\xff";
    std::mt19937 rng(12345);
    std::uniform_int_distribution<size_t> pick(0, sizeof alphabet - 2);
    std::uniform_int_distribution<size_t> length(0, 40);
    for (int trial = 0; trial < 20000; ++trial) {
        std::string config;
        for (size_t n = length(rng); n > 0; --n) config += alphabet[pick(rng)];
        SCOPED_TRACE(config);
        const char *text = config.c_str();

        char dest[6];
        std::memset(dest, 'X', sizeof dest);
        const int found =
            KEELSTRING_GetStringValueFromString(text, "m", "dflt", dest, 5);
        ASSERT_EQ(dest[5], 'X');
        ASSERT_LT(std::strlen(dest), 5u);
        if (!found) {
            ASSERT_STREQ(dest, "dflt");
        }

        int count = -1, rows = -1, columns = -1;
        const bool vector =
            KEELSTRING_GetVectorSizeFromString(text, "m", &count) != 0;
        const bool matrix =
            KEELSTRING_GetMatrixSizeFromString(text, "m", &rows, &columns) != 0;
        ASSERT_TRUE(!vector || (matrix && rows <= 1 && count == columns));
        ASSERT_TRUE(matrix || (rows == 0 && columns == 0));
        if (matrix) {
            ASSERT_TRUE(found);
        }

        double values[64];
        std::fill(values, values + 64, -777.0);
        const int written = KEELSTRING_GetDoubleMatrixValuesFromString(
            text, "m", values, 4, 4);
        ASSERT_EQ(written, matrix ? std::min(16, rows * columns) : 0);
        for (int i = written; i < 64; ++i) ASSERT_EQ(values[i], -777.0);
        const int inVector =
            KEELSTRING_GetDoubleVectorValuesFromString(text, "m", values, 64);
        ASSERT_EQ(inVector, vector ? count : 0);
    }
}

}  // namespace
