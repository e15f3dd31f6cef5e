"""Files per second of a batch resample with one and with two local
workers (not a test).

    PYTHONPATH=build/python python3 python/bench/batch.py
"""
import os
import shutil
import tempfile
import time

import numpy as np
import soundfile

from tolv import batch


def main(files=24, seconds=10):
    rng = np.random.default_rng(1)
    root = tempfile.mkdtemp(prefix="tolv-batch-bench-")
    try:
        corpus = os.path.join(root, "corpus")
        os.makedirs(corpus)
        for i in range(files):
            soundfile.write(os.path.join(corpus, "f%02d.wav" % i),
                            0.3 * rng.standard_normal((44100 * seconds, 2)),
                            44100, subtype="PCM_16")
        for workers in (1, 2):
            out = os.path.join(root, "out%d" % workers)
            start = time.perf_counter()
            batch.run("resample", [corpus], out, rate=16000,
                      workers=workers, progress=False)
            rate = files / (time.perf_counter() - start)
            print("%d worker%s: %.2f files/s (%d s stereo files)" %
                  (workers, "" if workers == 1 else "s", rate, seconds))
    finally:
        shutil.rmtree(root)


if __name__ == "__main__":
    main()
