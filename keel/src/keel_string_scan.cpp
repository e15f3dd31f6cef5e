/*
 * keel_string_scan.cpp - scanner, value classifier and number parsers of the
 * configuration texts.
 *
 * Every walk here is a single forward pass with a counter for the bracket
 * depth (no recursion), so a text of any length and nesting costs time in
 * proportion to its length and a fixed amount of stack.
 */
#include "keel_string_scan.h"

#include <locale.h> /* newlocale, locale_t */
#include <stdlib.h> /* strtod_l, strtof_l */

#include <cstring>
#include <limits>
#include <string>

namespace keel {
namespace text {

namespace {

bool IsSeparator(char c)
{
    return c == ',' || c == ';' || c == '\n';
}

bool IsQuote(char c)
{
    return c == '\'' || c == '"';
}

/* Inside brackets a line feed is one more blank, so that a matrix may be
 * written one row per line. */
bool IsListBlank(char c)
{
    return IsBlank(c) || c == '\n';
}

/* Any byte that strtod would skip in front of a number. */
bool IsCSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' ||
           c == '\r';
}

Span Trim(Span s)
{
    while (s.begin < s.end && IsBlank(s.begin[0]))
        ++s.begin;
    while (s.end > s.begin && IsBlank(s.end[-1]))
        --s.end;
    return s;
}

/* From the first byte after '=', the end of the value: the first separator at
 * bracket depth 0, or the terminating zero. A quote that opens the value
 * protects everything up to its twin; an unclosed quote or bracket runs to
 * the end of the text. A stray ']' at depth 0 is an ordinary byte. */
const char *SkipValue(const char *p)
{
    while (IsBlank(*p))
        ++p;
    if (IsQuote(*p)) {
        const char quote = *p++;
        while (*p != '\0' && *p != quote)
            ++p;
        if (*p == '\0')
            return p;
        ++p;
    }
    size_t depth = 0;
    for (; *p != '\0'; ++p) {
        if (*p == '[') {
            ++depth;
        } else if (*p == ']') {
            if (depth > 0)
                --depth;
        } else if (depth == 0 && IsSeparator(*p)) {
            break;
        }
    }
    return p;
}

/* The "C" numeric locale, made once and shared read-only by all threads:
 * a decimal point is '.' whatever the host has set with setlocale. */
locale_t CLocale()
{
    static const locale_t locale =
        newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

double StrToNumber(const char *s, char **end, double *)
{
    return strtod_l(s, end, CLocale());
}
float StrToNumber(const char *s, char **end, float *)
{
    return strtof_l(s, end, CLocale());
}

/* strtod needs a zero-terminated text and the span is not one: copy it, on
 * the stack for ordinary numbers. Overflow gives an infinity and underflow a
 * zero or a subnormal, as strtod rounds them; errno is not consulted. */
template <typename T>
bool ParseNumber(Span text, T *out)
{
    if (text.empty() || IsCSpace(text.begin[0]) || CLocale() == nullptr) {
        return false;
    }
    char small[64];
    std::string large;
    const char *copy = small;
    if (text.size() < sizeof small) {
        std::memcpy(small, text.begin, text.size());
        small[text.size()] = '\0';
    } else {
        large.assign(text.begin, text.size());
        copy = large.c_str();
    }
    char *end = nullptr;
    const T value = StrToNumber(copy, &end, static_cast<T *>(nullptr));
    if (end != copy + text.size())
        return false;
    *out = value;
    return true;
}

} /* namespace */

bool IsBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

char FoldCase(char c)
{
    return (c >= 'A' && c <= 'Z') ? c - 'A' + 'a' : c;
}

bool EqualsInsensitive(Span span, const char *key)
{
    for (const char *p = span.begin; p < span.end; ++p, ++key) {
        if (*key == '\0' || FoldCase(*p) != FoldCase(*key))
            return false;
    }
    return *key == '\0';
}

bool FindValue(const char *config, const char *key, Span *value)
{
    if (config == nullptr || key == nullptr || *key == '\0')
        return false;
    for (const char *p = config; *p != '\0';) {
        const char *keyBegin = p;
        while (*p != '\0' && *p != '=' && !IsSeparator(*p))
            ++p;
        if (*p != '=') { /* an entry without '=' names nothing */
            if (*p != '\0')
                ++p;
            continue;
        }
        const Span entryKey = Trim(Span{keyBegin, p});
        const char *valueBegin = ++p;
        p = SkipValue(p);
        if (EqualsInsensitive(entryKey, key)) {
            *value = Trim(Span{valueBegin, p});
            return true;
        }
        if (*p != '\0')
            ++p;
    }
    return false;
}

Value Classify(Span value)
{
    if (value.empty())
        return Value{ValueKind::Bare, value};
    const char first = value.begin[0];
    if (IsQuote(first)) {
        const void *close =
            std::memchr(value.begin + 1, first, value.size() - 1);
        if (close != value.end - 1) {
            return Value{ValueKind::Malformed, value};
        }
        return Value{ValueKind::Quoted, Span{value.begin + 1, value.end - 1}};
    }
    if (first == '[') {
        size_t depth = 0;
        const char *p = value.begin;
        for (; p < value.end; ++p) {
            if (*p == '[') {
                ++depth;
            } else if (*p == ']' && --depth == 0) {
                break;
            }
        }
        if (p != value.end - 1)
            return Value{ValueKind::Malformed, value};
        return Value{ValueKind::Bracketed, Span{value.begin + 1, p}};
    }
    return Value{ValueKind::Bare, value};
}

bool ParseDouble(Span text, double *out)
{
    return ParseNumber(text, out);
}

bool ParseFloat(Span text, float *out)
{
    return ParseNumber(text, out);
}

bool ReadNumericList(Span body, Shape *shape, double *dest, int64_t capacity)
{
    const int64_t limit = std::numeric_limits<int32_t>::max();
    int64_t rows = 0, columns = -1, inRow = 0, stored = 0;
    bool afterComma = false;
    const char *p = body.begin;
    while (p < body.end && IsListBlank(*p))
        ++p;
    if (p == body.end) {
        *shape = Shape{0, 0};
        return true;
    }
    for (;;) {
        while (p < body.end && IsListBlank(*p))
            ++p;
        if (p == body.end || *p == ';') {
            if (inRow == 0 || afterComma)
                return false;
            if (columns < 0)
                columns = inRow;
            if (columns != inRow || ++rows > limit)
                return false;
            if (p == body.end)
                break;
            ++p;
            inRow = 0;
            continue;
        }
        if (*p == ',') {
            if (inRow == 0 || afterComma)
                return false;
            afterComma = true;
            ++p;
            continue;
        }
        const char *q = p;
        while (q < body.end && !IsListBlank(*q) && *q != ',' && *q != ';')
            ++q;
        double element;
        if (!ParseDouble(Span{p, q}, &element))
            return false;
        if (stored < capacity)
            dest[stored++] = element;
        if (++inRow > limit)
            return false;
        afterComma = false;
        p = q;
    }
    *shape = Shape{rows, columns};
    return true;
}

} /* namespace text */
} /* namespace keel */
