#!/usr/bin/env python3
"""The demo page in a real browser: loads it in headless Chromium and fails
unless every picture was decoded (natural width above 0), every player's
duration matches its WAVE file (frames / rate, within 0.05 s) and a
screenshot of the page shows more than one colour.

usage: demo_check.py PAGE.html   (standard library only)
"""
import html
import json
import os
import re
import struct
import subprocess
import sys
import tempfile
import zlib

TOLERANCE_S = 0.05
FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
         "--no-first-run", "--disable-background-networking",
         "--disable-component-update", "--disable-sync"]

# Runs inside the page once it has loaded: images are then settled; each
# player is waited for until its metadata or its error arrives. The result
# goes into the DOM, where --dump-dom shows it.
PROBE = """<script>
window.addEventListener('load', function () {
  var players = Array.prototype.slice.call(document.querySelectorAll('audio'));
  var left = players.length + 1; /* each player, and the loop below */
  function finish() {
    if (--left > 0) return;
    var out = {
      images: Array.prototype.map.call(document.images, function (i) {
        return {src: i.getAttribute('src'), width: i.naturalWidth}; }),
      audio: players.map(function (a) {
        return {src: a.getAttribute('src'), duration: a.duration,
                error: a.error ? a.error.code : 0}; })};
    var pre = document.createElement('pre');
    pre.id = 'demo-check';
    pre.textContent = JSON.stringify(out);
    document.body.appendChild(pre);
  }
  players.forEach(function (a) {
    var settled = false;
    function settle() { if (!settled) { settled = true; finish(); } }
    if (a.readyState >= 1 || a.error) { settle(); return; }
    a.addEventListener('loadedmetadata', settle);
    a.addEventListener('error', settle);
  });
  finish();
});
</script>"""


def chromium(*args):
    with tempfile.TemporaryDirectory() as profile:
        run = subprocess.run(["chromium", *FLAGS, "--user-data-dir=" + profile,
                              *args], capture_output=True, text=True,
                             timeout=180)
    if run.returncode != 0:
        sys.exit("demo check: chromium failed:\n" + run.stderr[-2000:])
    return run.stdout


def wave_seconds(path):
    """Length of a RIFF/WAVE file from its fmt and data chunks."""
    with open(path, "rb") as f:
        data = f.read()
    if data[:4] != b"RIFF" or data[8:12] != b"WAVE":
        raise ValueError(path + " is not a WAVE file")
    at, rate, align, size = 12, None, None, None
    while at + 8 <= len(data):
        kind, length = data[at:at + 4], struct.unpack("<I", data[at + 4:at + 8])[0]
        if kind == b"fmt ":
            rate, = struct.unpack("<I", data[at + 12:at + 16])
            align, = struct.unpack("<H", data[at + 20:at + 22])
        elif kind == b"data":
            size = length
        at += 8 + length + (length & 1)
    if not rate or not align or size is None:
        raise ValueError(path + " has no fmt or data chunk")
    return size // align / rate


def probe(page, shot):
    """The page's own results, from a copy with the probe beside it, and a
    screenshot of it in the same run of the browser."""
    text = open(page, encoding="utf-8").read()
    if "</body>" not in text:
        sys.exit("demo check: the page has no </body>")
    fd, copy = tempfile.mkstemp(suffix=".html", dir=os.path.dirname(page))
    try:
        with os.fdopen(fd, "w", encoding="utf-8") as f:
            f.write(text.replace("</body>", PROBE + "</body>"))
        dom = chromium("--virtual-time-budget=20000", "--dump-dom",
                       "--screenshot=" + shot, "--window-size=1200,2000",
                       "file://" + copy)
    finally:
        os.unlink(copy)
    found = re.search(r'<pre id="demo-check">(.*?)</pre>', dom, re.S)
    if not found:
        sys.exit("demo check: the page never finished loading its players")
    return json.loads(html.unescape(found.group(1)))


def problems(page, result):
    where = os.path.dirname(page)
    bad = []
    if not result["images"] or not result["audio"]:
        bad.append("the page shows no picture or no player")
    for image in result["images"]:
        if not image["width"] > 0:
            bad.append("picture %s did not load" % image["src"])
    for player in result["audio"]:
        want = wave_seconds(os.path.join(where, player["src"]))
        got = player["duration"]
        if player["error"] or got is None or abs(got - want) > TOLERANCE_S:
            bad.append("player %s: %s s (error %s), the file holds %.3f s"
                       % (player["src"], got, player["error"], want))
    return bad


def png_pixels(path):
    """Pixels of an 8-bit RGB or RGBA PNG as rows of bytes, unfiltered."""
    data = open(path, "rb").read()
    at, idat, head = 8, b"", None
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        if kind == b"IHDR":
            head = struct.unpack(">IIBB", data[at + 8:at + 18])
        elif kind == b"IDAT":
            idat += data[at + 8:at + 8 + length]
        at += 12 + length
    width, height, depth, colour = head
    if depth != 8 or colour not in (2, 6):
        raise ValueError("screenshot is not 8-bit RGB(A)")
    bpp = 3 if colour == 2 else 4
    raw, stride, rows, prev = zlib.decompress(idat), width * bpp, [], None
    for y in range(height):
        kind, line = raw[y * (stride + 1)], bytearray(
            raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        prev = prev or bytearray(stride)
        for i in range(stride):
            a = line[i - bpp] if i >= bpp else 0
            b, c = prev[i], prev[i - bpp] if i >= bpp else 0
            if kind == 1:
                line[i] = (line[i] + a) & 255
            elif kind == 2:
                line[i] = (line[i] + b) & 255
            elif kind == 3:
                line[i] = (line[i] + (a + b) // 2) & 255
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[i] = (line[i] + (a if pa <= pb and pa <= pc else
                                      b if pb <= pc else c)) & 255
        rows.append(bytes(line))
        prev = line
    return rows, bpp


def screenshot_problem(shot):
    if not os.path.exists(shot):
        return "the browser took no screenshot"
    rows, bpp = png_pixels(shot)
    counts = {}
    for row in rows:
        for x in range(0, len(row), bpp * 2):  # every other pixel is plenty
            key = row[x:x + 3]
            counts[key] = counts.get(key, 0) + 1
    commonest = max(counts.values()) / sum(counts.values())
    print("screenshot %s: %d colours, the commonest on %.1f%% of it"
          % (shot, len(counts), 100 * commonest))
    if len(counts) < 64 or commonest > 0.98:
        return "the screenshot is blank or nearly one colour"
    return None


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: demo_check.py PAGE.html")
    page = os.path.abspath(sys.argv[1])
    shot = os.path.join(os.path.dirname(page), "check-screenshot.png")
    if os.path.exists(shot):
        os.unlink(shot)
    result = probe(page, shot)
    bad = problems(page, result)
    for image in result["images"]:
        print("picture %-20s %5d px wide" % (image["src"], image["width"]))
    for player in result["audio"]:
        print("player  %-32s %.3f s" % (player["src"], player["duration"] or 0))
    blank = screenshot_problem(shot)
    bad += [blank] if blank else []
    for line in bad:
        print("demo check: " + line, file=sys.stderr)
    if bad:
        sys.exit(1)
    print("demo check: every picture and player loaded in the browser")


if __name__ == "__main__":
    main()
