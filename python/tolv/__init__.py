"""libtolv's signal processing over numpy arrays.

Audio blocks are float32 arrays of shape (frames,) or (frames, channels);
other real dtypes are converted as ``astype(np.float32)`` would, and
non-contiguous arrays are copied. Results are new arrays unless ``out=`` is
given. Every processing call releases the GIL; each object is for one thread
at a time (calls on one object from several threads are serialised).
Refusals raise ValueError (a bad argument) or RuntimeError, with the
library's own message text.
"""
from ._tolv import (  # noqa: F401
    FFT,
    FMCLT,
    IFFT,
    Correlator,
    Filter,
    NoiseSuppressor,
    Resampler,
    Spline,
    Stretcher,
    __version__,
    bark_to_hz,
    complex_multiply,
    delay,
    design,
    energy,
    get_window,
    hz_to_bark,
    hz_to_mel,
    interp_linear,
    mel_to_hz,
    preemphasis_curve,
    psd,
    psd_to_db,
    remove_dc,
    resample,
    set_verbose,
    stretch,
    window_names,
    window_norm,
    window_norm2,
    zero_cross_rate,
)
