/*
 * The base library's configuration getters on arbitrary texts and keys.
 *
 * Every destination is a block of exactly the size the call is told, so a
 * write or read one element too far is a crash. Beyond memory safety the
 * target holds the getters to what callers rely on: a found value does not
 * depend on the default, the size queries agree with what the value getters
 * write, the string copy never passes its size, case folding is symmetric,
 * and the settings store reads back what it was given.
 */
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstdint>

#include "fuzz_support.h"

namespace {

const double kSentinel = -7.25e300;

void CheckString(const char *config, const char *key, size_t destSize,
                 bool nullDefault)
{
    const char *fallback = nullDefault ? nullptr : "fallback-text";
    char *dest = static_cast<char *>(malloc(destSize > 0 ? destSize : 1));
    memset(dest, 'x', destSize > 0 ? destSize : 1);
    const int found = KEELSTRING_GetStringValueFromString(config, key, fallback,
                                                          dest, destSize);
    if (destSize > 0) {
        const size_t length = strnlen(dest, destSize);
        FUZZ_CHECK(length < destSize);
        if (!found) {
            const std::string expected =
                std::string(fallback ? fallback : "").substr(0, destSize - 1);
            FUZZ_CHECK(expected == dest);
        }
    } else {
        FUZZ_CHECK(dest[0] == 'x'); /* a size of 0 writes nothing */
    }
    /* Whether the key is found does not depend on the destination. */
    char probe[8];
    FUZZ_CHECK(KEELSTRING_GetStringValueFromString(config, key, fallback, probe,
                                                   sizeof probe) == found);
    free(dest);
}

void CheckScalars(const char *config, const char *key)
{
    const int i1 = KEELSTRING_GetIntegerValueFromString(config, key, 7);
    const int i2 = KEELSTRING_GetIntegerValueFromString(config, key, -9);
    FUZZ_CHECK(i1 == i2 || (i1 == 7 && i2 == -9));

    const bool b1 = KEELSTRING_GetBooleanValueFromString(config, key, true);
    const bool b2 = KEELSTRING_GetBooleanValueFromString(config, key, false);
    FUZZ_CHECK(b1 == b2 || (b1 && !b2));

    const float f1 = KEELSTRING_GetFloatValueFromString(config, key, 1.5f);
    const float f2 = KEELSTRING_GetFloatValueFromString(config, key, -2.5f);
    uint32_t bits1, bits2;
    memcpy(&bits1, &f1, 4);
    memcpy(&bits2, &f2, 4);
    FUZZ_CHECK(bits1 == bits2 || (f1 == 1.5f && f2 == -2.5f));
    /* A whole number below 2^24 that reads as an integer reads as the same
     * float (beyond that, rounding the text and rounding the integer may
     * part ways). */
    if (i1 == i2 && i1 > -(1 << 24) && i1 < (1 << 24))
        FUZZ_CHECK(f1 == (float)i1);
}

/* Fills a block of `room` doubles and tells how many were written; the
 * elements past them must keep the sentinel. */
template <typename Fill>
int FillChecked(int room, Fill fill)
{
    double *block =
        static_cast<double *>(malloc(((size_t)room + 1) * sizeof(double)));
    for (int i = 0; i <= room; i++)
        block[i] = kSentinel;
    const int written = fill(block);
    FUZZ_CHECK(written >= 0 && written <= room);
    for (int i = written; i <= room; i++)
        FUZZ_CHECK(block[i] == kSentinel);
    free(block);
    return written;
}

void CheckLists(const char *config, const char *key, int extra)
{
    int count = -1;
    const int isVector =
        KEELSTRING_GetVectorSizeFromString(config, key, &count);
    int rows = -1, columns = -1;
    const int isMatrix =
        KEELSTRING_GetMatrixSizeFromString(config, key, &rows, &columns);
    FUZZ_CHECK(isVector ? count >= 0 : count == 0);
    FUZZ_CHECK(isMatrix ? rows >= 0 && columns >= 0
                        : rows == 0 && columns == 0);
    FUZZ_CHECK(isMatrix ? (rows == 0) == (columns == 0) : true);
    if (isVector) {
        /* A vector is a matrix of at most one row. */
        FUZZ_CHECK(isMatrix && rows <= 1 && rows * columns == count);
    } else if (isMatrix) {
        FUZZ_CHECK(rows >= 2);
    }

    /* Asked for exactly the count, or for more: never more than the list. */
    const int wanted = (isVector ? count : 0) + extra;
    const int written = FillChecked(wanted, [&](double *dest) {
        return KEELSTRING_GetDoubleVectorValuesFromString(config, key, dest,
                                                          wanted);
    });
    FUZZ_CHECK(written == (isVector ? count : 0));

    if (isMatrix) {
        const int64_t cells = (int64_t)rows * columns;
        FUZZ_CHECK(cells < (1 << 24));
        const int stored = FillChecked((int)cells, [&](double *dest) {
            return KEELSTRING_GetDoubleMatrixValuesFromString(config, key, dest,
                                                              rows, columns);
        });
        FUZZ_CHECK(stored == cells);
    }
}

void CheckCase(const char *a, const char *b, uint64_t count)
{
    const int ab = KEELSTRING_CompareInsensitiveN(a, b, count);
    const int ba = KEELSTRING_CompareInsensitiveN(b, a, count);
    FUZZ_CHECK((ab > 0) == (ba < 0) && (ab == 0) == (ba == 0));

    const size_t length = strlen(a);
    char *lowered = static_cast<char *>(malloc(length + 1));
    memcpy(lowered, a, length + 1);
    FUZZ_CHECK(KEELSTRING_Strlwr(lowered, 0) == lowered);
    FUZZ_CHECK(strlen(lowered) == length);
    FUZZ_CHECK(KEELSTRING_CompareInsensitiveN(lowered, a, length + 8) == 0);
    for (size_t i = 0; i < length; i++)
        FUZZ_CHECK(!(lowered[i] >= 'A' && lowered[i] <= 'Z'));
    free(lowered);
}

/* The settings store: a value set under a key reads back, the query's own
 * default counts while nothing was set, and a refused text changes
 * nothing. */
void CheckSettings(const char *key, const char *value)
{
    KEELSETTINGS_Clear(); /* the library's own defaults included */
    const bool named = strspn(key, " \t\r\n\v\f") < strlen(key);
    const int64_t before = KEELSETTINGS_GetIntEx(nullptr, "%s=[%d]", key, 41);
    const int64_t other = KEELSETTINGS_GetIntEx(nullptr, "%s=[%d]", key, -3);
    if (named)
        FUZZ_CHECK(before == 41 && other == -3);
    (void)KEELSETTINGS_GetBoolEx(nullptr, "%s", value);
    const int set = KEELSETTINGS_SetValueEx(nullptr, "%s=%s", key, value);
    const int64_t a = KEELSETTINGS_GetIntEx(nullptr, "%s=[%d]", key, 41);
    const int64_t b = KEELSETTINGS_GetIntEx(nullptr, "%s=[%d]", key, -3);
    if (set) {
        FUZZ_CHECK(a == b || (a == 41 && b == -3));
        const bool t = KEELSETTINGS_GetBoolEx(nullptr, "%s=[1]", key);
        const bool f = KEELSETTINGS_GetBoolEx(nullptr, "%s=[0]", key);
        FUZZ_CHECK(t == f || (t && !f));
    } else {
        FUZZ_CHECK(a == before && b == other);
    }
    KEELSETTINGS_Clear();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider fuzz(data, size);
    const size_t destSize = fuzz.ConsumeIntegralInRange<size_t>(0, 300);
    const bool nullDefault = fuzz.ConsumeBool();
    const int extra = fuzz.ConsumeIntegralInRange<int>(0, 3);
    const uint64_t count = fuzz.ConsumeIntegral<uint64_t>();
    const ExactText key(fuzz.ConsumeRandomLengthString(48));
    const ExactText config(fuzz.ConsumeRemainingBytesAsString());

    CheckString(config.get(), key.get(), destSize, nullDefault);
    CheckScalars(config.get(), key.get());
    CheckLists(config.get(), key.get(), extra);
    CheckCase(config.get(), key.get(), count);
    /* Settings keys are plain words: a '%' or '=' would change the query. */
    if (!strpbrk(key.get(), "%=[]") && key.get()[0] != '\0')
        CheckSettings(key.get(), config.get());
    return 0;
}
