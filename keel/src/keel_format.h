/*
 * keel_format.h - printf formatting into a text of any length, shared by the
 * messages and the settings of the base library (private).
 */
#ifndef KEEL_FORMAT_H
#define KEEL_FORMAT_H

#include <cstdarg>
#include <string>

namespace keel {

/* Formats like vsnprintf, growing the result until the whole text fits, so
 * that nothing is ever cut. A format error gives an empty text. */
std::string vformat(const char *format, va_list args);

} // namespace keel

#endif
