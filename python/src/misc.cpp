/* The smaller families: spline, FMCLT, noise suppressor, frame measures
 * and the auditory scales. */
#include <complex>
#include <cstring>
#include <vector>

#include "common.h"
#include "tolv.h"

namespace tolvpy {

namespace {
class Spline {
  public:
    Spline(const py::handle &x, const py::handle &y, double firstSlope,
           double lastSlope)
        : x_(toFloats(x, "x")), y_(toFloats(y, "y")), d2_(size_t(x_.shape(0)))
    {
        if (x_.shape(0) != y_.shape(0) || x_.shape(0) < 2)
            throw py::value_error("x and y must hold the same number (2 or "
                                  "more) of points");
        for (py::ssize_t i = 1; i < x_.shape(0); i++)
            if (!(x_.at(i) > x_.at(i - 1)))
                throw py::value_error("x must increase strictly");
        TOLVSPLINE_Estimate(x_.data(), y_.data(), int(x_.shape(0)), d2_.data(),
                            float(firstSlope), float(lastSlope));
    }
    Floats call(const py::handle &at) const
    {
        using Converted =
            py::array_t<float, py::array::c_style | py::array::forcecast>;
        Floats p = Converted::ensure(at);
        if (!p)
            throw py::error_already_set();
        Floats out(std::vector<py::ssize_t>(p.shape(), p.shape() + p.ndim()));
        for (py::ssize_t i = 0; i < p.size(); i++)
            out.mutable_data()[i] =
                TOLVSPLINE_Interpolate(x_.data(), y_.data(), d2_.data(),
                                       int(x_.shape(0)), p.data()[i]);
        return out;
    }
    Floats secondDerivatives() const
    {
        Floats d(py::ssize_t(d2_.size()));
        std::copy(d2_.begin(), d2_.end(), d.mutable_data());
        return d;
    }

  private:
    Floats x_, y_;
    std::vector<float> d2_;
};

class FMCLT : public Handle {
  public:
    explicit FMCLT(int m)
        : m_(m), window_(size_t(m) + 1), previous_(size_t(m), 0.0f),
          overlap_(size_t(m), 0.0f)
    {
        if (m < 1)
            throw py::value_error("m must be 1 or more");
        proc_ = TOLV_FMCLTProcCreate(m);
        if (proc_ == nullptr)
            raiseRuntime("cannot create the FMCLT");
        TOLV_FMCLTFreqWindow(reinterpret_cast<TOLV_COMPLEX *>(window_.data()),
                             m);
    }
    ~FMCLT() { close(); }
    void close()
    {
        if (!closed()) {
            markClosed();
            TOLV_FMCLTProcDestroy(proc_);
        }
    }
    /* M complex coefficients of the previous block and this one. */
    py::array_t<std::complex<float>> forward(const py::handle &block)
    {
        Floats b = checked(block);
        auto hold = use("FMCLT");
        std::vector<float> re(static_cast<size_t>(m_)),
            im(static_cast<size_t>(m_));
        {
            py::gil_scoped_release free;
            TOLV_FMCLTDirect(proc_, re.data(), im.data(), b.data(),
                             previous_.data(), window());
        }
        py::array_t<std::complex<float>> c(m_);
        for (int k = 0; k < m_; k++)
            c.mutable_at(k) = {re[size_t(k)], im[size_t(k)]};
        return c;
    }
    /* M samples, one block behind the coefficients, overlap-added. */
    Floats inverse(const py::handle &coefficients)
    {
        auto c = py::array_t<std::complex<float>,
                             py::array::c_style |
                                 py::array::forcecast>::ensure(coefficients);
        if (!c || c.ndim() != 1 || c.shape(0) != m_)
            throw py::value_error("coefficients must be m complex values");
        auto hold = use("FMCLT");
        std::vector<float> re(static_cast<size_t>(m_)),
            im(static_cast<size_t>(m_));
        for (int k = 0; k < m_; k++) {
            re[size_t(k)] = c.at(k).real();
            im[size_t(k)] = c.at(k).imag();
        }
        Floats out(m_);
        py::gil_scoped_release free;
        TOLV_FMCLTInverse(proc_, re.data(), im.data(), out.mutable_data(),
                          overlap_.data(), window());
        return out;
    }
    void reset()
    {
        auto hold = use("FMCLT");
        std::fill(previous_.begin(), previous_.end(), 0.0f);
        std::fill(overlap_.begin(), overlap_.end(), 0.0f);
    }
    int m() const { return m_; }

