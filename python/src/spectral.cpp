/* FFT and IFFT objects, power spectra, the dB scaling and the complex
 * product. The library wants 16-byte aligned buffers: each object works in
 * vectors of its own processor and copies numpy data in and out. */
#include <algorithm>
#include <complex>
#include <cstring>

#include "common.h"
#include "tolv.h"

namespace tolvpy {

namespace {
using Complex =
    py::array_t<std::complex<float>, py::array::c_style | py::array::forcecast>;

class Transform : public Handle {
  public:
    Transform(int n, bool inverse) : n_(n)
    {
        if (n < 1)
            throw py::value_error("n must be 1 or more");
        proc_ = inverse ? TOLV_IFFTProcCreate(n) : TOLV_FFTProcCreate(n);
        if (proc_ == nullptr)
            raiseRuntime("cannot create the transform");
        a_ = TOLV_CreateComplexVector(proc_);
        b_ = TOLV_CreateComplexVector(proc_);
    }
    ~Transform() { close(); }
    void close()
    {
        if (closed())
            return;
        markClosed();
        TOLV_DestroyComplexVector(a_);
        TOLV_DestroyComplexVector(b_);
        TOLV_FFTProcDestroy(proc_);
    }
    int n() const { return n_; }
    int bins() const { return n_ / 2 + 1; }

    Complex forward(const py::handle &x)
    {
        Floats in = toFloats(x, "x");
        checkLength(in.shape(0), n_, "x");
        auto hold = use("FFT");
        Complex out(bins());
        {
            py::gil_scoped_release free;
            std::memcpy(a_, in.data(), sizeof(float) * size_t(n_));
            TOLV_FFTProcExecute(proc_, reinterpret_cast<float *>(a_), b_);
            std::memcpy(static_cast<void *>(out.mutable_data()), b_,
                        sizeof(float) * 2 * bins());
        }
        return out;
    }
    Floats inverse(const py::handle &spectrum, bool normalize)
    {
        Complex in = Complex::ensure(spectrum);
        if (!in || in.ndim() != 1)
            throw py::value_error("the spectrum must be a 1-D complex array");
        checkLength(in.shape(0), bins(), "the spectrum");
        auto hold = use("IFFT");
        Floats out(n_);
        {
            py::gil_scoped_release free;
            std::memcpy(a_, in.data(), sizeof(float) * 2 * bins());
            TOLV_IFFTProcExecuteEx(proc_, a_, reinterpret_cast<float *>(b_),
                                   normalize);
            std::memcpy(out.mutable_data(), b_, sizeof(float) * size_t(n_));
        }
        return out;
    }
    Floats psd(const py::handle &x)
    {
        Floats in = toFloats(x, "x");
        checkLength(in.shape(0), n_, "x");
        if (n_ < 8)
            throw py::value_error("power spectra need n of 8 or more");
        auto hold = use("FFT");
        Floats out(bins());
        {
            py::gil_scoped_release free;
            std::memcpy(a_, in.data(), sizeof(float) * size_t(n_));
            float *power = reinterpret_cast<float *>(b_);
            TOLV_FFTProcExecutePSDEx(proc_, reinterpret_cast<float *>(a_),
                                     power, nullptr);
            std::memcpy(out.mutable_data(), power, sizeof(float) * bins());
        }
        return out;
    }

