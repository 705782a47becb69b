#!/usr/bin/env python3
"""The page of `moravel-play view` in headless Chromium: load, drag, step, play, see the right
pictures, read the figures, lose the server and get it back.  view_test.py MORAVEL-PLAY [SCREENSHOT]

The clip's pictures carry their number as bright and dark cells, which are read from the canvas."""
import base64
import http.server
import json
import os
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import time
import urllib.error
import urllib.request
from pathlib import Path

PICTURES = 1200
CELLS = ("lum='if(mod(floor(N/pow(2\\,floor(X*4/W)+4*floor(Y*4/H)))\\,2)\\,200\\,40)':cb=128:cr=128")
DAMAGED, DROPPED = 50, 0
NUMBER_ON_CANVAS = """
  const c = document.getElementById('picture'), p = c.getContext('2d');
  let number = 0;
  for (let i = 0; i < 16; ++i) {
    const x = (i % 4 + 0.5) * c.width / 4, y = (Math.floor(i / 4) + 0.5) * c.height / 4;
    number |= (p.getImageData(x, y, 1, 1).data[1] > 120) << i;
  }
  return [number, Number(c.dataset.sample ?? -1), c.dataset.state];"""


class Browser:
    """Speaks WebDriver to Debian's chromedriver."""

    def __init__(self, folder):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE,
                                       stderr=subprocess.DEVNULL, text=True)
        port = next(re.search(r"successfully on port (\d+)", line).group(1)
                    for line in self.driver.stdout if "successfully" in line)
        self.base = f"http://127.0.0.1:{port}/session"
        self.open = urllib.request.build_opener(urllib.request.ProxyHandler({})).open
        arguments = ["--headless=new", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update",
                     "--disable-sync", f"--user-data-dir={folder}", "--window-size=1280,860"]
        if os.geteuid() == 0:
            arguments.append("--no-sandbox")
        session = self.call("", {"capabilities": {"alwaysMatch": {
            "browserName": "chrome", "goog:chromeOptions": {"args": arguments}}}})
        self.base += "/" + session["sessionId"]

    def call(self, path, body=None, method="POST"):
        request = urllib.request.Request(self.base + path, method=method,
                                         headers={"Content-Type": "application/json"},
                                         data=None if body is None else json.dumps(body).encode())
        try:
            return json.load(self.open(request, timeout=60))["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(error.read().decode()) from None

    def run(self, script):
        return self.call("/execute/sync", {"script": script, "args": []})

    def keys(self, *keys):
        actions = [{"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]
        self.call("/actions", {"actions": [{"type": "key", "id": "keys", "actions": actions}]})

    def drag(self, points):
        moves = [{"type": "pointerMove", "duration": 20, "x": x, "y": y} for x, y in points]
        actions = [moves[0], {"type": "pointerDown", "button": 0}, *moves[1:],
                   {"type": "pointerUp", "button": 0}]
        self.call("/actions", {"actions": [{"type": "pointer", "id": "mouse", "actions": actions}]})

    def close(self):
        self.call("", method="DELETE")
        self.driver.terminate()
        self.driver.wait()


class Server:
    """Serves a file as track 1 by byte ranges; goes away and comes back at the same port."""

    def __init__(self, path):
        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):
                data = path.read_bytes()
                first, last = map(int, re.findall(r"\d+", self.headers["Range"]))
                part = data[first:last + 1]
                self.send_response(206)
                self.send_header("Content-Range", f"bytes {first}-{first + len(part) - 1}/{len(data)}")
                self.send_header("Content-Length", str(len(part)))
                self.send_header("ETag", '"1"')
                self.end_headers()
                self.wfile.write(part)

            def log_message(self, *_):
                pass

        class Threads(http.server.ThreadingHTTPServer):
            def process_request(self, request, client):
                connections.append(request)
                super().process_request(request, client)

            def handle_error(self, *_):  # cut connections
                pass

        connections = self.connections = []
        self.make = lambda port: Threads(("127.0.0.1", port), Handler)
        self.port = 0
        self.begin()

    def begin(self):
        self.server = self.make(self.port)
        self.port = self.server.server_port
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def end(self):
        self.server.shutdown()
        self.server.socket.close()
        for connection in self.connections:
            try:
                connection.shutdown(2)
            except OSError:
                pass


def make_clip(path):
    """One picture of it is damaged, and the first was dropped by the recorder."""
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
                    f"color=size=160x90:rate=25,geq={CELLS}", "-frames:v", str(PICTURES), "-c:v",
                    "mjpeg", "-q:v", "4", "-pix_fmt", "yuvj420p", "-metadata",
                    "timecode=10:00:00:00", str(path)], check=True)
    data = bytearray(path.read_bytes())
    index, movi = data.rindex(b"idx1") + 8, data.index(b"movi")
    for number in (DAMAGED, DROPPED):
        offset, size = struct.unpack_from("<II", data, index + 16 * number + 8)
        if number == DAMAGED:
            data[movi + offset + 8 + size // 2:movi + offset + 8 + size] = bytes(size - size // 2)
        else:
            struct.pack_into("<I", data, index + 16 * number + 12, 0)
    path.write_bytes(data)


def make_fields(path):
    """Interlaced, top field first: every field of 25 samples carries its own number."""
    def chunk(name, data):
        return name + struct.pack("<I", len(data)) + data + bytes(len(data) % 2)

    count = 25
    raw = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                          f"color=size=160x48:rate=50,geq={CELLS}", "-frames:v", str(2 * count), "-c:v",
                          "mjpeg", "-q:v", "4", "-pix_fmt", "yuvj420p", "-f", "image2pipe", "-"],
                         check=True, capture_output=True).stdout
    start = b"\xff\xd8\xff"
    fields = [b"\xff\xd8\xff\xe0\0\x10AVI1" + bytes([1 + i % 2]) + bytes(9) + b"\xff" + picture
              for i, picture in enumerate(raw.split(start)[1:])]
    movi, index = b"movi", b""
    for top, bottom in zip(fields[::2], fields[1::2]):
        index += b"00dc" + struct.pack("<III", 16, len(movi), len(top + bottom))
        movi += chunk(b"00dc", top + bottom)
    stream = (chunk(b"strh", b"vidsMJPG" + struct.pack("<10I4H", 0, 0, 0, 1, 25, 0, count, 0, 0, 0, 0, 0,
                                                       160, 96)) +
              chunk(b"strf", struct.pack("<IiiHH4s5I", 40, 160, 96, 1, 24, b"MJPG", *[0] * 5)))
    header = (b"hdrl" + chunk(b"avih", struct.pack("<14I", 40000, 0, 0, 16, count, 0, 1, 0, 160, 96,
                                                   0, 0, 0, 0)) +
              chunk(b"LIST", b"strl" + stream))
    path.write_bytes(chunk(b"RIFF", b"AVI " + chunk(b"LIST", header) + chunk(b"LIST", movi) +
                           chunk(b"idx1", index)))


