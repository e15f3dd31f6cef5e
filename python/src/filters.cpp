/* tolv.design and tolv.Filter. Sections travel in scipy's sos layout, rows
 * b0 b1 b2 a0 a1 a2; the library's records are a1 a2 b0 b1 b2 with a0 = 1. */
#include <vector>

#include "TOLVfilter/filter.h"
#include "common.h"
#include "keel.h"
#include "tolv.h"

namespace tolvpy {

namespace {
using Doubles = py::array_t<double, py::array::c_style | py::array::forcecast>;

/* One value of a keyword argument as the configuration text writes it. */
std::string textValue(const py::handle &v)
{
    if (py::isinstance<py::bool_>(v))
        return v.cast<bool>() ? "1" : "0";
    if (py::isinstance<py::str>(v))
        return v.cast<std::string>();
    if (py::isinstance<py::list>(v) || py::isinstance<py::tuple>(v) ||
        py::isinstance<py::array>(v)) {
        std::string s = "[";
        for (const py::handle &e : py::iter(v))
            s += (s.size() > 1 ? " " : "") +
                 py::repr(py::float_(py::reinterpret_borrow<py::object>(e)))
                     .cast<std::string>();
        return s + "]";
    }
    return py::str(v).cast<std::string>();
}

/* A text, or keywords written as one ("key=value, ..."), or both. */
std::string filterText(const py::object &text, const py::kwargs &keywords)
{
    std::string t = text.is_none() ? "" : text.cast<std::string>();
    for (const auto &kv : keywords) {
        if (!t.empty())
            t += ", ";
        t += kv.first.cast<std::string>() + "=" + textValue(kv.second);
    }
    return t;
}

/* Whether the library reads the text as numerator and denominator rather
 * than as sections (the same tests, in the same order). */
bool isDirectForm(const std::string &t)
{
    int rows = 0, columns = 0, num = 0, den = 0;
    if (KEELSTRING_GetMatrixSizeFromString(t.c_str(), "biquads", &rows,
                                           &columns) &&
        columns == 5)
        return false;
    return KEELSTRING_GetVectorSizeFromString(t.c_str(), "numerator", &num) &&
           num >= 1 &&
           KEELSTRING_GetVectorSizeFromString(t.c_str(), "denominator", &den) &&
           den >= 1;
}

/* The records of a section filter as sos rows. */
py::array_t<double> sosOf(const _TOLV_FILTER *f)
{
    const auto *st = static_cast<const _DFIISOSstate *>(f->stateData);
    py::array_t<double> sos({py::ssize_t(st->numSections), py::ssize_t(6)});
    for (int s = 0; s < st->numSections; s++) {
        const double *r = st->sections + 5 * s;
        const double row[6] = {r[2], r[3], r[4], 1.0, r[0], r[1]};
        for (int k = 0; k < 6; k++)
            sos.mutable_at(s, k) = row[k];
    }
    return sos;
}

/* sos rows as records, each row divided by its a0. */
std::vector<double> recordsOf(const py::handle &sos)
{
    Doubles a = Doubles::ensure(sos);
    if (!a || a.ndim() != 2 || a.shape(1) != 6)
        throw py::value_error("sos must have shape (sections, 6)");
    std::vector<double> r(size_t(a.shape(0)) * 5);
    for (py::ssize_t s = 0; s < a.shape(0); s++) {
        const double a0 = a.at(s, 3);
        if (a0 == 0.0)
            throw py::value_error("a section has a0 = 0");
        const double rec[5] = {a.at(s, 4) / a0, a.at(s, 5) / a0,
                               a.at(s, 0) / a0, a.at(s, 1) / a0,
                               a.at(s, 2) / a0};
        std::copy(rec, rec + 5, r.begin() + 5 * s);
    }
    return r;
}

_TOLV_FILTER *createFromText(const std::string &t)
{
    takeErrors();
    _TOLV_FILTER *f = TOLV_CreateFilter("%s", t.c_str());
    if (f == nullptr)
        raiseValue("the library refused the filter text \"" + t + "\"");
    return f;
}

py::array_t<double> design(const py::object &text, const py::kwargs &kw)
{
    const std::string t = filterText(text, kw);
    if (isDirectForm(t))
        throw py::value_error("a numerator and denominator text has no "
                              "sections (scipy.signal.tf2sos makes them)");
    _TOLV_FILTER *f = createFromText(t);
    py::array_t<double> sos = sosOf(f);
    TOLV_DestroyFilter(f);
    return sos;
}

class Filter : public Handle {
  public:
    Filter(const py::object &text, const py::object &sos,
           const py::object &channels, const py::kwargs &kw)
    {
        const int C = channels.is_none() ? -1 : channels.cast<int>();
        if (!channels.is_none() && C < 1)
            throw py::value_error("channels must be 1 or more");
        if (!sos.is_none()) {
            if (!text.is_none() || kw.size() > 0)
                throw py::value_error("give a text or sos, not both");
            std::vector<double> r = recordsOf(sos);
            filter_ = TOLV_CreateFilterFromBiquads(
                C < 1 ? 1 : C, uint32_t(r.size() / 5), r.data());
            sections_ = true;
        } else {
            std::string t = filterText(text, kw);
            if (C >= 1)
                t = "num_channels=" + std::to_string(C) + ", " + t;
            sections_ = !isDirectForm(t);
            filter_ = createFromText(t);
        }
        if (filter_ == nullptr)
            raiseValue("the library refused the sections");
        channels_ = filter_->numChannels;
    }
    ~Filter() { close(); }
    void close()
    {
        if (!closed()) {
            markClosed();
            TOLV_DestroyFilter(filter_);
        }
    }
    Floats process(const py::handle &x, const py::object &out)
    {
        Block b = toBlock(x, "x", channels_);
        Floats y = outBlock(out, b.frames, b.channels, b.twoD);
        const uint64_t count = uint64_t(b.frames) * uint64_t(b.channels);
        if (count > UINT32_MAX)
            throw py::value_error("blocks hold at most 2^32 - 1 samples");
        auto hold = use("Filter");
        py::gil_scoped_release free;
        TOLV_Filter(filter_, b.data(), y.mutable_data(), uint32_t(count));
        return y;
    }
    void reset()
    {
        auto hold = use("Filter");
        TOLV_ResetFilter(filter_);
    }
    void updateSections(const py::handle &sos)
    {
        std::vector<double> r = recordsOf(sos);
        auto hold = use("Filter");
        if (!sections_ || !TOLV_UpdateFilterBiquads(
                              filter_, uint32_t(r.size() / 5), r.data()))
            raiseValue("update_sections needs a section filter and as many "
                       "sections as it has");
    }
    void copyStateFrom(Filter &other)
    {
        if (&other == this)
            return;
        auto hold = use("Filter");
        auto holdOther = other.use("Filter");
        if (!TOLV_CopyFilterMemories(filter_, other.filter_))
            raiseValue("copy_state_from needs a filter of the same form, "
                       "order and channels");
    }
    py::object sos()
    {
        auto hold = use("Filter");
        if (!sections_)
            return py::none();
        return sosOf(filter_);
    }
    int channels() const { return channels_; }

