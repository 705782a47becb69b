#!/usr/bin/env python3
"""Runs the benchmarks beside their peers and writes one table, and the same as JSON.

Every figure is a ratio of two contestants on the same bytes. They take turns, several rounds; the
median of the rounds' ratios is told, so that the machine's mood is shared by both.
"""
import argparse
import json
import re
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

CLIP_SECONDS = 8
CLIP_RATE = 25
CLIP_PICTURES = CLIP_SECONDS * CLIP_RATE
LONG_COPIES = 5  # of a clip, for rows that a program's start would distort


class Row:
    """One line of the table: what was reached, what is to be reached, and, where the machine and
    the library underneath set one, the most that can be."""

    def __init__(self, name, against, value, relation, target, unit="x", limit=None, note=""):
        self.name, self.against, self.value = name, against, value
        self.relation, self.target, self.unit = relation, target, unit
        self.limit, self.note = limit, note

    def reached(self):
        return self.value >= self.target if self.relation == ">=" else self.value <= self.target

    def as_dict(self):
        return {"row": self.name, "against": self.against, "value": round(self.value, 4),
                "unit": self.unit, "target": f"{self.relation} {self.target}",
                "reached": self.reached(), "limit": self.limit and round(self.limit, 4),
                "note": self.note}


class Suite:
    """Runs of a Google Benchmark program. Each round is a process of its own: where its memory
    lies, and whether the kernel lets two threads share a core, stays with a process."""

    def __init__(self, program, arguments, rounds, seconds, pattern="."):
        command = [str(program), *map(str, arguments), "--benchmark_format=json",
                   f"--benchmark_filter={pattern}", f"--benchmark_min_time={seconds}",
                   "--benchmark_enable_random_interleaving=true"]
        self.rounds = []
        for _ in range(rounds):
            report = json.loads(subprocess.run(command, check=True, stdout=subprocess.PIPE,
                                               stderr=subprocess.DEVNULL).stdout)
            endings = re.compile("/(real_time|iterations:1|manual_time)")
            self.rounds.append({endings.sub("", run["run_name"]): run
                                for run in report["benchmarks"]})

    def median(self, name, field):
        return statistics.median(runs[name][field] for runs in self.rounds)

    def ratio(self, name, other, field):
        """Of contestants in the same round, which the machine's mood has hit alike."""
        return statistics.median(runs[name][field] / runs[other][field] for runs in self.rounds)


def bytes_a_picture(clip):
    return clip.stat().st_size / CLIP_PICTURES


def make_video(path, quality, pixel_format, size="1920x1080"):
    """Detailed moving pictures with noise: entropy coding has work to do."""
    if path.exists():
        return path
    path.parent.mkdir(parents=True, exist_ok=True)
    part = path.with_suffix(".part")
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
                    f"testsrc2=size={size}:rate={CLIP_RATE},noise=alls=12:allf=t", "-t",
                    str(CLIP_SECONDS),
                    "-c:v", "mjpeg", "-q:v", str(quality), "-pix_fmt", pixel_format, "-f", "avi",
                    str(part)], check=True)
    part.rename(path)
    return path


