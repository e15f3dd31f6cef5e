"""Corpus-scale runs of one tolv operation over many files, on Dask.

    python3 -m tolv.batch resample --rate 16000 --out out/ corpus/
    python3 -m tolv.batch filter --text 'type=highpass, fpass=80, order=4' \\
        --out out/ 'corpus/**/*.flac'
    python3 -m tolv.batch stretch --speed 0.9 --out out/ @list.txt \\
        --scheduler tcp://10.0.0.5:8786

Each file is handed to the tolv command itself, so every output is the
command's to the bit; outputs keep the inputs' relative paths under --out.
The command writes each output into an unnamed temporary file and links it
into place at the end, so an output that exists is complete: a second run
skips it, and a killed worker leaves nothing half-written (its command dies
with it). A manifest (JSON lines, or CSV for a .csv name) records every
file; one bad file is recorded with the library's message and never stops
the run, which then ends with a non-zero status.
"""
import argparse
import csv
import ctypes
import glob
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time

AUDIO = (".wav", ".flac", ".aiff", ".aif", ".au", ".caf", ".w64", ".rf64",
         ".ogg", ".oga")
OPERATIONS = ("resample", "filter", "stretch", "spectrum", "delay")
FIELDS = ("input", "output", "frames_in", "frames_out", "seconds", "status",
          "error")


def tolv_command():
    """The tolv program: $TOLV_COMMAND, the build tree beside this package,
    or the one on PATH."""
    if os.environ.get("TOLV_COMMAND"):
        return os.environ["TOLV_COMMAND"]
    here = os.path.dirname(os.path.abspath(__file__))
    built = os.path.join(here, "..", "..", "tools", "tolv", "tolv")
    if os.access(built, os.X_OK):
        return os.path.abspath(built)
    found = shutil.which("tolv")
    if not found:
        raise SystemExit("tolv.batch: the tolv command is not installed "
                         "(set TOLV_COMMAND)")
    return found


def expand(inputs):
    """(path, path relative to its root) for folders, globs and @lists."""
    found = []
    for item in inputs:
        if item.startswith("@"):
            with open(item[1:]) as f:
                paths = [ln.strip() for ln in f if ln.strip()]
            found += relative(paths)
        elif os.path.isdir(item):
            paths = [os.path.join(d, n) for d, _, names in os.walk(item)
                     for n in names if n.lower().endswith(AUDIO)]
            found += [(p, os.path.relpath(p, item)) for p in sorted(paths)]
        else:
            found += relative(sorted(glob.glob(item, recursive=True)) or
                              [item])
    return found


def relative(paths):
    if not paths:
        return []
    root = os.path.commonpath([os.path.dirname(os.path.abspath(p))
                               for p in paths])
    return [(p, os.path.relpath(os.path.abspath(p), root)) for p in paths]


def output_name(op, rel, out_dir):
    base = os.path.join(out_dir, rel)
    return base if op in ("resample", "filter", "stretch") else \
        os.path.splitext(base)[0] + ".csv"


def command_line(op, src, dst, options):
    """The tolv command for one file."""
    o = options
    if op == "resample":
        extra = ["--rate", str(o["rate"]), "--quality", o["quality"]]
        return ["resample", src, dst] + extra
    if op == "filter":
        return ["filter", src, dst, o["text"]]
    if op == "stretch":
        return ["stretch", src, dst, "--speed", str(o["speed"]),
                "--frame-ms", str(o["frame_ms"])]
    if op == "spectrum":
        return ["spectrum", src, "--csv", dst]
    return ["delay", o["reference"], src, "--csv", dst]


def _die_with_parent():
    # PR_SET_PDEATHSIG: the command ends with the worker that started it.
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)


def frames_of(path):
    try:
        import soundfile
        return soundfile.info(path).frames
    except Exception:
        return None


def process_one(job):
    """Runs the command for one file; the record for the manifest."""
    src, dst, argv, tool = job["input"], job["output"], job["argv"], \
        job["tool"]
    record = dict(input=src, output=dst, frames_in=None, frames_out=None,
                  seconds=0.0, status="ok", error="")
    if os.path.exists(dst):
        record.update(status="skipped", frames_out=frames_of(dst))
        return record
    os.makedirs(os.path.dirname(dst) or ".", exist_ok=True)
    start = time.perf_counter()
    done = subprocess.run([tool] + argv, capture_output=True, text=True,
                          preexec_fn=_die_with_parent)
    record["seconds"] = round(time.perf_counter() - start, 4)
    record["frames_in"] = frames_of(src)
    if done.returncode != 0:
        lines = done.stderr.strip().splitlines()
        record.update(status="failed", error=lines[-1] if lines else
                      "exit status %d" % done.returncode)
        return record
    m = re.search(r": (\d+) frames \(expected", done.stdout + done.stderr)
    record["frames_out"] = int(m.group(1)) if m else frames_of(dst)
    return record


