// env.cpp - environment access.
//
// The value is read afresh at every call, because clients poll for a
// variable that the host sets after the library has started. It is copied
// to storage of the calling thread, so the text stays valid until that
// thread's next call whatever the environment does meanwhile.
#include "keel.h"

#include <cstdlib>
#include <string>

extern "C" {

KEEL_API const char *KEELENV_GetEnvValue(const char *name) {
  if (name == nullptr || *name == '\0')
    return nullptr;
  static thread_local std::string copy;
  const char *value = std::getenv(name);
  if (value == nullptr || *value == '\0')
    return nullptr;
  copy.assign(value);
  return copy.c_str();
}

} // extern "C"
