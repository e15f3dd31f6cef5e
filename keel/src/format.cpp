// format.cpp - printf formatting into a growing buffer.
#include "keel_format.h"

#include <cstdio>

namespace keel {

std::string vformat(const char *format, va_list args)
{
    if (format == nullptr)
        return std::string();
    // A first attempt into a small stack buffer serves most messages; the
    // length it reports sizes the second and final attempt.
    char small[256];
    va_list copy;
    va_copy(copy, args);
    int length = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (length < 0)
        return std::string();
    if (static_cast<size_t>(length) < sizeof small)
        return std::string(small, static_cast<size_t>(length));
    std::string text(static_cast<size_t>(length) + 1, '\0');
    va_copy(copy, args);
    std::vsnprintf(&text[0], text.size(), format, copy);
    va_end(copy);
    text.resize(static_cast<size_t>(length));
    return text;
}

} // namespace keel
