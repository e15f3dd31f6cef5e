/*
 * keel_string.cpp - text helpers and the configuration-text getters.
 *
 * Each getter finds the value of its key with the scanner, then hands the
 * value to the parser of the kind it asks for; whatever does not parse gives
 * the caller's default. The grammar is told in keel.h.
 */
#include "keel.h"
#include "keel_string_scan.h"

#include <algorithm>
#include <cmath>
#include <cstring>

using keel::text::Classify;
using keel::text::FindValue;
using keel::text::Shape;
using keel::text::Span;
using keel::text::Value;
using keel::text::ValueKind;

namespace {

/* The text of a bare or quoted value: what the number and boolean parsers
 * read. A bracketed or malformed value is no scalar. */
bool FindScalar(const char *config, const char *key, Span *text)
{
    Span value;
    if (!FindValue(config, key, &value))
        return false;
    const Value v = Classify(value);
    if (v.kind != ValueKind::Bare && v.kind != ValueKind::Quoted)
        return false;
    *text = v.text;
    return true;
}

/* The body and shape of a well-formed bracketed list of numbers. */
bool FindList(const char *config, const char *key, Span *body, Shape *shape)
{
    Span value;
    if (!FindValue(config, key, &value))
        return false;
    const Value v = Classify(value);
    if (v.kind != ValueKind::Bracketed)
        return false;
    *body = v.text;
    return keel::text::ReadNumericList(v.text, shape, nullptr, 0);
}

/* Stores the first capacity elements of the list of key, row after row, when
 * the list is well formed (and has at most one row if vectorOnly). Returns
 * the number of doubles written. */
int FillList(const char *config, const char *key, bool vectorOnly, double *dest,
             int64_t capacity)
{
    Span body;
    Shape shape;
    if (dest == nullptr || capacity <= 0 ||
        !FindList(config, key, &body, &shape) ||
        (vectorOnly && shape.rows > 1)) {
        return 0;
    }
    keel::text::ReadNumericList(body, &shape, dest, capacity);
    const int64_t written = std::min(capacity, shape.rows * shape.columns);
    return static_cast<int>(std::min<int64_t>(written, INT32_MAX));
}

Span TrimLines(Span s)
{
    auto blank = [](char c) { return keel::text::IsBlank(c) || c == '\n'; };
    while (s.begin < s.end && blank(s.begin[0]))
        ++s.begin;
    while (s.end > s.begin && blank(s.end[-1]))
        --s.end;
    return s;
}

/* Copies as much of text as fits and always ends with a zero byte. */
void CopyBounded(Span text, char *dest, size_t destSize)
{
    if (dest == nullptr || destSize == 0)
        return;
    const size_t n = std::min(text.size(), destSize - 1);
    std::memmove(dest, text.begin, n);
    dest[n] = '\0';
}

} /* namespace */

extern "C" {

KEEL_API int KEELSTRING_CompareInsensitiveN(const char *a, const char *b,
                                            uint64_t count)
{
    const unsigned char *x =
        reinterpret_cast<const unsigned char *>(a ? a : "");
    const unsigned char *y =
        reinterpret_cast<const unsigned char *>(b ? b : "");
    for (uint64_t i = 0; i < count; ++i) {
        const int cx = static_cast<unsigned char>(
            keel::text::FoldCase(static_cast<char>(x[i])));
        const int cy = static_cast<unsigned char>(
            keel::text::FoldCase(static_cast<char>(y[i])));
        if (cx != cy)
            return cx - cy;
        if (cx == 0)
            break;
    }
    return 0;
}

KEEL_API char *KEELSTRING_Strlwr(char *text, int /*flags*/)
{
    if (text == nullptr)
        return nullptr;
    for (char *p = text; *p != '\0'; ++p)
        *p = keel::text::FoldCase(*p);
    return text;
}

KEEL_API int KEELSTRING_GetStringValueFromString(const char *config,
                                                 const char *key,
                                                 const char *defaultValue,
                                                 char *dest, size_t destSize)
{
    Span value;
    if (FindValue(config, key, &value)) {
        const Value v = Classify(value);
        if (v.kind != ValueKind::Malformed) {
            CopyBounded(v.kind == ValueKind::Bracketed ? TrimLines(v.text)
                                                       : v.text,
                        dest, destSize);
            return 1;
        }
    }
    const char *fallback = defaultValue ? defaultValue : "";
    CopyBounded(Span{fallback, fallback + std::strlen(fallback)}, dest,
                destSize);
    return 0;
}

KEEL_API int KEELSTRING_GetIntegerValueFromString(const char *config,
                                                  const char *key,
                                                  int defaultValue)
{
    Span text;
    double number;
    if (!FindScalar(config, key, &text) ||
        !keel::text::ParseDouble(text, &number) ||
        !(number >= -2147483648.0 && number <= 2147483647.0) ||
        std::trunc(number) != number) {
        return defaultValue;
    }
    return static_cast<int>(number);
}

KEEL_API bool KEELSTRING_GetBooleanValueFromString(const char *config,
                                                   const char *key,
                                                   bool defaultValue)
{
    static const struct {
        const char *word;
        bool value;
    } kWords[] = {{"true", true}, {"false", false}, {"yes", true},
                  {"no", false},  {"on", true},     {"off", false},
                  {"1", true},    {"0", false}};
    Span text;
    if (!FindScalar(config, key, &text))
        return defaultValue;
    for (const auto &w : kWords) {
        if (keel::text::EqualsInsensitive(text, w.word))
            return w.value;
    }
    return defaultValue;
}

KEEL_API float KEELSTRING_GetFloatValueFromString(const char *config,
                                                  const char *key,
                                                  float defaultValue)
{
    Span text;
    float number;
    if (!FindScalar(config, key, &text) ||
        !keel::text::ParseFloat(text, &number)) {
        return defaultValue;
    }
    return number;
}

KEEL_API int KEELSTRING_GetVectorSizeFromString(const char *config,
                                                const char *key, int *count)
{
    Span body;
    Shape shape;
    const bool vector = FindList(config, key, &body, &shape) && shape.rows <= 1;
    if (count != nullptr)
        *count = vector ? static_cast<int>(shape.columns) : 0;
    return vector ? 1 : 0;
}

KEEL_API int KEELSTRING_GetDoubleVectorValuesFromString(const char *config,
                                                        const char *key,
                                                        double *dest, int count)
{
    return FillList(config, key, true, dest, count);
}

KEEL_API int KEELSTRING_GetMatrixSizeFromString(const char *config,
                                                const char *key, int *rows,
                                                int *columns)
{
    Span body;
    Shape shape;
    const bool matrix = FindList(config, key, &body, &shape);
    if (rows != nullptr)
        *rows = matrix ? static_cast<int>(shape.rows) : 0;
    if (columns != nullptr) {
        *columns = matrix ? static_cast<int>(shape.columns) : 0;
    }
    return matrix ? 1 : 0;
}

KEEL_API int KEELSTRING_GetDoubleMatrixValuesFromString(const char *config,
                                                        const char *key,
                                                        double *dest, int rows,
                                                        int columns)
{
    if (rows <= 0 || columns <= 0)
        return 0;
    return FillList(config, key, false, dest,
                    static_cast<int64_t>(rows) * columns);
}

} /* extern "C" */
