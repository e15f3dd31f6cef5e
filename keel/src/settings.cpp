// settings.cpp - process-wide named settings.
//
// A text "key=value" or "key=[value]" (blanks ignored, brackets optional)
// names a setting. A value set with SetValueEx wins over a default from
// SetDefaultEx, which wins over the default the query carries; a source
// whose text does not read as the kind asked for gives way to the next.
// Clients call in here from load-time constructors and while holding their
// own locks, so the store is built at first use, is never destroyed, and
// calls nothing else of the library.
#include "keel.h"
#include "keel_format.h"

#include <pthread.h>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <clocale>
#include <cstdlib>
#include <locale.h>
#include <map>
#include <string>

namespace {

struct Setting {
    bool hasValue = false;
    bool hasDefault = false;
    std::string value;
    std::string defaultValue;
};

pthread_mutex_t settingsLock = PTHREAD_MUTEX_INITIALIZER;

// Deliberately leaked: unload-time destructors of clients still read
// settings after this library's static objects would have been destroyed.
std::map<std::string, Setting> &store()
{
    static auto *settings = new std::map<std::string, Setting>();
    return *settings;
}

std::string trim(const std::string &text)
{
    size_t begin = 0, end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin])))
        ++begin;
    while (end > begin &&
           std::isspace(static_cast<unsigned char>(text[end - 1])))
        --end;
    return text.substr(begin, end - begin);
}

std::string lower(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Splits "key = [ value ]" into a lower-case key and the bare value. A
// query may be a bare key (no default of its own); an entry to store may
// not. False when there is no key.
bool splitEntry(const std::string &text, bool needValue, std::string &key,
                std::string &value)
{
    const size_t equal = text.find('=');
    if (equal == std::string::npos && needValue)
        return false;
    key = lower(trim(text.substr(0, equal)));
    if (key.empty())
        return false;
    value = equal == std::string::npos ? std::string()
                                       : trim(text.substr(equal + 1));
    if (value.size() >= 2 && value.front() == '[' && value.back() == ']')
        value = trim(value.substr(1, value.size() - 2));
    return true;
}

// strtod in the C locale: a host that switches its numeric locale must
// not turn "0.5" into something unreadable.
double readReal(const char *text, char **end)
{
    static const locale_t cLocale = newlocale(LC_NUMERIC_MASK, "C", nullptr);
    return cLocale != nullptr ? strtod_l(text, end, cLocale)
                              : std::strtod(text, end);
}

bool parseInt(const std::string &text, int64_t &result)
{
    if (text.empty())
        return false;
    const char *begin = text.c_str();
    char *end = nullptr;
    errno = 0;
    long long whole = std::strtoll(begin, &end, 10);
    if (*end == '\0' && errno == 0) {
        result = whole;
        return true;
    }
    // A decimal figure counts by its whole part, when that fits.
    errno = 0;
    double real = readReal(begin, &end);
    if (*end != '\0' || errno != 0 || !std::isfinite(real) ||
        real >= 9223372036854775808.0 || real < -9223372036854775808.0)
        return false;
    result = static_cast<int64_t>(real);
    return true;
}

bool parseBool(const std::string &text, bool &result)
{
    const std::string word = lower(text);
    if (word == "true" || word == "yes" || word == "on") {
        result = true;
        return true;
    }
    if (word == "false" || word == "no" || word == "off") {
        result = false;
        return true;
    }
    if (word.empty())
        return false;
    char *end = nullptr;
    double number = readReal(word.c_str(), &end);
    if (*end != '\0' || std::isnan(number))
        return false;
    result = number != 0.0;
    return true;
}

// Stores the formatted entry as a value or as a default; 1 or 0.
int remember(bool asValue, const char *format, va_list args)
{
    std::string key, value;
    if (!splitEntry(keel::vformat(format, args), true, key, value))
        return 0;
    pthread_mutex_lock(&settingsLock);
    Setting &setting = store()[key];
    if (asValue) {
        setting.hasValue = true;
        setting.value = value;
    } else {
        setting.hasDefault = true;
        setting.defaultValue = value;
    }
    pthread_mutex_unlock(&settingsLock);
    return 1;
}

// Reads the query with the first source that parses: value, default, the
// query's own default. False when none does.
template <typename T>
bool lookup(const char *format, va_list args,
            bool (*parse)(const std::string &, T &), T &result)
{
    std::string key, queryDefault;
    if (!splitEntry(keel::vformat(format, args), false, key, queryDefault))
        return false;
    Setting setting;
    pthread_mutex_lock(&settingsLock);
    auto found = store().find(key);
    if (found != store().end())
        setting = found->second;
    pthread_mutex_unlock(&settingsLock);
    if (setting.hasValue && parse(setting.value, result))
        return true;
    if (setting.hasDefault && parse(setting.defaultValue, result))
        return true;
    return parse(queryDefault, result);
}

} // namespace

extern "C" {

KEEL_API int KEELSETTINGS_SetDefaultEx(void *, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    int result = remember(false, format, args);
    va_end(args);
    return result;
}

KEEL_API int KEELSETTINGS_SetValueEx(void *, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    int result = remember(true, format, args);
    va_end(args);
    return result;
}

KEEL_API bool KEELSETTINGS_GetBoolEx(void *, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    bool result = false;
    if (!lookup<bool>(format, args, parseBool, result))
        result = false;
    va_end(args);
    return result;
}

KEEL_API int64_t KEELSETTINGS_GetIntEx(void *, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    int64_t result = 0;
    if (!lookup<int64_t>(format, args, parseInt, result))
        result = 0;
    va_end(args);
    return result;
}

KEEL_API void KEELSETTINGS_Clear(void)
{
    pthread_mutex_lock(&settingsLock);
    store().clear();
    pthread_mutex_unlock(&settingsLock);
}

} // extern "C"
