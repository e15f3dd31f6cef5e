"""The module against the C library (bit for bit), against scipy and numpy
where the definitions match, streaming against one-shot under random block
splits, and refusals as exceptions with the library's words."""
import ctypes
import re
import threading

import numpy as np
import pytest
import scipy.signal as ss

import tolv
from conftest import fptr, splits


@pytest.mark.parametrize("name,scipy_name,sym", [
    ("Hamming", "hamming", True), ("hanning", "hann", True),
    ("Hanning-Periodic", "hann", False),
    ("Blackman-Harris", "blackmanharris", True), ("NUTTAL", "nuttall", True),
])
def test_windows_match_scipy_where_defined_alike(name, scipy_name, sym):
    w = tolv.get_window(name, 257)
    assert w.dtype == np.float32
    np.testing.assert_allclose(w, ss.get_window(scipy_name, 257,
                                                fftbins=not sym), atol=1e-6)


def test_windows_are_the_librarys_bits(lib):
    for t, name in enumerate(tolv.window_names()):
        ref = np.zeros(100, np.float32)
        assert lib.TOLV_CreateWindow(t, fptr(ref), 100) == 1
        assert np.array_equal(tolv.get_window(name, 100), ref), name
    w = tolv.get_window("Hamming", 64)
    lib.TOLV_GetWindowNormFactor.restype = ctypes.c_double
    assert tolv.window_norm(w) == lib.TOLV_GetWindowNormFactor(fptr(w), 64)
    assert tolv.window_norm2(w, w) == pytest.approx(np.mean(w * w), 1e-6)


def test_spectra_match_numpy(rng):
    x = rng.standard_normal(480).astype(np.float32)
    with tolv.FFT(480) as fft, tolv.IFFT(480) as ifft:
        X = fft(x)
        np.testing.assert_allclose(X, np.fft.rfft(x), atol=2e-4)
        np.testing.assert_allclose(ifft(X), x, atol=1e-5)
        np.testing.assert_allclose(ifft(X, normalize=False), 480 * x,
                                   atol=5e-3)
        np.testing.assert_allclose(fft.psd(x), np.abs(np.fft.rfft(x)) ** 2,
                                   rtol=1e-4, atol=1e-3)
    np.testing.assert_array_equal(tolv.psd(x), tolv.FFT(480).psd(x))
    a = (rng.standard_normal(9) + 1j * rng.standard_normal(9)).astype(
        np.complex64)
    np.testing.assert_allclose(tolv.complex_multiply(a, a), a * a, rtol=1e-6)


def test_full_scale_sine_at_a_bin_centre_reads_0_db():
    n = 512
    x = np.sin(2 * np.pi * 32 * np.arange(n) / n).astype(np.float32)
    db = tolv.psd_to_db(tolv.psd(x), n, reference=1.0, range=120.0)
    assert db[32] == pytest.approx(0.0, abs=1e-3)
    assert db[100] == -120.0
    curve = tolv.preemphasis_curve(n, 0.97)
    assert curve[0] == pytest.approx(0.03, abs=1e-6)
    assert curve[-1] == pytest.approx(1.97, abs=1e-6)


def test_delay_matches_a_numpy_cross_correlation(rng):
    b = rng.standard_normal(3000).astype(np.float32)
    a = np.concatenate([np.zeros(123, np.float32), b[:-123]])
    full = np.correlate(a, b, "full")
    expected = int(np.argmax(full)) - (len(b) - 1)
    lag, coef = tolv.delay(a, b)
    assert lag == expected == 123 and 0.95 < coef <= 1.0
    assert tolv.delay(a, b, method="phat")[0] == 123
    assert tolv.delay(-a, b)[0] == 123
    with tolv.Correlator(3000, 3000) as c:
        r = c.correlate(a, b)
        assert len(r) == len(c.lags) == 5999
        np.testing.assert_allclose(r, full / 3000, atol=1e-4)


def test_design_gives_sections_scipy_runs_as_the_filter_does(rng):
    sos = tolv.design("type=bandpass, approximation=ellip, fpass1=300, "
                      "fpass2=3400, fstop1=200, fstop2=4000, Ap=1, As=60",
                      fs=16000)
    assert sos.shape[1] == 6 and np.all(sos[:, 3] == 1.0)
    w, h = ss.sosfreqz(sos, worN=[1000, 6000], fs=16000)
    assert abs(h[0]) == pytest.approx(1.0, abs=0.13)
    assert abs(h[1]) < 1e-3
    x = rng.standard_normal((4000, 2)).astype(np.float32)
    y = tolv.Filter(sos=sos, channels=2).process(x)
    np.testing.assert_allclose(y, ss.sosfilt(sos, x, axis=0), atol=1e-4)
    keywords = tolv.design(type="lowpass", fpass=1000, fs=8000, order=4)
    np.testing.assert_array_equal(
        keywords, tolv.design("type=lowpass, fpass=1000, fs=8000, order=4"))


