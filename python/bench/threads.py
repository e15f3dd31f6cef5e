"""Throughput of two threads against one: each thread converts, filters
and stretches its own file with its own objects; the GIL is released
inside every call, so the threads run on two cores at once.

    PYTHONPATH=build/python python3 python/bench/threads.py
"""
import threading
import time

import numpy as np

import tolv

RATE = 44100
SECONDS = 20


def job(x):
    y = tolv.resample(x, RATE, 48000)
    f = tolv.Filter(type="lowpass", approximation="ellip", fpass=8000,
                    fstop=9000, Ap=0.5, As=60, fs=48000, channels=2)
    for at in range(0, len(y), 4096):
        f.process(y[at:at + 4096])
    tolv.stretch(y, 48000, 1.25)


def run(files, threads):
    start = time.perf_counter()
    workers = [threading.Thread(target=lambda i=i: [
        job(files[k]) for k in range(i, len(files), threads)])
        for i in range(threads)]
    for w in workers:
        w.start()
    for w in workers:
        w.join()
    return len(files) * SECONDS / (time.perf_counter() - start)


def main():
    rng = np.random.default_rng(1)
    files = [(0.3 * rng.standard_normal((RATE * SECONDS, 2))).astype(
        np.float32) for _ in range(4)]
    run(files[:1], 1)  # plans and first-touch memory
    one = min(run(files, 1) for _ in range(2))
    two = min(run(files, 2) for _ in range(2))
    one, two = max(run(files, 1), one), max(run(files, 2), two)
    print(f"one thread:  {one:7.1f} s of audio per second")
    print(f"two threads: {two:7.1f} s of audio per second ({two / one:.2f}x)")


if __name__ == "__main__":
    main()
