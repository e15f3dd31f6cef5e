// env.cpp - environment access.
//
// The value is read afresh at every call, because clients poll for a
// variable that the host sets after the library has started. It is copied
// to storage of the calling thread, so the text stays valid until that
// thread's next call whatever the environment does meanwhile.
//
// The storage must outlive static and thread-local destructors: a client
// library reads the environment from its own unload-time destructor, which
// runs after those. So the per-thread buffer is plain memory owned through a
// pthread key: released when a thread ends, and kept for the main thread
// until the process is gone.
#include "keel.h"

#include <pthread.h>
#include <cstdlib>
#include <cstring>

namespace {

struct Buffer {
    char *text;
    size_t capacity;
};

pthread_key_t g_key;
pthread_once_t g_once = PTHREAD_ONCE_INIT;

void ReleaseBuffer(void *p)
{
    Buffer *b = static_cast<Buffer *>(p);
    std::free(b->text);
    std::free(b);
}

void MakeKey()
{
    pthread_key_create(&g_key, ReleaseBuffer);
}

Buffer *ThreadBuffer()
{
    pthread_once(&g_once, MakeKey);
    Buffer *b = static_cast<Buffer *>(pthread_getspecific(g_key));
    if (b == nullptr) {
        b = static_cast<Buffer *>(std::calloc(1, sizeof(Buffer)));
        if (b == nullptr)
            return nullptr;
        pthread_setspecific(g_key, b);
    }
    return b;
}

} // namespace

extern "C" {

KEEL_API const char *KEELENV_GetEnvValue(const char *name)
{
    if (name == nullptr || *name == '\0')
        return nullptr;
    const char *value = std::getenv(name);
    if (value == nullptr || *value == '\0')
        return nullptr;
    Buffer *b = ThreadBuffer();
    if (b == nullptr)
        return nullptr;
    const size_t length = std::strlen(value);
    if (length + 1 > b->capacity) {
        char *grown = static_cast<char *>(std::realloc(b->text, length + 1));
        if (grown == nullptr)
            return nullptr;
        b->text = grown;
        b->capacity = length + 1;
    }
    std::memcpy(b->text, value, length + 1);
    return b->text;
}

} // extern "C"
