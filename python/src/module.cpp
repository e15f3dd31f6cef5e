/* The tolv Python module: the library's families over numpy arrays. */
#include <string>

#include "common.h"
#include "tolv.h"

PYBIND11_MODULE(_tolv, m)
{
    m.doc() = "libtolv's signal processing over numpy float32 arrays.";
    tolvpy::installMessageCapture();
    m.def("set_verbose", &tolvpy::setVerbose, py::arg("on"),
          "Show the library's log and warning lines on stderr.");
    int major = 0, minor = 0, release = 0, build = 0;
    TOLVVERSION_Number(&major, &minor, &release, &build);
    m.attr("__version__") =
        std::to_string(major) + "." + std::to_string(minor) + "." +
        std::to_string(release) + "." + std::to_string(build);
    tolvpy::registerWindows(m);
    tolvpy::registerSpectral(m);
    tolvpy::registerDelay(m);
    tolvpy::registerFilters(m);
    tolvpy::registerResample(m);
    tolvpy::registerStretch(m);
    tolvpy::registerMisc(m);
}
