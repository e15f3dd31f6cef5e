/* tolv.get_window and the window norm factors. */
#include <strings.h>

#include "common.h"
#include "tolv.h"

namespace tolvpy {

namespace {
/* The type id of a name; the library answers 0 both for "Rectangular" and
 * for an unknown name, so the name is checked against type 0's own. */
int windowType(const std::string &name)
{
    const int type = TOLV_GetWindowType(name.c_str());
    if (type == 0 && strcasecmp(name.c_str(), TOLV_GetWindowName(0)) != 0)
        throw py::value_error("unknown window \"" + name + "\"");
    return type;
}

py::list windowNames()
{
    py::list names;
    for (int t = 0; TOLV_GetWindowName(t) != nullptr; t++)
        names.append(TOLV_GetWindowName(t));
    return names;
}

Floats getWindow(const std::string &name, int n)
{
    if (n < 0)
        throw py::value_error("n must be 0 or more");
    const int type = windowType(name);
    Floats w(n);
    TOLV_CreateWindow(type, w.mutable_data(), n);
    return w;
}

double normFactor(const py::handle &window)
{
    Floats w = toFloats(window, "window");
    return TOLV_GetWindowNormFactor(w.data(), int(w.shape(0)));
}

double twoNormFactor(const py::handle &first, const py::handle &second)
{
    Floats a = toFloats(first, "window1"), b = toFloats(second, "window2");
    if (a.shape(0) != b.shape(0))
        throw py::value_error("the windows differ in length");
    return TOLV_GetTwoWindowNormFactor(a.data(), b.data(), int(a.shape(0)));
}
} // namespace

void registerWindows(py::module_ &m)
{
    m.def("window_names", &windowNames,
          "The window names get_window takes, in type order.");
    m.def("get_window", &getWindow, py::arg("name"), py::arg("n"),
          "A float32 window of n samples by name (any case, in full):\n"
          "'Hamming', 'Hann', 'Blackman', 'Blackman-Harris', ...");
    m.def("window_norm", &normFactor, py::arg("window"),
          "The mean of a window (sum widened to double, in index order).");
    m.def("window_norm2", &twoNormFactor, py::arg("window1"),
          py::arg("window2"),
          "The mean of the product of two windows of one length.");
}

} // namespace tolvpy