def test_filter_is_the_librarys_bits_and_streams_seamlessly(lib, rng):
    text = "type=highpass, approximation=cheby1, fpass=0.1, order=5, Ap=1"
    x = rng.standard_normal((5000, 3)).astype(np.float32)
    lib.TOLV_CreateFilter.restype = ctypes.c_void_p
    f = lib.TOLV_CreateFilter(b"%s", (text + ", nc=3").encode())
    ref = np.empty_like(x)
    lib.TOLV_Filter(ctypes.c_void_p(f), fptr(x), fptr(ref), x.size)
    lib.TOLV_DestroyFilter(ctypes.c_void_p(f))
    whole = tolv.Filter(text, channels=3).process(x)
    assert np.array_equal(whole, ref)
    stream = tolv.Filter(text, channels=3)
    cuts = splits(rng, len(x))
    parts = [stream.process(x[a:b]) for a, b in zip(cuts, cuts[1:])]
    assert np.array_equal(np.concatenate(parts), ref)


def test_filter_state_and_sections_can_move():
    a = tolv.Filter(type="lowpass", fpass=0.2, order=4)
    b = tolv.Filter(type="lowpass", fpass=0.2, order=4)
    x = np.ones(50, np.float32)
    a.process(x)
    b.copy_state_from(a)
    assert np.array_equal(a.process(x), b.process(x))
    a.reset()
    b.reset()
    a.update_sections(b.sos * [2, 2, 2, 1, 1, 1])
    np.testing.assert_allclose(a.process(x), 2 ** 2 * b.process(x),
                               rtol=1e-5)
    out = np.empty(50, np.float32)
    assert a.process(x, out=out) is out
    with pytest.raises(ValueError, match="as many sections"):
        a.update_sections(b.sos[:1])


# latency: the prototype's group delay N / 2M in output frames, rounded
@pytest.mark.parametrize("rates,quality,kind,latency", [
    ((44100, 48000), "high", "polyphase", 139),
    ((48000, 44100), "low", "polyphase", 16),
    ((16000, 8000), "medium", "polyphase", 64),
    ((8000, 16000), "high", "zoh", 0),
])
def test_resampler_streams_as_one_shot(rng, rates, quality, kind, latency):
    x = rng.standard_normal((6000, 2)).astype(np.float32)
    whole = tolv.resample(x, *rates, quality=quality, kind=kind)
    # round half up, as the one-shot call promises
    assert whole.shape == (int(6000 * rates[1] / rates[0] + 0.5), 2)
    r = tolv.Resampler(*rates, quality=quality, kind=kind, channels=2)
    cuts = splits(rng, len(x))
    parts = [r.process(x[a:b]) for a, b in zip(cuts, cuts[1:])]
    parts.append(r.flush(two_d=True))
    stream = np.concatenate(parts)[:len(whole)]
    assert np.array_equal(stream, whole[:len(stream)])
    assert tolv.Resampler(*rates, quality=quality, kind=kind).latency == \
        latency


def test_resampler_keeps_a_tone_and_its_place():
    n = 44100
    x = np.sin(2 * np.pi * 1000 * np.arange(n) / n).astype(np.float32)
    y = tolv.resample(x, 44100, 48000)
    t = (np.arange(len(y)) - 0.320) / 48000
    np.testing.assert_allclose(y[500:-500], np.sin(2 * np.pi * 1000 * t)[
        500:-500], atol=2e-4)


def test_stretcher_streams_as_one_shot_and_keeps_stereo(rng):
    rate = 16000
    t = np.arange(3 * rate) / rate
    left = (0.5 * np.sin(2 * np.pi * 180 * t) * (1.2 + np.sin(7 * t)) +
            0.05 * rng.standard_normal(len(t))).astype(np.float32)
    x = np.stack([left, 0.5 * left], axis=1)
    for speed in (0.5, 1.25, 2.0):
        whole = tolv.stretch(x, rate, speed)
        assert len(whole) == int(len(x) / speed + 0.5)
        assert np.array_equal(whole[:, 1], 0.5 * whole[:, 0])
        s = tolv.Stretcher(rate, 2)
        cuts = splits(rng, len(x), 3000)
        parts = [s.process(x[a:b], speed) for a, b in zip(cuts, cuts[1:])]
        parts.append(s.flush(two_d=True))
        assert np.array_equal(np.concatenate(parts), whole)
        assert 0 <= s.source_position(1000) <= 1000 * speed + 400


def test_smaller_families():
    x = np.linspace(0, 3, 7, dtype=np.float32)
    spline = tolv.Spline(x, x ** 2)
    assert spline(np.float32(1.5)) == pytest.approx(2.25, abs=0.05)
    assert spline([0.0, 3.0]).tolist() == pytest.approx([0.0, 9.0])
    m = tolv.FMCLT(64)
    rng = np.random.default_rng(3)
    blocks = rng.standard_normal((6, 64)).astype(np.float32)
    out = [m.inverse(m.forward(b)) for b in blocks]
    np.testing.assert_allclose(np.concatenate(out[1:]),
                               np.concatenate(blocks[:-1]), atol=1e-4)
    ns = tolv.NoiseSuppressor(16000, 2)
    frames = rng.uniform(-0.5, 0.5, 1600).astype(np.float32)
    y = ns.process(frames)
    # delayed 96 samples and cut to 16 bits
    np.testing.assert_allclose(y[96:], frames[:-96], atol=2 / 32768)
    assert tolv.zero_cross_rate([1, -1, 1, -1]) == 0.75
    assert tolv.hz_to_mel(700) == pytest.approx(1127.01048 * np.log(2))
    assert tolv.mel_to_hz(tolv.hz_to_mel(440.0)) == pytest.approx(440.0)
    assert tolv.bark_to_hz(9) == 1000.0
    assert tolv.interp_linear([0, 1], [0, 10], 0.25) == 2.5
    assert tolv.energy(np.zeros(10)) == 0.0
    assert tolv.remove_dc(np.ones(4000))[-1] == pytest.approx(0, abs=0.02)


