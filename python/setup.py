"""Builds the tolv module against an installed libtolv (found through
pkg-config: `make install` first), compiling the project's internal code it
needs from the source tree beside this folder.

    python3 -m venv --system-site-packages venv
    venv/bin/pip install --no-build-isolation ./python
"""
import glob
import os
import re
import subprocess

from setuptools import Extension, setup

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)


def pkg_config(option):
    try:
        out = subprocess.check_output(["pkg-config", option, "tolv"],
                                      text=True)
    except (OSError, subprocess.CalledProcessError):
        raise SystemExit("libtolv is not installed where pkg-config finds "
                         "it: run `make install` first (or point "
                         "PKG_CONFIG_PATH at its lib/pkgconfig)")
    return out.split()


def internal_sources():
    """The internal archive's sources, as internal/CMakeLists.txt lists
    them."""
    text = open(os.path.join(ROOT, "internal", "CMakeLists.txt")).read()
    block = re.search(r"add_library\(tolv_internal STATIC(.*?)\)", text,
                      re.S).group(1)
    names = re.findall(r"(\S+\.cpp)", block)
    return [os.path.join(ROOT, "internal", n.replace("${TOLV_SRC}", "../src"))
            for n in names]


libdirs = [f[2:] for f in pkg_config("--libs-only-L")]
module = Extension(
    "tolv._tolv",
    sources=sorted(glob.glob(os.path.join(HERE, "src", "*.cpp"))) +
    internal_sources(),
    include_dirs=[os.path.join(ROOT, d) for d in
                  ("internal", "src", "include", "keel/include")],
    libraries=["tolv", "keel"],
    library_dirs=libdirs,
    runtime_library_dirs=libdirs,
    extra_compile_args=["-std=c++17", "-O2", "-ffp-contract=off",
                        "-fvisibility=hidden"],
    language="c++",
)

setup(
    name="tolv",
    version="3.7.18.0",
    description="libtolv's signal processing over numpy arrays",
    packages=["tolv"],
    package_data={"tolv": ["__init__.pyi", "py.typed"]},
    ext_modules=[module],
    install_requires=["numpy"],
)
