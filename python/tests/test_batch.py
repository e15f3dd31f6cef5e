"""Batch runs on a local Dask cluster of two worker processes: outputs the
command's to the bit, bad files recorded with their messages, a killed
worker costing nothing, and a second run finishing only what is missing."""
import json
import os
import signal
import subprocess
import threading
import time

import numpy as np
import pytest

soundfile = pytest.importorskip("soundfile")
pytest.importorskip("dask.distributed")

from tolv import batch  # noqa: E402


def make_corpus(root, rng):
    """38 good files over rates, channels and lengths in two folders, one
    corrupt file and one empty one."""
    good = []
    for i in range(38):
        rate = (8000, 16000, 22050, 44100)[i % 4]
        channels = 1 + i % 3
        frames = int(rng.integers(100, 30000))
        x = 0.3 * rng.standard_normal((frames, channels))
        path = os.path.join(root, "part%d" % (i % 2), "f%02d.wav" % i)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        soundfile.write(path, x, rate, subtype="PCM_16")
        good.append(path)
    with open(os.path.join(root, "corrupt.wav"), "wb") as f:
        f.write(b"RIFF" + bytes(rng.integers(0, 256, 400, dtype=np.uint8)))
    open(os.path.join(root, "empty.wav"), "wb").close()
    return good


def tolv_directly(src, dst):
    subprocess.run([batch.tolv_command(), "resample", src, dst, "--rate",
                    "16000", "--quality", "high"], check=True,
                   capture_output=True)
    with open(dst, "rb") as f:
        return f.read()


def leftovers(root):
    return [n for _, _, names in os.walk(root) for n in names
            if ".tmp" in n]


def test_a_corpus_runs_on_two_workers(tmp_path):
    rng = np.random.default_rng(5)
    corpus, out = tmp_path / "corpus", tmp_path / "out"
    good = make_corpus(str(corpus), rng)
    records = batch.run("resample", [str(corpus)], str(out), rate=16000,
                        workers=2, progress=False)
    assert len(records) == 40
    by_input = {r["input"]: r for r in records}
    for src in good:
        r = by_input[src]
        assert r["status"] == "ok", r
        with open(r["output"], "rb") as f:
            assert f.read() == tolv_directly(src, str(tmp_path / "ref.wav"))
        assert r["frames_out"] == soundfile.info(r["output"]).frames
        assert r["frames_in"] == soundfile.info(src).frames
    for name in ("corrupt.wav", "empty.wav"):
        r = by_input[str(corpus / name)]
        assert r["status"] == "failed" and "cannot read" in r["error"], r
    with open(out / "manifest.jsonl") as f:
        assert sorted(json.loads(ln)["input"] for ln in f) == sorted(
            by_input)

    # A second run skips what is complete and redoes what was deleted.
    os.remove(by_input[good[3]]["output"])
    again = batch.run("resample", [str(corpus)], str(out), rate=16000,
                      workers=2, progress=False)
    status = {r["input"]: r["status"] for r in again}
    assert status[good[3]] == "ok"
    assert sum(s == "skipped" for s in status.values()) == 37
    assert sum(s == "failed" for s in status.values()) == 2


def test_a_killed_worker_takes_no_file_with_it(tmp_path):
    rng = np.random.default_rng(6)
    corpus, out = tmp_path / "corpus", tmp_path / "out"
    good = []
    for i in range(8):
        x = 0.3 * rng.standard_normal((44100 * 10, 2))
        path = str(corpus / ("long%02d.wav" % i))
        os.makedirs(corpus, exist_ok=True)
        soundfile.write(path, x, 44100, subtype="PCM_16")
        good.append(path)
    killed = []

    def kill_one_worker():
        # A worker's process is a child of its nanny; kill the first that
        # runs a command on this corpus, while it runs (only this test's
        # commands: other tests may run the command at the same time).
        deadline = time.time() + 60
        while time.time() < deadline and not killed:
            ps = subprocess.run(["pgrep", "-f", "resample " + str(corpus)],
                                capture_output=True, text=True).stdout
            for pid in ps.split():
                try:
                    # The command may end between pgrep and here: look on.
                    ppid = open("/proc/%s/stat" % pid).read().split()[3]
                    os.kill(int(ppid), signal.SIGKILL)
                except (FileNotFoundError, ProcessLookupError):
                    continue
                killed.append(ppid)
                break
            time.sleep(0.05)

    killer = threading.Thread(target=kill_one_worker)
    killer.start()
    records = batch.run("resample", [str(corpus)], str(out), rate=48000,
                        workers=2, progress=False)
    killer.join()
    assert killed, "no worker was killed"
    assert sorted(r["input"] for r in records) == good
    # The killed command may have linked its output just before it died;
    # the retry then finds it complete and skips it. Only that one file.
    status = [r["status"] for r in records]
    assert status.count("ok") + status.count("skipped") == 8, records
    assert status.count("skipped") <= 1, records
    assert leftovers(str(out)) == []
    for r in records:
        assert soundfile.info(r["output"]).frames == round(
            44100 * 10 * 48000 / 44100)