def closed(obj):
    obj.close()
    return obj


BAD = [
    (lambda: tolv.Filter("fpass=0.2, order=2").process(np.ones(4, complex)),
     TypeError, "real numbers"),
    (lambda: tolv.Filter("fpass=0.2, order=2").process(np.ones(4, bool)),
     TypeError, "real numbers"),
    (lambda: tolv.Filter("fpass=0.2, order=2").process(np.ones((2, 2, 2))),
     ValueError, "shape"),
    (lambda: tolv.Filter("fpass=0.2, order=2", channels=2).process(
        np.ones((5, 3))), ValueError, "3 channels"),
    (lambda: closed(tolv.Filter("fpass=0.2, order=2")).process(np.ones(3)),
     ValueError, "closed"),
    (lambda: tolv.Filter(sos=np.zeros((0, 6))), ValueError,
     "refused the sections"),
    (lambda: tolv.Filter(sos=np.tile([1, 0, 0, 1, 0, 0], (70000, 1))),
     ValueError, "Too many biquads (70000)"),
    (lambda: tolv.design("type=bogus, fpass=0.2, order=2"), ValueError,
     "Invalid filter type: bogus"),
    (lambda: tolv.design("numerator=[1 1]; denominator=[1 0.5]"),
     ValueError, "tf2sos"),
    (lambda: tolv.Resampler(8000, 12345, kind="zoh"), ValueError,
     "Unsuported sample rate convertion: 8000 to 12345"),
    (lambda: tolv.Resampler(44100, 48000, quality="best"), ValueError,
     "quality"),
    (lambda: tolv.Stretcher(16000).process(np.ones(10), 1e-40), ValueError,
     "speed"),
    (lambda: tolv.Stretcher(50), ValueError, "cannot run 50 Hz"),
    (lambda: tolv.get_window("Han", 8), ValueError, "unknown window"),
    (lambda: tolv.FFT(8)(np.ones(9)), ValueError, "takes 8"),
    (lambda: tolv.psd(np.ones(4)), ValueError, "8 or more"),
    (lambda: tolv.complex_multiply(np.ones(3, np.complex64),
                                   np.ones(4, np.complex64)), ValueError,
     "of one length"),
    (lambda: tolv.NoiseSuppressor(44100), ValueError, "Invalid sample rate"),
    (lambda: tolv.Spline([0, 0], [1, 2]), ValueError, "strictly"),
    (lambda: tolv.delay(np.ones(0), np.ones(3)), ValueError, "empty"),
    (lambda: closed(tolv.Correlator(4, 4)).phat(np.ones(4), np.ones(4)),
     ValueError, "closed"),
]


@pytest.mark.parametrize("call,error,words", BAD)
def test_bad_input_raises_a_clear_exception(call, error, words):
    with pytest.raises(error, match=re.escape(words)):
        call()


def test_odd_but_valid_input_is_taken():
    f = tolv.Filter("fpass=0.2, order=2")
    assert f.process(np.ones(0)).shape == (0,)
    y = f.process(np.array([1, np.nan, 1], np.float32))
    assert np.isnan(y[1])
    strided = np.arange(20, dtype=np.float64)[::2]
    assert np.array_equal(tolv.Filter("fpass=0.2, order=2").process(strided),
                          tolv.Filter("fpass=0.2, order=2").process(
                              strided.astype(np.float32)))


def test_threads_share_nothing_but_the_library(rng):
    x = rng.standard_normal(200000).astype(np.float32)
    want = tolv.resample(x, 44100, 48000)
    got = [None] * 4

    def work(i):
        got[i] = tolv.resample(x, 44100, 48000)

    threads = [threading.Thread(target=work, args=(i,)) for i in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert all(np.array_equal(g, want) for g in got)


def test_the_readme_example_runs_as_written():
    import os
    import re
    here = os.path.dirname(os.path.abspath(__file__))
    text = open(os.path.join(here, "..", "..", "README.md")).read()
    code = re.search(r"```python\n(.*?)```", text, re.S).group(1)
    scope = {}
    exec(compile(code, "README.md", "exec"), scope)
    assert scope["lag"] == scope["lag_phat"] == 300
    assert scope["y48"].shape == (96000, 2)
    assert scope["slow"].shape == (110250, 2)
    assert sum(len(p) for p in scope["parts"]) == 96000