  private:
    static void checkLength(py::ssize_t got, int want, const char *what)
    {
        if (got != want)
            throw py::value_error(std::string(what) + " has " +
                                  std::to_string(got) + " samples; the " +
                                  "transform takes " + std::to_string(want));
    }
    int n_;
    _TOLV_FFTPROC *proc_ = nullptr;
    TOLV_COMPLEX *a_ = nullptr, *b_ = nullptr;
};

struct Forward : Transform {
    explicit Forward(int n) : Transform(n, false) {}
};
struct Inverse : Transform {
    explicit Inverse(int n) : Transform(n, true) {}
};

Floats psd(const py::handle &x)
{
    Floats in = toFloats(x, "x");
    Transform t(int(in.shape(0)), false);
    return t.psd(in);
}

/* An aligned copy with the span the four-wide scaling reads. */
struct Aligned {
    float *p;
    explicit Aligned(size_t count)
        : p(static_cast<float *>(aligned_alloc(16, (count + 3) / 4 * 16)))
    {
        std::memset(p, 0, (count + 3) / 4 * 16);
    }
    ~Aligned() { free(p); }
};

Floats psdToDb(const py::handle &power, int n, double reference, double range,
               const py::object &curve)
{
    if (n < 1)
        throw py::value_error("n must be 1 or more");
    Floats in = toFloats(power, "psd");
    const int bins = n / 2 + 1;
    if (in.shape(0) != bins)
        throw py::value_error("psd must hold n // 2 + 1 bins");
    const size_t span = size_t(bins) + 4;
    Aligned p(span), d(span), c(span);
    std::memcpy(p.p, in.data(), sizeof(float) * bins);
    if (!curve.is_none()) {
        Floats cv = toFloats(curve, "curve");
        if (cv.shape(0) != bins)
            throw py::value_error("curve must hold n // 2 + 1 values");
        std::memcpy(c.p, cv.data(), sizeof(float) * bins);
    }
    TOLV_PSDtoDB(n, p.p, d.p, curve.is_none() ? nullptr : c.p, reference,
                 range);
    Floats out(bins);
    std::memcpy(out.mutable_data(), d.p, sizeof(float) * bins);
    return out;
}

Floats preemphasisCurve(int n, double coefficient)
{
    if (n < 2)
        throw py::value_error("n must be 2 or more");
    Floats out(n / 2 + 1);
    TOLV_CreatePreEmphAdjust(out.mutable_data(), n, coefficient);
    return out;
}

Complex complexMultiply(const py::handle &x, const py::handle &y)
{
    Complex a = Complex::ensure(x), b = Complex::ensure(y);
    if (!a || !b || a.ndim() != 1 || b.ndim() != 1 || a.shape(0) != b.shape(0))
        throw py::value_error("a and b must be 1-D complex arrays of one "
                              "length");
    Complex out(a.shape(0));
    TOLV_ComplexVectorMultiply(
        reinterpret_cast<const TOLV_COMPLEX *>(a.data()),
        reinterpret_cast<const TOLV_COMPLEX *>(b.data()),
        reinterpret_cast<TOLV_COMPLEX *>(out.mutable_data()), int(a.shape(0)));
    return out;
}
} // namespace

void registerSpectral(py::module_ &m)
{
    py::class_<Forward>(m, "FFT", "Forward real FFT of n points.")
        .def(py::init<int>(), py::arg("n"))
        .def("__call__", &Transform::forward, py::arg("x"),
             "n // 2 + 1 complex64 bins of x (FFTW's gain, unscaled).")
        .def("psd", &Transform::psd, py::arg("x"),
             "Unnormalised power per bin, re * re + im * im in float32.")
        .def_property_readonly("n", &Transform::n)
        .def("close", &Transform::close)
        .def("__enter__", [](Forward &t) -> Forward & { return t; })
        .def("__exit__", [](Forward &t, py::args) { t.close(); });
    py::class_<Inverse>(m, "IFFT", "Inverse real FFT of n points.")
        .def(py::init<int>(), py::arg("n"))
        .def("__call__", &Transform::inverse, py::arg("spectrum"),
             py::arg("normalize") = true,
             "n float32 samples from n // 2 + 1 bins; normalize divides by "
             "n.")
        .def_property_readonly("n", &Transform::n)
        .def("close", &Transform::close)
        .def("__enter__", [](Inverse &t) -> Inverse & { return t; })
        .def("__exit__", [](Inverse &t, py::args) { t.close(); });
    m.def("psd", &psd, py::arg("x"),
          "Power spectrum of one frame (len(x) of 8 or more).");
    m.def("psd_to_db", &psdToDb, py::arg("psd"), py::arg("n"),
          py::arg("reference") = 1.0, py::arg("range") = 120.0,
          py::arg("curve") = py::none(),
          "10 log10(psd / (n/2)^2 * curve^2 / reference), floored at "
          "-range: a full-scale sine at a bin centre reads 0 dB.");
    m.def("preemphasis_curve", &preemphasisCurve, py::arg("n"),
          py::arg("coefficient") = 0.97,
          "Magnitudes of 1 - a z^-1 at the n // 2 + 1 bins.");
    m.def("complex_multiply", &complexMultiply, py::arg("a"), py::arg("b"),
          "Element-wise complex64 product, in float.");
}

} // namespace tolvpy