  private:
    _TOLV_FILTER *filter_ = nullptr;
    bool sections_ = false;
    int channels_ = 1;
};
} // namespace

void registerFilters(py::module_ &m)
{
    m.def("design", &design, py::arg("text") = py::none(),
          "Second-order sections (rows b0 b1 b2 a0 a1 a2, scipy's sos) of "
          "a filter text or keywords: design(type='lowpass', fpass=1000, "
          "fs=8000, order=4). Raises ValueError with the library's message "
          "on a refused text.");
    py::class_<Filter>(m, "Filter",
                       "A streaming IIR filter over (frames,) or (frames, "
                       "channels) blocks; its memory carries from block to "
                       "block. One thread at a time.")
        .def(py::init<const py::object &, const py::object &,
                      const py::object &, const py::kwargs &>(),
             py::arg("text") = py::none(), py::kw_only(),
             py::arg("sos") = py::none(), py::arg("channels") = py::none())
        .def("process", &Filter::process, py::arg("x"), py::kw_only(),
             py::arg("out") = py::none(),
             "Filters a block; returns a new array unless out is given.")
        .def("reset", &Filter::reset, "Clears the filter's memory.")
        .def("update_sections", &Filter::updateSections, py::arg("sos"),
             "New coefficients for the same number of sections; the memory "
             "stays.")
        .def("copy_state_from", &Filter::copyStateFrom, py::arg("other"),
             "Takes over another filter's memory (same form and size).")
        .def_property_readonly("sos", &Filter::sos)
        .def_property_readonly("channels", &Filter::channels)
        .def("close", &Filter::close)
        .def("__enter__", [](Filter &f) -> Filter & { return f; })
        .def("__exit__", [](Filter &f, py::args) { f.close(); });
}

} // namespace tolvpy
