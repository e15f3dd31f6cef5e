#include "common.h"

#include <atomic>
#include <cstdio>
#include <vector>

#include "keel.h"

namespace tolvpy {

namespace {
thread_local std::vector<std::string> t_errors;
std::atomic<bool> g_verbose{false};

void onMessage(int level, int, const char *message, void *)
{
    std::string text = message ? message : "";
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    if (level >= KEEL_LEVEL_ERROR)
        t_errors.push_back(text);
    if (g_verbose.load())
        std::fprintf(stderr, "libtolv: %s\n", text.c_str());
}

std::string withErrors(const std::string &what)
{
    const std::string errors = takeErrors();
    return errors.empty() ? what : what + ": " + errors;
}

void checkKind(const py::array &a, const char *name)
{
    const char kind = a.dtype().kind();
    if (kind != 'f' && kind != 'i' && kind != 'u')
        throw py::type_error(std::string(name) +
                             " must hold real numbers (float32 is used as "
                             "is, other real dtypes are converted)");
}

Floats asFloats(const py::handle &x, const char *name)
{
    py::array a = py::array::ensure(x);
    if (!a)
        throw py::type_error(std::string(name) + " must be an array");
    checkKind(a, name);
    using Converted =
        py::array_t<float, py::array::c_style | py::array::forcecast>;
    Floats f = Converted::ensure(a);
    if (!f)
        throw py::error_already_set();
    return f;
}
} // namespace

void installMessageCapture()
{
    KEELDEBUG_SetMessageHandler(onMessage, nullptr);
}

void setVerbose(bool on)
{
    g_verbose = on;
}

std::string takeErrors()
{
    std::string all;
    for (const std::string &e : t_errors)
        all += (all.empty() ? "" : "; ") + e;
    t_errors.clear();
    return all;
}

void raiseValue(const std::string &what)
{
    throw py::value_error(withErrors(what));
}

void raiseRuntime(const std::string &what)
{
    throw std::runtime_error(withErrors(what));
}

Block toBlock(const py::handle &x, const char *name)
{
    Block b;
    b.array = asFloats(x, name);
    if (b.array.ndim() != 1 && b.array.ndim() != 2)
        throw py::value_error(std::string(name) +
                              " must have shape (frames,) or (frames, "
                              "channels)");
    b.twoD = b.array.ndim() == 2;
    b.frames = b.array.shape(0);
    b.channels = b.twoD ? b.array.shape(1) : 1;
    if (b.channels < 1)
        throw py::value_error(std::string(name) + " has no channels");
    return b;
}

Block toBlock(const py::handle &x, const char *name, py::ssize_t channels)
{
    Block b = toBlock(x, name);
    if (b.channels != channels)
        throw py::value_error(
            std::string(name) + " has " + std::to_string(b.channels) +
            " channels; the object runs " + std::to_string(channels));
    return b;
}

Floats toFloats(const py::handle &x, const char *name)
{
    Floats f = asFloats(x, name);
    if (f.ndim() != 1)
        throw py::value_error(std::string(name) + " must be one-dimensional");
    return f;
}

Floats newBlock(py::ssize_t frames, py::ssize_t channels, bool twoD)
{
    if (twoD)
        return Floats({frames, channels});
    return Floats(frames);
}

Floats outBlock(const py::object &out, py::ssize_t frames, py::ssize_t channels,
                bool twoD)
{
    if (out.is_none())
        return newBlock(frames, channels, twoD);
    if (!py::isinstance<py::array>(out))
        throw py::type_error("out must be a float32 array");
    py::array a = py::reinterpret_borrow<py::array>(out);
    const bool shapeOk =
        twoD ? (a.ndim() == 2 && a.shape(0) == frames && a.shape(1) == channels)
             : (a.ndim() == 1 && a.shape(0) == frames);
    if (!a.dtype().is(py::dtype::of<float>()) || !shapeOk ||
        !(a.flags() & py::array::c_style) || !a.writeable())
        throw py::value_error("out must be a writable C-ordered float32 "
                              "array of the output's shape");
    return Floats::ensure(a);
}

std::unique_lock<std::mutex> Handle::use(const char *what)
{
    std::unique_lock<std::mutex> hold(lock_);
    if (closed_)
        throw py::value_error(std::string(what) + ": the object is closed");
    return hold;
}

} // namespace tolvpy
