import ctypes
import os

import numpy as np
import pytest

import tolv


@pytest.fixture(scope="session")
def lib():
    """The shared library the module links, for bit-for-bit comparisons."""
    path = os.path.join(os.path.dirname(tolv._tolv.__file__), "..", "..",
                        "src", "libtolv.so.3.7")
    lib = ctypes.CDLL(os.path.abspath(path))
    return lib


@pytest.fixture
def rng():
    return np.random.default_rng(7)


def splits(rng, n, most=700):
    """Random block boundaries covering 0..n."""
    cuts, at = [0], 0
    while at < n:
        at = min(n, at + int(rng.integers(0, most)))
        cuts.append(at)
    return cuts


def fptr(a):
    return a.ctypes.data_as(ctypes.POINTER(ctypes.c_float))