def make_variable(path):
    """Pixels of 2:1; ten pictures in a quarter of a second each, then ten in a second each."""
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
                    f"color=size=160x90:rate=4,geq={CELLS},setsar=2/1,setpts='(N+3*max(0\\,N-10))/(4*TB)'",
                    "-frames:v", "20", "-fps_mode", "vfr", "-c:v", "mjpeg", "-q:v", "4", "-pix_fmt",
                    "yuvj420p", str(path)], check=True)


def wait(what, condition, seconds=30):
    end = time.monotonic() + seconds
    while not (value := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"{what}: not within {seconds} seconds")
        time.sleep(0.03)
    print(f"ok: {what}", flush=True)
    return value


def test(browser, server, address, screenshot):
    text = lambda name: browser.run(f"return document.getElementById('{name}').textContent")
    wanted = lambda: int(browser.run("return document.getElementById('bar').ariaValueNow ?? "
                                     "document.getElementById('bar').getAttribute('aria-valuenow')"))
    canvas = lambda: browser.run(NUMBER_ON_CANVAS)
    shows = lambda number: canvas()[:2] == [number, number]
    click = lambda name: browser.run(f"document.getElementById('{name}').click()")
    banner = lambda: browser.run("return document.getElementById('banner').hidden ? '' : "
                                 "document.getElementById('banner').textContent")

    browser.call("/url", {"url": address + "#track=1&sample=7"})
    wait("the page shows the picture of its address", lambda: shows(7))
    box = browser.run("const b = document.getElementById('bar').getBoundingClientRect();"
                      "return [b.left, b.top, b.width, b.height].map(Math.round)")
    y = box[1] + box[3] // 2
    browser.drag([(box[0] + 12 + (box[2] - 24) * i // 40, y) for i in (5, 30, 10, 25, 20)])
    assert abs(wanted() - PICTURES // 2) <= 2, wanted()
    wait("dragging ends at its last position", lambda: shows(wanted()))

    at = wanted()
    browser.keys("\ue014", "\ue014", "\ue014", "\ue012")  # right three times, left once
    wait("keys step", lambda: shows(at + 2))
    browser.run("""const make = window.createImageBitmap;
                   window.createImageBitmap = async picture => {
                     window.createImageBitmap = make;
                     await new Promise(done => setTimeout(done, 300));
                     return make(picture).finally(() => { setTimeout(() => { window.wasSlow = true; }); });
                   };""")
    browser.keys("\ue014", "\ue012")
    wait("a picture that is ready late", lambda: browser.run("return window.wasSlow"))
    assert shows(at + 2), canvas()
    browser.keys("g")
    browser.keys(*"00:00:05:12", "\ue007")
    wait("a time is gone to", lambda: shows(137) and text("timecode") == "TC 10:00:05:12")
    browser.keys("g", *"tc 10:00:05:20", "\ue007")
    wait("a time code of the file is gone to", lambda: shows(145))

    click("forward")
    wait("it plays", lambda: canvas()[1] >= 150)
    for _ in range(10):
        number, sample, _ = canvas()
        assert number == sample, (number, sample)
    click("forward")
    wait("it pauses", lambda: shows(wanted()))
    at = wanted()
    browser.run("document.getElementById('speed').value = '8'")
    click("backward")
    wait("it plays backward to the beginning", 
         lambda: canvas()[1:] == [0, "missing"] and wanted() == 0)
    wait("it is paused there", lambda: browser.run(
        "return document.getElementById('backward').ariaPressed === 'false'"))

    wait("thumbnails come", lambda: browser.run(
        "const s = document.getElementById('strip');"
        "return s.children.length > 2 && s.querySelectorAll('img').length === s.children.length"))
    wait("figures are told", lambda: re.search(r"order[\d.]+ msdecode[\d.]+ ms.*cache.*MBfound\d+ %link.*MB/sbusy\d+ %",
                                               re.sub(r"\n\s*", "", text("figures"))))
    for number, state in ((DAMAGED, ("damaged", "broken")), (DROPPED, ("missing",))):
        browser.run(f"location.hash = '#track=1&sample={number}'; location.reload()")
        wait(f"picture {number} is {state[0]}", lambda: canvas()[1:] in [[number, s] for s in state])
    if screenshot:
        browser.run("location.hash = '#track=2&sample=500'; location.reload()")
        time.sleep(6)
        Path(screenshot).write_bytes(base64.b64decode(browser.call("/screenshot", method="GET")))
        browser.run("location.hash = '#track=1&sample=60'; location.reload()")
        wait("the first track is shown again", lambda: shows(60))

    def choose(name, value):
        browser.run(f"const s = document.getElementById('{name}'); s.value = '{value}';"
                    "s.dispatchEvent(new Event('change'))")

    choose("track", 3)
    wait("a track of fields is shown", lambda: canvas()[1] == 0 and "top field first" in text("facts"))
    for field, number in (("top", 0), ("bottom", 1), ("turn", 0)):
        choose("field", field)
        wait(f"field {field} is shown", lambda: canvas()[:2] == [number, 0])
    browser.keys("\ue014", "\ue014", "\ue014")
    wait("fields are stepped in turn", lambda: canvas()[:2] == [3, 1] and "bottom" in text("number"))
    choose("size", 4)
    wait("a chosen size is the size of the picture", lambda: browser.run(
        "const c = document.getElementById('picture'); return [c.width, c.clientWidth]") == [40, 40])
    choose("size", 0)
    choose("field", "frame")

    choose("track", 4)
    wait("a track of variable rate is shown", lambda: shows(0) and "variable" in text("facts"))
    shape = browser.run("const c = document.getElementById('picture'); return c.clientWidth / c.clientHeight")
    assert abs(shape - 320 / 90) < 0.05, shape
    browser.keys("g", *"5.7", "\ue007")
    wait("a time is that of the samples", lambda: shows(13) and browser.run(
        "return document.getElementById('time').value") == "00:00:05.500")
    browser.keys("\ue00f")  # page down
    wait("a second on is a second on", lambda: shows(14))
    choose("speed", 8)
    begin = time.monotonic()
    click("forward")
    wait("it plays by the samples' times", lambda: shows(19))
    assert 0.4 < time.monotonic() - begin < 3, time.monotonic() - begin
    choose("track", 1)
    wait("the first track comes again", lambda: shows(0) or canvas()[1:] == [0, "missing"])

    server.end()
    browser.keys("\ue010")  # end
    wait("a server that is gone is told", lambda: "connect" in banner())
    server.begin()
    wait("it goes on when it is back", lambda: shows(PICTURES - 1) and not banner())


def main():
    for tool, package in (("chromedriver", "chromium-driver"), ("chromium", "chromium"), ("ffmpeg", "ffmpeg")):
        if shutil.which(tool) is None:
            sys.exit(f"view_test: there is no {tool}: apt-get install {package}, or use ./dev check")
    program, screenshot = sys.argv[1], sys.argv[2] if len(sys.argv) > 2 else None
    with tempfile.TemporaryDirectory() as folder:
        clip = Path(folder) / "clip.avi"
        make_clip(clip)
        fields, variable = Path(folder) / "fields.avi", Path(folder) / "variable.mov"
        make_fields(fields)
        make_variable(variable)
        server = Server(clip)
        other = os.environ.get("VIEW_TEST_CLIP", str(clip))
        viewer = subprocess.Popen([program, "view", f"127.0.0.1:{server.port}:T1", other,
                                   str(fields), str(variable)],
                                  stdout=subprocess.PIPE, text=True)
        browser = Browser(f"{folder}/profile")
        try:
            test(browser, server, viewer.stdout.readline().strip(), screenshot)
        finally:
            browser.close()
            begin = time.monotonic()
            viewer.send_signal(signal.SIGINT)
            code = viewer.wait(timeout=10)
        assert code == 0 and time.monotonic() - begin < 2, code
        print("ok: the program ends at once")


if __name__ == "__main__":
    main()
