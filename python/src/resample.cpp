/* tolv.Resampler and tolv.resample: one converter per channel, all on the
 * same phase grid, so every channel gives the same count per block. */
#include <algorithm>
#include <numeric>
#include <vector>

#include "common.h"
#include "resample_quality.h"
#include "tolv.h"

namespace tolvpy {

namespace {
std::string configOf(const std::string &kind, const std::string &quality)
{
    if (kind == "zoh")
        return "type=zoh";
    if (kind != "polyphase")
        throw py::value_error("kind must be \"polyphase\" or \"zoh\"");
    const long order = _QualityOrder(quality.c_str());
    if (order == 0)
        throw py::value_error("quality must be low, medium, high or "
                              "very-high");
    return "type=polyphase, order=" + std::to_string(order);
}

class Resampler : public Handle {
  public:
    Resampler(int inRate, int outRate, const std::string &quality,
              const std::string &kind, int channels)
        : in_(inRate), out_(outRate), channels_(channels)
    {
        if (inRate < 1 || outRate < 1)
            throw py::value_error("rates must be positive");
        if (channels < 1)
            throw py::value_error("channels must be 1 or more");
        const int64_t g = std::gcd(int64_t(inRate), int64_t(outRate));
        up_ = outRate / g;
        down_ = inRate / g;
        const std::string config = configOf(kind, quality);
        const long order = kind == "zoh" ? 0 : _QualityOrder(quality.c_str());
        if (2 * std::max(up_, down_) * order > INT32_MAX / 2)
            throw py::value_error("the rates have too small a common "
                                  "divisor for the polyphase converter");
        takeErrors();
        for (int c = 0; c < channels; c++) {
            _TOLV_RESAMPLE *r =
                TOLV_ResampleInit(inRate, outRate, config.c_str());
            if (r != nullptr)
                conv_.push_back(r);
            const std::string errors = takeErrors();
            if (r == nullptr || !errors.empty())
                throw py::value_error("cannot convert " +
                                      std::to_string(inRate) + " Hz to " +
                                      std::to_string(outRate) + " Hz" +
                                      (errors.empty() ? "" : ": " + errors));
        }
        latency_ = std::max(0, TOLV_ResampleFlushBufferSize(conv_[0]));
    }
    ~Resampler() { close(); }
    void close()
    {
        if (!closed()) {
            markClosed();
            for (_TOLV_RESAMPLE *r : conv_)
                TOLV_ResampleDestroy(r);
        }
    }
    Floats process(const py::handle &x)
    {
        Block b = toBlock(x, "x", channels_);
        auto hold = use("Resampler");
        const int64_t room = b.frames * (up_ / down_ + 1) + 8;
        std::vector<float> in(size_t(b.frames)), out(size_t(room) * channels_);
        int made = 0;
        {
            py::gil_scoped_release free;
            made = run(b, in, out, room);
        }
        return interleave(out, room, made, b.twoD);
    }
    Floats flush(bool twoD)
    {
        auto hold = use("Resampler");
        const int room = std::max(1, TOLV_ResampleFlushBufferSize(conv_[0]));
        std::vector<float> out(size_t(room) * channels_);
        int made = room;
        for (int c = 0; c < channels_; c++) {
            const int pending = TOLV_ResampleFlushBufferSize(conv_[size_t(c)]);
            const int n = pending > 0
                              ? TOLV_ResampleFlushBuffersEx(
                                    conv_[size_t(c)],
                                    out.data() + size_t(c) * room, pending)
                              : 0;
            made = std::min(made, n);
        }
        return interleave(out, room, made, twoD);
    }
    int latency() const { return latency_; }
    int channels() const { return channels_; }

  private:
    /* Converts each channel into its own stretch of `out`. */
    int run(const Block &b, std::vector<float> &in, std::vector<float> &out,
            int64_t room)
    {
        int made = -1;
        for (int c = 0; c < channels_; c++) {
            for (py::ssize_t f = 0; f < b.frames; f++)
                in[size_t(f)] = b.data()[f * channels_ + c];
            const int n =
                TOLV_Resample(conv_[size_t(c)], in.data(),
                              out.data() + size_t(c) * room, int(b.frames));
            made = c == 0 ? n : std::min(made, n);
        }
        return std::max(made, 0);
    }
    Floats interleave(const std::vector<float> &out, int64_t room, int made,
                      bool twoD) const
    {
        Floats y = newBlock(made, channels_, twoD);
        float *p = y.mutable_data();
        for (int c = 0; c < channels_; c++)
            for (int f = 0; f < made; f++)
                p[size_t(f) * channels_ + c] = out[size_t(c) * room + f];
        return y;
    }
    int in_, out_, channels_, latency_ = 0;
    int64_t up_ = 1, down_ = 1;
    std::vector<_TOLV_RESAMPLE *> conv_;
};

/* Exactly round(n * out / in) frames: the stream, its flush, then trimmed
 * or padded with silence. */
Floats resample(const py::handle &x, int inRate, int outRate,
                const std::string &quality, const std::string &kind)
{
    Block b = toBlock(x, "x");
    Resampler r(inRate, outRate, quality, kind, int(b.channels));
    Floats head = r.process(b.array), tail = r.flush(b.twoD);
    const int64_t g = std::gcd(int64_t(inRate), int64_t(outRate));
    const int64_t up = outRate / g, down = inRate / g;
    const int64_t want = (int64_t(b.frames) * up + down / 2) / down;
    Floats y = newBlock(want, b.channels, b.twoD);
    std::fill(y.mutable_data(), y.mutable_data() + want * b.channels, 0.0f);
    const int64_t h = std::min<int64_t>(head.shape(0), want);
    const int64_t t = std::min<int64_t>(tail.shape(0), want - h);
    std::copy(head.data(), head.data() + h * b.channels, y.mutable_data());
    std::copy(tail.data(), tail.data() + t * b.channels,
              y.mutable_data() + h * b.channels);
    return y;
}
} // namespace

void registerResample(py::module_ &m)
{
    py::class_<Resampler>(m, "Resampler",
                          "A streaming sample-rate converter; its output "
                          "does not depend on how the stream is cut into "
                          "blocks. One thread at a time.")
        .def(
            py::init<int, int, const std::string &, const std::string &, int>(),
            py::arg("in_rate"), py::arg("out_rate"), py::kw_only(),
            py::arg("quality") = _kDefaultQuality,
            py::arg("kind") = "polyphase", py::arg("channels") = 1)
        .def("process", &Resampler::process, py::arg("x"),
             "Converts a block; returns the frames ready so far.")
        .def("flush", &Resampler::flush, py::arg("two_d") = false,
             "Ends the stream: the frames the converter still holds.")
        .def_property_readonly(
            "latency", &Resampler::latency,
            "Output frames the converter holds back until flush (its "
            "group delay, compensated in the output's timing); 0 for zoh.")
        .def_property_readonly("channels", &Resampler::channels)
        .def("close", &Resampler::close)
        .def("__enter__", [](Resampler &r) -> Resampler & { return r; })
        .def("__exit__", [](Resampler &r, py::args) { r.close(); });
    m.def("resample", &resample, py::arg("x"), py::arg("in_rate"),
          py::arg("out_rate"), py::kw_only(),
          py::arg("quality") = _kDefaultQuality, py::arg("kind") = "polyphase",
          "One-shot conversion returning exactly round(n * out_rate / "
          "in_rate) frames.");
}

} // namespace tolvpy