  private:
    Floats checked(const py::handle &block) const
    {
        Floats b = toFloats(block, "block");
        if (b.shape(0) != m_)
            throw py::value_error("blocks must hold m samples");
        return b;
    }
    const TOLV_COMPLEX *window() const
    {
        return reinterpret_cast<const TOLV_COMPLEX *>(window_.data());
    }
    int m_;
    _TOLV_FMCLTPROC *proc_ = nullptr;
    std::vector<std::complex<float>> window_;
    std::vector<float> previous_, overlap_;
};

class NoiseSuppressor : public Handle {
  public:
    NoiseSuppressor(int rate, int intensity)
    {
        takeErrors();
        ns_ = TOLV_CreateNoiseSupEx(rate, intensity);
        if (ns_ == nullptr)
            raiseValue("cannot create a noise suppressor at " +
                       std::to_string(rate) + " Hz, intensity " +
                       std::to_string(intensity));
        frame_ = TOLV_NoiseSupBufferSize(ns_);
    }
    ~NoiseSuppressor() { close(); }
    void close()
    {
        if (!closed()) {
            markClosed();
            TOLV_DestroyNoiseSup(ns_);
        }
    }
    /* Whole frames of rate / 100 samples. */
    Floats process(const py::handle &x)
    {
        Floats in = toFloats(x, "x");
        if (in.shape(0) % frame_ != 0)
            throw py::value_error("x must hold whole frames of " +
                                  std::to_string(frame_) + " samples");
        auto hold = use("NoiseSuppressor");
        Floats out(in.shape(0));
        py::gil_scoped_release free;
        for (py::ssize_t at = 0; at < in.shape(0); at += frame_)
            TOLV_DoNoiseSup(ns_, in.data() + at, out.mutable_data() + at);
        return out;
    }
    void setIntensity(int intensity)
    {
        auto hold = use("NoiseSuppressor");
        if (!TOLV_SetNoiseSupIntensity(ns_, intensity))
            throw py::value_error("intensity must be from 0 to 3");
    }
    int frame() const { return frame_; }

  private:
    _TOLV_NOISESUP *ns_ = nullptr;
    int frame_ = 0;
};

float energy(const py::handle &x)
{
    Floats f = toFloats(x, "x");
    return TOLV_CalcEnergy(f.data(), int(f.shape(0)));
}

float zeroCrossRate(const py::handle &x)
{
    Floats f = toFloats(x, "x");
    if (f.shape(0) < 1)
        throw py::value_error("x must not be empty");
    return TOLV_CalcZeroCrossRate(f.data(), int(f.shape(0)));
}

Floats removeDc(const py::handle &x)
{
    Floats f = toFloats(x, "x");
    Floats out(f.shape(0));
    TOLV_RemoveDC(f.data(), out.mutable_data(), int(f.shape(0)));
    return out;
}

float interpolate(const py::handle &x, const py::handle &y, double at)
{
    Floats a = toFloats(x, "x"), b = toFloats(y, "y");
    if (a.shape(0) != b.shape(0) || a.shape(0) < 2)
        throw py::value_error("x and y must hold the same number (2 or "
                              "more) of points");
    return TOLVINTERPOLATE_Linear(a.data(), b.data(), int(a.shape(0)),
                                  float(at));
}
} // namespace

void registerMisc(py::module_ &m)
{
    py::class_<Spline>(m, "Spline", "An interpolating cubic spline.")
        .def(py::init<const py::handle &, const py::handle &, double, double>(),
             py::arg("x"), py::arg("y"), py::kw_only(),
             py::arg("first_slope") = 1e30, py::arg("last_slope") = 1e30,
             "Slopes above 9.9e29 ask for a natural end.")
        .def("__call__", &Spline::call, py::arg("at"))
        .def_property_readonly("second_derivatives",
                               &Spline::secondDerivatives);
    py::class_<FMCLT>(m, "FMCLT",
                      "Modulated complex lapped transform of m subbands, "
                      "streaming (one thread at a time).")
        .def(py::init<int>(), py::arg("m"))
        .def("forward", &FMCLT::forward, py::arg("block"))
        .def("inverse", &FMCLT::inverse, py::arg("coefficients"))
        .def("reset", &FMCLT::reset)
        .def_property_readonly("m", &FMCLT::m)
        .def("close", &FMCLT::close)
        .def("__enter__", [](FMCLT &f) -> FMCLT & { return f; })
        .def("__exit__", [](FMCLT &f, py::args) { f.close(); });
    py::class_<NoiseSuppressor>(m, "NoiseSuppressor",
                                "Mono 10 ms frames at 8000, 16000 or 32000 "
                                "Hz (one thread at a time).")
        .def(py::init<int, int>(), py::arg("rate"), py::arg("intensity") = 1)
        .def("process", &NoiseSuppressor::process, py::arg("x"))
        .def("set_intensity", &NoiseSuppressor::setIntensity,
             py::arg("intensity"))
        .def_property_readonly("frame", &NoiseSuppressor::frame)
        .def("close", &NoiseSuppressor::close)
        .def("__enter__",
             [](NoiseSuppressor &n) -> NoiseSuppressor & { return n; })
        .def("__exit__", [](NoiseSuppressor &n, py::args) { n.close(); });
    m.def("energy", &energy, py::arg("x"),
          "Level without DC, 10 log10(variance / 0.32768).");
    m.def("zero_cross_rate", &zeroCrossRate, py::arg("x"));
    m.def("remove_dc", &removeDc, py::arg("x"));
    m.def("interp_linear", &interpolate, py::arg("x"), py::arg("y"),
          py::arg("at"));
    m.def("hz_to_mel", &TOLVUTIL_Freq2Mels, py::arg("hz"));
    m.def("mel_to_hz", &TOLVUTIL_Mels2Freq, py::arg("mels"));
    m.def("hz_to_bark", &TOLVUTIL_Freq2Bark, py::arg("hz"));
    m.def("bark_to_hz", &TOLVUTIL_Bark2Freq, py::arg("bark"));
}

} // namespace tolvpy