def make_interlaced(fields, path):
    """An AVI of frames that are two field pictures each, from an AVI of the fields."""
    if path.exists():
        return path
    data = bytearray(fields.read_bytes())
    at = data.rindex(b"idx1")
    size = struct.unpack_from("<I", data, at + 4)[0]
    movi = data.index(b"movi")
    pictures = []
    for entry in range(at + 8, at + 8 + size, 16):
        offset, length = struct.unpack_from("<II", data, entry + 8)
        pictures.append(data[movi + offset + 8:movi + offset + 8 + length])
    chunks, index = bytearray(), bytearray()
    for first, second in zip(pictures[::2], pictures[1::2]):
        frame = first + second
        index += struct.pack("<4sIII", b"00dc", 16, len(chunks) + 4, len(frame))
        chunks += struct.pack("<4sI", b"00dc", len(frame)) + frame + b"\0" * (len(frame) % 2)
    struct.pack_into("<I", data, movi - 4, len(chunks) + 4)
    data[movi + 4:] = chunks + struct.pack("<4sI", b"idx1", len(index)) + index
    header, stream = data.index(b"avih") + 8, data.index(b"strh") + 8
    struct.pack_into("<I", data, header + 16, len(pictures) // 2)
    struct.pack_into("<I", data, stream + 32, len(pictures) // 2)
    struct.pack_into("<I", data, data.index(b"strf") + 8 + 8, 1080)  # of the frame
    struct.pack_into("<I", data, 4, len(data) - 8)
    path.write_bytes(data)
    return path


def make_longer(source):
    path = source.with_stem(source.stem + "-long")
    if not path.exists():
        part = path.with_suffix(".part")
        subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-stream_loop",
                        str(LONG_COPIES - 1), "-i", str(source), "-c", "copy", "-f", "avi",
                        str(part)], check=True)
        part.rename(path)
    return path


def repeat_index(source, path, copies):
    """An AVI whose index lists the pictures of `source` again and again: a long track of few bytes."""
    if path.exists():
        return path
    data = bytearray(source.read_bytes())
    at = data.rindex(b"idx1")
    size = struct.unpack_from("<I", data, at + 4)[0]
    index = bytes(data[at + 8:at + 8 + size])
    entries = size // 16
    data[at + 4:] = struct.pack("<I", size * copies) + index * copies
    header = data.index(b"avih") + 8
    struct.pack_into("<I", data, header + 16, entries * copies)
    stream = data.index(b"strh") + 8
    struct.pack_into("<I", data, stream + 32, entries * copies)
    struct.pack_into("<I", data, 4, len(data) - 8)
    path.write_bytes(data)
    return path


def free_ports(count):
    probes = [socket.socket() for _ in range(count)]
    for probe in probes:
        probe.bind(("127.0.0.1", 0))
    ports = [probe.getsockname()[1] for probe in probes]
    for probe in probes:
        probe.close()
    return ports


