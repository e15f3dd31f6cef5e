/*
 * Shared by every family of the Python module: numpy arrays in and out,
 * the library's messages turned into exceptions, and the lock that keeps
 * one object on one thread at a time while the GIL is released.
 */
#ifndef TOLV_PYTHON_COMMON_H
#define TOLV_PYTHON_COMMON_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <mutex>
#include <string>

namespace py = pybind11;

namespace tolvpy {

using Floats = py::array_t<float, py::array::c_style>;

/* Routes the library's messages: errors are kept per thread for the next
 * exception, logs and warnings are dropped unless tolv.set_verbose(True). */
void installMessageCapture();
void setVerbose(bool on);
/* The errors reported on this thread since the last call, joined. */
std::string takeErrors();
/* Throws ValueError (a bad argument) or RuntimeError with `what` and the
 * library's own messages. */
[[noreturn]] void raiseValue(const std::string &what);
[[noreturn]] void raiseRuntime(const std::string &what);

/* A block of audio: frames x channels float32, C order. 1-D arrays are one
 * channel. Real numeric dtypes are converted as numpy's astype(float32)
 * does; non-contiguous arrays are copied; booleans, complex and objects
 * are refused. */
struct Block {
    Floats array;
    py::ssize_t frames = 0, channels = 1;
    bool twoD = false;
    const float *data() const { return array.data(); }
};
Block toBlock(const py::handle &x, const char *name);
/* The same, checked against a channel count. */
Block toBlock(const py::handle &x, const char *name, py::ssize_t channels);
/* A float32 vector of any length (windows, spectra, tables). */
Floats toFloats(const py::handle &x, const char *name);
/* A new block shaped like an input: (frames,) or (frames, channels). */
Floats newBlock(py::ssize_t frames, py::ssize_t channels, bool twoD);
/* The caller's `out` when given (checked: float32, C order, the shape),
 * else a new block. */
Floats outBlock(const py::object &out, py::ssize_t frames, py::ssize_t channels,
                bool twoD);

/* Base of the module's objects: a lock held across each call, and close(). */
class Handle {
  public:
    std::unique_lock<std::mutex> use(const char *what);
    bool closed() const { return closed_; }
    void markClosed() { closed_ = true; }

  private:
    std::mutex lock_;
    bool closed_ = false;
};

void registerWindows(py::module_ &m);
void registerSpectral(py::module_ &m);
void registerDelay(py::module_ &m);
void registerFilters(py::module_ &m);
void registerResample(py::module_ &m);
void registerStretch(py::module_ &m);
void registerMisc(py::module_ &m);

} // namespace tolvpy

#endif
