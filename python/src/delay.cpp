/* Cross-correlation: tolv.Correlator and tolv.delay. Lags run from
 * -(M - 1) to M - 1 with M the longer input; a positive lag means the first
 * signal is late against the second. */
#include <algorithm>
#include <cmath>

#include "common.h"
#include "tolv.h"

namespace tolvpy {

namespace {
class Correlator : public Handle {
  public:
    Correlator(int lengthA, int lengthB) : a_(lengthA), b_(lengthB)
    {
        if (lengthA < 1 || lengthB < 1)
            throw py::value_error("lengths must be 1 or more");
        proc_ = TOLV_XcorrProcCreate(lengthA, lengthB);
        length_ = TOLV_XcorrVectorLength(proc_);
        if (proc_ == nullptr || length_ < 1)
            raiseRuntime("cannot create the correlator");
    }
    ~Correlator() { close(); }
    void close()
    {
        if (!closed()) {
            markClosed();
            TOLV_XcorrProcDestroy(proc_);
        }
    }
    Floats correlate(const py::handle &a, const py::handle &b, bool phat)
    {
        Floats x = toFloats(a, "a"), y = toFloats(b, "b");
        if (x.shape(0) != a_ || y.shape(0) != b_)
            throw py::value_error("a and b must have the lengths the "
                                  "correlator was made for");
        auto hold = use("Correlator");
        Floats out(length_);
        py::gil_scoped_release free;
        if (phat)
            TOLV_XcorrPhatProcess(proc_, x.data(), y.data(),
                                  out.mutable_data());
        else
            TOLV_XcorrProcExecute(proc_, x.data(), y.data(),
                                  out.mutable_data());
        return out;
    }
    py::array_t<int> lags() const
    {
        py::array_t<int> l(length_);
        const int zero = (length_ - 1) / 2;
        for (int i = 0; i < length_; i++)
            l.mutable_at(i) = i - zero;
        return l;
    }

  private:
    int a_, b_, length_ = 0;
    _TOLV_XCORRPROC *proc_ = nullptr;
};

/* The lag of the largest magnitude and the value there. */
py::tuple peak(const Floats &r)
{
    py::ssize_t best = 0;
    for (py::ssize_t i = 1; i < r.shape(0); i++)
        if (std::fabs(r.at(i)) > std::fabs(r.at(best)))
            best = i;
    return py::make_tuple(int(best - (r.shape(0) - 1) / 2), double(r.at(best)));
}

py::tuple delay(const py::handle &a, const py::handle &b,
                const std::string &method)
{
    Floats x = toFloats(a, "a"), y = toFloats(b, "b");
    if (x.shape(0) < 1 || y.shape(0) < 1)
        throw py::value_error("a and b must not be empty");
    if (method == "phat") {
        Correlator c(int(x.shape(0)), int(y.shape(0)));
        return peak(c.correlate(x, y, true));
    }
    if (method != "coef")
        throw py::value_error("method must be \"coef\" or \"phat\"");
    int lag = 0;
    double coefficient;
    {
        py::gil_scoped_release free;
        coefficient = TOLV_XcorrCoef(x.data(), int(x.shape(0)), y.data(),
                                     int(y.shape(0)), &lag);
    }
    return py::make_tuple(lag, coefficient);
}
} // namespace

void registerDelay(py::module_ &m)
{
    py::class_<Correlator>(m, "Correlator",
                           "Cross-correlation of signals of two fixed "
                           "lengths (one thread at a time).")
        .def(py::init<int, int>(), py::arg("len_a"), py::arg("len_b"))
        .def(
            "correlate",
            [](Correlator &c, py::handle a, py::handle b) {
                return c.correlate(a, b, false);
            },
            py::arg("a"), py::arg("b"),
            "Lag L holds sum a[n + L] b[n] / M, for the lags of `lags`.")
        .def(
            "phat",
            [](Correlator &c, py::handle a, py::handle b) {
                return c.correlate(a, b, true);
            },
            py::arg("a"), py::arg("b"),
            "The phase-transform weighted correlation, for delays.")
        .def_property_readonly("lags", &Correlator::lags)
        .def("close", &Correlator::close)
        .def("__enter__", [](Correlator &c) -> Correlator & { return c; })
        .def("__exit__", [](Correlator &c, py::args) { c.close(); });
    m.def("delay", &delay, py::arg("a"), py::arg("b"),
          py::arg("method") = "coef",
          "(lag, coefficient): the lag at which a best matches b (positive: "
          "a is late). 'coef' gives the normalised correlation coefficient "
          "at its peak (its magnitude: an inverted copy also reads near 1); "
          "'phat' the peak of the phase-transform correlation.");
}

} // namespace tolvpy