class FarAway:
    """A port behind which a server of this machine is so many ms away."""

    def __init__(self, programs, port, round_trip_ms):
        self.process = subprocess.Popen([programs / "delay-proxy", str(port), str(round_trip_ms)],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.communicate()


class Nginx:
    """Serves files as tracks to all contestants of the whole-program runs, on several ports if
    there are to be several servers."""

    def __init__(self, tracks, servers=1, wrapper=()):
        self.folder = tempfile.TemporaryDirectory()
        root = Path(self.folder.name)
        (root / "tracks").mkdir()
        for number, file in tracks.items():
            (root / "tracks" / str(number)).symlink_to(file.resolve())
        self.ports = free_ports(servers)
        self.port = self.ports[0]
        listen = " ".join(f"listen 127.0.0.1:{port};" for port in self.ports)
        log = root / "error.log"
        config = root / "nginx.conf"
        config.write_text(f"""
            daemon off; master_process off; pid {root}/pid; error_log {log};
            events {{}}
            http {{ access_log off; sendfile on; client_body_temp_path {root}/b;
                    proxy_temp_path {root}/p; fastcgi_temp_path {root}/f;
                    uwsgi_temp_path {root}/u; scgi_temp_path {root}/s;
                    server {{ {listen} root {root}; }} }}""")
        nginx = "/usr/sbin/nginx"
        self.process = subprocess.Popen([*wrapper, nginx, "-e", str(log), "-c", str(config)],
                                        stderr=subprocess.DEVNULL)
        for _ in range(200):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return
            time.sleep(0.02)
        raise RuntimeError("nginx did not start: " + log.read_text())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        self.folder.cleanup()

    def url(self, number):
        return f"http://127.0.0.1:{self.port}/tracks/{number}"

    def track(self, number, server=0):
        return f"127.0.0.1:{self.ports[server]}:T{number}"


def timed(command, status=0):
    begin = time.monotonic()
    done = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    seconds = time.monotonic() - begin
    if done.returncode != status:
        raise RuntimeError(f"exit code {done.returncode} of {' '.join(command)}")
    return seconds


def race(contestants, rounds, status=0):
    """Wall times of each command, which ends with that exit code; they take turns."""
    times = {name: [] for name in contestants}
    for _ in range(rounds):
        for name, command in contestants.items():
            times[name].append(timed(command, status))
    return times


def ratio(times, name, other):
    """Of contestants in the same round, as in a suite."""
    return statistics.median(a / b for a, b in zip(times[name], times[other]))


def whole_programs(player, bare, server, number, width, height, chroma):
    """The commands of the end-to-end rows: one size, and three sizes, chroma as it is coded. The
    bare player always makes one size, and no more is to be had."""
    url, track = server.url(number), server.track(number)
    half, quarter = (width // 2, height // 2), (width // 4, height // 4)
    gst = ["gst-launch-1.0", "-q", "souphttpsrc", f"location={url}", "!", "avidemux", "!",
           "queue", "!", "jpegdec"]
    sink = ["!", "fakesink", "sync=false"]

    def branch(size):
        return ["t.", "!", "queue", "!", "videoscale", "!",
                f"video/x-raw,width={size[0]},height={size[1]}"] + sink
    split = (f"[0:v]split=3[a][b][c];[b]scale={half[0]}:{half[1]}[d];"
             f"[c]scale={quarter[0]}:{quarter[1]}[e]")
    ffmpeg = ["ffmpeg", "-nostdin", "-v", "error", "-i", url]
    null = ["-f", "null", "-"]
    play = [str(player), "--quiet", "--log-level", "none", "--format", chroma]
    one = {
        "moravel-play": play + [track],
        "bare": [str(bare), url],
        "ffmpeg": ffmpeg + ["-map", "0:v"] + null,
        "gstreamer": gst + sink,
    }
    three = {
        "moravel-play": play + ["--size", f"{width}x{height}", "--size", f"{half[0]}x{half[1]}",
                                "--size", f"{quarter[0]}x{quarter[1]}", track],
        "bare": [str(bare), url],
        "ffmpeg": ffmpeg + ["-filter_complex", split, "-map", "[a]"] + null +
                  ["-map", "[d]"] + null + ["-map", "[e]"] + null,
        "gstreamer": gst + ["!", "tee", "name=t", "t.", "!", "queue"] + sink +
                     branch(half) + branch(quarter),
    }
    return one, three


def end_to_end(player, bare_player, clips, rounds):
    rows = []
    with Nginx(dict(enumerate(clips, 1))) as server:
        for number, clip in enumerate(clips, 1):
            chroma = "I422" if "422" in clip.stem else "I420"
            one, three = whole_programs(player, bare_player, server, number, 1920, 1080, chroma)
            for name, contestants, target in (("one size end to end", one, 1.9),
                                              ("three sizes end to end", three, 2.0)):
                times = race(contestants, rounds)
                medians = {program: statistics.median(runs) for program, runs in times.items()}
                peer = min(("ffmpeg", "gstreamer"), key=medians.get)
                rows.append(Row(f"{name}, {clip.stem}", peer, ratio(times, peer, "moravel-play"),
                                ">=", target, limit=ratio(times, peer, "bare"),
                                note=" ".join(f"{program} {seconds:.2f} s"
                                              for program, seconds in medians.items())))
    return rows


def allocated(pid):
    """Memory that the program has of its own: not its code, nor that of its libraries."""
    status = Path(f"/proc/{pid}/status").read_text()
    return int(re.search(r"RssAnon:\s+(\d+)", status).group(1)) * 1024


def play_and_watch(command):
    """The program's memory over its run."""
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    sizes = []
    while process.poll() is None:
        try:
            sizes.append(allocated(process.pid))
        except (OSError, AttributeError):
            break
        time.sleep(0.05)
    process.wait()
    return sizes


def memory(player, source, clips, count):
    """A one-hour track: everything that the player holds, against what it cannot do without."""
    hour = repeat_index(source, clips / "one-hour.avi", 3600 // CLIP_SECONDS)
    jobs, window = 2, 32
    picture = 1920 * 1080 * 3 // 2
    in_flight = jobs + 2  # one in each worker, one handed on, one for the next
    needed = window * bytes_a_picture(source) + in_flight * picture
    with Nginx({1: hour}) as server:
        sizes = play_and_watch([str(player), "--quiet", "--window", str(window), "--jobs",
                                str(jobs), "--count", str(count), server.track(1)])
    early, late = sizes[len(sizes) // 4:len(sizes) // 2], sizes[len(sizes) // 2:]
    return [Row("memory, one-hour track, window 32", "window + pictures in flight",
                max(sizes) / needed, "<=", 1.5,
                note=f"peak {max(sizes) >> 20} MiB, needed {int(needed) >> 20} MiB"),
            Row("memory, later against earlier", "flat", max(late) / max(early), "<=", 1.05)]


def suites(programs, clips, rounds, seconds):
    overhead = Suite(programs / "library-bench", [], rounds, seconds)
    rows = []
    for name, label, limit, allocations in (
            ("PreloadOrderOverhead", "overhead of a preload order", 1.0, 8),
            ("DecodeOrderOverhead", "overhead of a decode order", 2.0, 16)):
        rows.append(Row(label, "nothing", overhead.median(name, "cpu_time") / 1000, "<=", limit,
                        "us"))
        rows.append(Row(label + ", allocations", "nothing", overhead.median(name, "allocations"),
                        "<=", allocations, ""))
    for clip in clips:
        suite = Suite(programs / "elements-bench", [clip], rounds, seconds, "Decode")
        rows += decoding(suite, clip.stem)
    return rows


def decoding(suite, clip):
    one, bare = "DecodeSizes/1", "DecodeBareTurboJpeg"
    return [
        Row(f"decode one size, {clip}", "bare TurboJPEG", suite.ratio(bare, one, "cpu_time"),
            ">=", 0.97, note=f"{1000 / suite.median(one, 'cpu_time'):.0f} pictures/s"),
        Row(f"decode one size, {clip}", "ffmpeg's decoder, one thread",
            suite.ratio("DecodeAvcodec", one, "cpu_time"), ">=", 1.25,
            limit=suite.ratio("DecodeAvcodec", bare, "cpu_time")),
        Row(f"three sizes, CPU time, {clip}", "one size",
            suite.ratio("DecodeSizes/3", one, "cpu_time"), "<=", 1.25),
        Row(f"four sizes from four threads, {clip}", "one thread",
            suite.ratio("DecodeFourSizes/4", "DecodeFourSizes/1", "items_per_second"), ">=", 1.9,
            limit=suite.ratio(bare + "/threads:2", bare, "items_per_second")),
    ]


def random_reading(programs, clip, rounds, seconds):
    suite = Suite(programs / "elements-bench", [clip], rounds, seconds, "Random")
    clip = clip.stem
    return [
        Row(f"random preloads, {clip}", "bare libcurl, same ranges",
            suite.ratio("PreloadRandom", "BareCurlRandom", "items_per_second"), ">=", 0.9),
        Row(f"random preloads, requests, {clip}", "one a sample",
            suite.median("PreloadRandom", "requests"), "<=", 1, ""),
        Row(f"random preloads, extra bytes, {clip}", "the sample",
            suite.median("PreloadRandom", "extra_bytes"), "<=", 1024, "B"),
    ]


def sequential_reading(programs, clip, rounds, seconds):
    suite = Suite(programs / "elements-bench", [clip], rounds, seconds, "Sequential|Link")

    def speed(name):
        return f"{suite.median(name, 'bytes_per_second') / 1e6:.0f} MB/s"
    return [
        Row(f"sequential preloads, {clip.stem}", "bare libcurl, 4 MiB ranges",
            suite.ratio("PreloadSequential", "BareCurlSequential", "bytes_per_second"), ">=", 0.9,
            note=speed("PreloadSequential")),
        Row(f"sequential preloads, requests, {clip.stem}", "a sample",
            suite.median("PreloadSequential", "requests_per_sample"), "<=", 0.3, ""),
        Row(f"sequential preloads over 5 ms, {clip.stem}", "the link's bulk rate",
            suite.ratio("PreloadOverLink", "BulkOverLink", "bytes_per_second"), ">=", 0.85,
            note=speed("PreloadOverLink")),
    ]


def far_reading(programs, clip, rounds):
    """Through a link of 50 MB/s and 5 or 40 ms: the orders of a player that does not play forward."""
    suite = Suite(programs / "elements-bench", [clip], rounds, 0.01, "Along|Jog|Waste|Far")
    speed = "samples_per_second"

    def note(name):
        return f"{suite.median(name, speed):.0f} samples/s"
    rows = []
    for trip in (5, 40):
        forward, reverse = f"PreloadAlong/{trip}/1/1000", f"PreloadAlong/{trip}/-1/1000"
        rows += [
            Row(f"reverse preloads over {trip} ms", f"forward, {note(forward)}",
                suite.ratio(reverse, forward, speed), ">=", 0.9, note=note(reverse)),
            Row(f"reverse preloads over {trip} ms, requests", "a sample",
                suite.median(reverse, "requests_per_sample"), "<=", 0.3, ""),
        ]
    for step, samples in ((2, 480), (4, 240), (8, 120)):
        forward = f"PreloadAlong/40/1/{samples}"
        for sign in (1, -1):
            stepping = f"PreloadAlong/40/{sign * step}/{samples}"
            rows.append(Row(f"every {sign * step}th sample over 40 ms",
                            f"forward, {samples} samples", suite.ratio(stepping, forward, speed),
                            ">=", 0.8, note=note(stepping)))
    rows.append(Row("20 forward, 20 back, over 40 ms", "forward, 240 samples",
                    suite.ratio("PreloadJog/40", "PreloadAlong/40/1/240", speed), ">=", 0.7,
                    note=note("PreloadJog/40")))
    for readers in (1, 4, 16):
        ours, bare = f"PreloadRandomFar/{readers}", f"BareCurlRandomFar/{readers}"
        rows.append(Row(f"random preloads over 40 ms, {readers} preloaders",
                        "as many bare libcurl loops", suite.ratio(ours, bare, speed), ">=", 0.9,
                        note=note(ours)))
    wasted = max(suite.median(f"WasteOfAPattern/{step}/{samples}", "of_allowed")
                 for step in (1, -1) for samples in (3, 10, 100, 500))
    rows.append(Row("asked for beyond a pattern's end", "4 samples or a tenth of those used", wasted,
                    "<=", 1.05, note="the worst of 8 patterns"))
    return rows


def scrubbing(programs, source, clips, rounds):
    hour = repeat_index(source, clips / "one-hour.avi", 3600 // CLIP_SECONDS)
    runs = [json.loads(subprocess.run([str(programs / "scrub-bench"), str(hour)], check=True,
                                      stdout=subprocess.PIPE).stdout) for _ in range(rounds)]

    def median(name):
        return statistics.median(run[name] for run in runs)
    one = "round trip, transfer, decode"
    orders = median("shown") + median("stale")
    note = f"{median('one_ms'):.0f} ms; {median('stale'):.0f} of {orders:.0f} orders became stale"
    return [Row("scrub over an hour, 40 ms, p50", one, median("p50"), "<=", 1.3, note=note),
            Row("scrub over an hour, 40 ms, p99", one, median("p99"), "<=", 2.5,
                limit=median("bare_p99"), note=note),
            Row("scrub back over what was seen", "decode alone", median("back"), "<=", 1.2,
                note=f"{median('decode_ms'):.1f} ms")]


def first_pictures(player, programs, clip, rounds, seconds):
    """From nothing to the first picture: inside a program, and with its start."""
    suite = Suite(programs / "elements-bench", [clip], rounds, seconds, "FirstPicture")
    rows = []
    for trip in (0, 40):
        where = f"{trip} ms" if trip else "loopback"
        rows.append(Row(f"open to first picture, {where}", "the round trips needed, decode",
                        suite.ratio(f"FirstPicture/{trip}", f"BareFirstPicture/{trip}", "real_time"),
                        "<=", 1.3, note=f"{suite.median(f'FirstPicture/{trip}', 'real_time'):.1f} ms"))

    play = [str(player), "--quiet", "--log-level", "none", "--count", "1"]
    with Nginx({1: clip}) as server, FarAway(programs, server.port, 40) as far:
        for where, port in (("loopback", server.port), ("40 ms", far.port)):
            times = race({"ours": play + [f"127.0.0.1:{port}:T1"],
                          "ffmpeg": ["ffmpeg", "-nostdin", "-v", "error", "-i",
                                     f"http://127.0.0.1:{port}/tracks/1", "-frames:v", "1", "-f",
                                     "null", "-"]}, rounds)
            rows.append(Row(f"start to first picture, {where}", "the ffmpeg program",
                            ratio(times, "ffmpeg", "ours"), ">=", 3.0,
                            note=f"{1000 * statistics.median(times['ours']):.0f} ms"))
    return rows


def starting(player, rounds):
    """Up to the first order, which nobody answers. The program has none of libavformat's libraries
    any more: held against itself with them."""
    order = [str(player), "--quiet", "--log-level", "none", f"127.0.0.1:{free_ports(1)[0]}:T1"]
    times = race({"ours": order,
                  "libavformat": ["env", "LD_PRELOAD=libavformat.so.59", *order]}, rounds,
                 status=3)
    return [Row("start of the program to first order", "the same with libavformat's libraries",
                ratio(times, "ours", "libavformat"), "<=", 1.0,
                note=f"{1000 * statistics.median(times['ours']):.0f} ms, "
                     f"{1000 * statistics.median(times['libavformat']):.0f} ms with them")]


def many_tracks(player, source, clips, rounds, pictures):
    """One core for the player, the other one for the servers; as many pictures in all."""
    clip = repeat_index(source, clips / "many-pictures.avi", 16)
    window = 32

    def play(tracks):
        return ["taskset", "-c", "0", str(player), "--quiet", "--log-level", "none", "--window",
                str(window), "--count", str(pictures // len(tracks)), *tracks]
    with Nginx({number: clip for number in range(1, 65)}, servers=8,
               wrapper=("taskset", "-c", "1")) as server:
        one = play([server.track(1)])
        many = {"64 tracks of one server": play([server.track(n) for n in range(1, 65)]),
                "8 servers with 8 tracks each": play([server.track(n, port) for port in range(8)
                                                      for n in range(1, 9)])}
        times = race({"one": one, **many}, rounds)
        alone = max(play_and_watch(one))
        rows = []
        for name, command in many.items():
            rows.append(Row(f"{name}, one core", "one track", ratio(times, "one", name), ">=", 0.95,
                            note=f"{pictures / statistics.median(times[name]):.0f} pictures/s"))
            windows = 63 * window * bytes_a_picture(source)
            grown = max(play_and_watch(command)) - alone
            rows.append(Row(f"{name}, memory", "one track's and the windows",
                            (alone + grown) / (alone + windows), "<=", 1.1,
                            note=f"{grown >> 20} MiB more, windows {int(windows) >> 20} MiB"))
    return rows


def opening(programs, source, clips):
    long = repeat_index(source, clips / "hundred-thousand.avi",
                        100_000 // CLIP_PICTURES)
    suite = Suite(programs / "elements-bench", [long], 1, 0.01, "OpenTrack")
    note = "a track of 100,000 samples"
    return [Row("opening, bytes", "the bytes of its index",
                suite.median("OpenTrack", "bytes_per_index_byte"), "<=", 1.2, note=note),
            Row("opening, requests", "", suite.median("OpenTrack", "requests"), "<=", 10, "",
                note=note)]


class Table:
    """Rows, each told as soon as it is measured."""

    def __init__(self):
        self.rows = []
        print(f"{'row':<52} {'against':<30} {'value':>10} {'to reach':>10} {'limit':>6}")

    def add(self, rows):
        for row in rows:
            mark = "" if row.reached() else "  MISSED"
            limit = f"{row.limit:.2f}" if row.limit else ""
            note = f"   ({row.note})" if row.note else ""
            print(f"{row.name:<52} {row.against:<30} {row.value:>7.2f} {row.unit:<2} "
                  f"{row.relation:>3} {row.target:<6} {limit:>6}{mark}{note}", flush=True)
        self.rows += rows


def writing(player, programs, clip, rounds, seconds):
    """What a contact sheet adds to playing, and what a PNG file costs beside libpng alone."""
    with tempfile.TemporaryDirectory() as folder:
        play = [str(player), "--quiet", "--log-level", "none", str(clip)]
        times = race({"without": play, "sheet": play + ["--contact-sheet", f"{folder}/sheet.png"]},
                     rounds)
    png = Suite(programs / "png-bench", [clip], rounds, seconds)
    return [Row(f"contact sheet, {clip.stem}", "playing without", ratio(times, "sheet", "without"),
                "<=", 1.1),
            Row(f"PNG file, CPU, {clip.stem}", "libpng at the same level",
                png.ratio("png/moravel", "png/libpng", "cpu_time"), "<=", 1.1)]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=Path, help="folder of the optimised build")
    parser.add_argument("--clips", type=Path, required=True, help="where the clips are kept")
    parser.add_argument("--json", type=Path, help="where the table goes as JSON")
    parser.add_argument("--smoke", action="store_true",
                        help="shortest run of everything; the figures mean nothing")
    arguments = parser.parse_args()
    programs = arguments.build / "benchmarks"
    player = arguments.build / "apps/moravel-play/moravel-play"
    smoke = arguments.smoke
    decode_seconds, read_seconds = (0.01, 0.01) if smoke else (0.4, 0.2)
    play_rounds, decode_rounds, read_rounds = (1, 1, 1) if smoke else (5, 9, 15)

    kinds = (("1080p-420-100KB", 9, "yuvj420p"), ("1080p-420-500KB", 4, "yuvj420p"),
             ("1080p-422-400KB", 5, "yuvj422p"))
    clips = [make_video(arguments.clips / f"{name}.avi", quality, pixel_format)
             for name, quality, pixel_format in (kinds[:1] if smoke else kinds)]
    for clip in clips:
        print(f"{clip.stem}: {bytes_a_picture(clip) / 1000:.0f} KB a picture", file=sys.stderr)
    fields = make_video(arguments.clips / "1080i-fields.avi", 9, "yuvj420p", "1920x540")
    interlaced = make_interlaced(fields, arguments.clips / "1080i-420.avi")
    table = Table()
    table.add(suites(programs, [*clips, interlaced], decode_rounds, decode_seconds))
    for clip in [*clips, interlaced]:
        table.add(random_reading(programs, clip, read_rounds, read_seconds))
    played = clips if smoke else [make_longer(clip) for clip in clips]
    table.add(sequential_reading(programs, played[-1], read_rounds, read_seconds))
    table.add(far_reading(programs, played[0], 1 if smoke else 5))
    table.add(opening(programs, clips[0], arguments.clips))
    table.add(first_pictures(player, programs, played[0], read_rounds, read_seconds))
    table.add(starting(player, read_rounds))
    table.add(many_tracks(player, clips[0], arguments.clips, 1 if smoke else 3,
                          64 if smoke else 3200))
    table.add(scrubbing(programs, clips[0], arguments.clips, 1 if smoke else 5))
    table.add(end_to_end(player, programs / "bare-player", played, play_rounds))
    table.add(writing(player, programs, played[0], play_rounds, decode_seconds))
    table.add(memory(player, clips[0], arguments.clips, 300 if smoke else 20_000))
    if arguments.json:
        measured = [row.as_dict() for row in table.rows]
        arguments.json.write_text(json.dumps(measured, indent=2) + "\n")


if __name__ == "__main__":
    main()