class Manifest:
    """Records as they arrive: JSON lines, or CSV for a .csv name."""

    def __init__(self, path):
        os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
        self.file = open(path, "w", newline="")
        self.csv = path.endswith(".csv")
        if self.csv:
            self.writer = csv.DictWriter(self.file, FIELDS)
            self.writer.writeheader()

    def add(self, record):
        if self.csv:
            self.writer.writerow(record)
        else:
            self.file.write(json.dumps(record) + "\n")
        self.file.flush()

    def close(self):
        self.file.close()


class Progress:
    """Files done, rate and time left, on stderr when it is a terminal."""

    def __init__(self, total, show):
        self.total, self.done, self.show = total, 0, show
        self.start = time.perf_counter()

    def step(self):
        self.done += 1
        if not self.show:
            return
        elapsed = time.perf_counter() - self.start
        rate = self.done / elapsed if elapsed > 0 else 0.0
        left = (self.total - self.done) / rate if rate > 0 else 0.0
        width = 30
        bar = "#" * (width * self.done // max(1, self.total))
        sys.stderr.write("\r[%-*s] %d/%d files, %.1f files/s, %d s left " %
                         (width, bar, self.done, self.total, rate, left))
        if self.done == self.total:
            sys.stderr.write("\n")
        sys.stderr.flush()


def client_for(scheduler, workers):
    from dask.distributed import Client, LocalCluster
    if scheduler:
        return Client(scheduler), None
    cluster = LocalCluster(n_workers=workers or os.cpu_count() or 1,
                           threads_per_worker=1, processes=True,
                           dashboard_address=None)
    return Client(cluster), cluster


def run(operation, inputs, out_dir, rate=None, quality="high", text=None,
        speed=None, frame_ms=20, reference=None, manifest=None,
        scheduler=None, workers=None, progress=None, retries=3):
    """Runs `operation` over the inputs; returns the records, one per file.
    A failed file gives status "failed" with its error text."""
    if operation not in OPERATIONS:
        raise ValueError("operation must be one of " + ", ".join(OPERATIONS))
    options = dict(rate=rate, quality=quality, text=text, speed=speed,
                   frame_ms=frame_ms, reference=reference)
    tool = tolv_command()
    jobs = []
    for src, rel in expand(inputs):
        dst = output_name(operation, rel, out_dir)
        jobs.append(dict(input=src, output=dst, tool=tool,
                         argv=command_line(operation, src, dst, options)))
    from dask.distributed import as_completed
    client, cluster = client_for(scheduler, workers)
    book = Manifest(manifest or os.path.join(out_dir, "manifest.jsonl"))
    bar = Progress(len(jobs), sys.stderr.isatty() if progress is None
                   else progress)
    records = []
    try:
        futures = client.map(process_one, jobs, retries=retries, pure=False)
        for future in as_completed(futures):
            record = future.result()
            records.append(record)
            book.add(record)
            bar.step()
    finally:
        book.close()
        client.close()
        if cluster is not None:
            cluster.close()
    return records


def main(argv=None):
    p = argparse.ArgumentParser(prog="python3 -m tolv.batch",
                                description=__doc__.split("\n\n")[0])
    p.add_argument("operation", choices=OPERATIONS)
    p.add_argument("inputs", nargs="+",
                   help="files, folders, globs, or @file with one path a "
                        "line")
    p.add_argument("--out", required=True, help="output folder")
    p.add_argument("--rate", type=int)
    p.add_argument("--quality", default="high")
    p.add_argument("--text", help="filter text")
    p.add_argument("--speed", type=float)
    p.add_argument("--frame-ms", type=int, default=20)
    p.add_argument("--reference", help="the file delays are measured against")
    p.add_argument("--manifest", help="default: OUT/manifest.jsonl")
    p.add_argument("--scheduler", help="tcp://HOST:PORT of a running cluster")
    p.add_argument("--workers", type=int, help="local worker processes "
                   "(default: one per core)")
    a = p.parse_args(argv)
    needs = dict(resample="rate", filter="text", stretch="speed",
                 delay="reference")
    if a.operation in needs and getattr(a, needs[a.operation]) is None:
        p.error("%s needs --%s" % (a.operation, needs[a.operation]))
    records = run(a.operation, a.inputs, a.out, rate=a.rate,
                  quality=a.quality, text=a.text, speed=a.speed,
                  frame_ms=a.frame_ms, reference=a.reference,
                  manifest=a.manifest, scheduler=a.scheduler,
                  workers=a.workers)
    failed = [r for r in records if r["status"] == "failed"]
    counts = {s: sum(r["status"] == s for r in records)
              for s in ("ok", "skipped", "failed")}
    print("%d files: %d done, %d skipped, %d failed" %
          (len(records), counts["ok"], counts["skipped"], counts["failed"]))
    for r in failed:
        print("failed: %s: %s" % (r["input"], r["error"]), file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
