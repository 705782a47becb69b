#!/usr/bin/env python3
"""Tries what the documents say, in a scratch folder: check_docs.py PLAYER CLIP

Runs each command of README.md, CONTRIBUTING.md, docs/ and the player's --help, and looks up each
option, ./dev command, path, class and operation that they name.
"""

import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
PLAYER, CLIP = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
DOCUMENTS = [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted((ROOT / "docs").glob("*.md"))]

# What does not run here, and why not.
NOT_HERE = {
    r"\./dev (build|test|check|bench|package|fuzz|soak|clean)\b": "CI runs it, or its user does",
    r"\./dev play$": "builds a player of its own; CI has built this one",
    r"\.ci/run": "runs this",
    r"cmake |c\+\+ |export PKG_": "cmake/check-install.sh does it, with what is installed",
}
# Options of other programs that the documents name.
OF_OTHERS = {"--build", "--cflags", "--install", "--libs", "--prefix", "--preset", "--smoke"}
# Where classes, operations and targets have their names.
ROOMS_OF_SOURCES = ["Player", "qel", "Time", "logging", "platform", "apps", "tests", "benchmarks", "cmake"]
# Where the paths of documents begin.
ROOMS = ["", "docs", "platform", "apps/moravel-play"]
# These end when they are interrupted, after they have said where they are.
LASTING = re.compile(r"\./dev play (view|serve)\b")

problems = []


def commands():
    """The document and text of each command: indented lines, and blocks of a shell's."""
    for path in DOCUMENTS:
        in_block = False
        for line in path.read_text().splitlines():
            if line.startswith("```"):
                in_block = line == "```sh"
            elif in_block or re.match(r"    (\./dev|\.ci/|cmake )", line):
                yield path.name, re.sub(r"\s+#.*", "", line.strip())
    for line in help_texts().splitlines():
        if re.match(r"  moravel-play .*\.(avi|T\d)", line):
            yield "--help", line.strip().replace("moravel-play", "./dev play", 1)


def help_texts():
    return "".join(output(PLAYER, *command, "--help") for command in ([], ["probe"], ["view"], ["serve"]))


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def ffmpeg(*arguments):
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", *arguments], check=True)


def script(path, text):
    path.write_text("#!/bin/sh\n" + text)
    path.chmod(0o755)


def first_line(process):
    line = process.stdout.readline()
    if not line:
        raise RuntimeError("said nothing")
    return line.strip()


def prepare(work):
    """The files that the commands name, a ./dev that plays with what is built, and a screen."""
    script(work / "dev", f'shift\nexec {shlex.quote(str(PLAYER))} "$@"\n')
    (work / "bin").mkdir()
    script(work / "bin/ffplay", "exec ffmpeg -nostdin -v error -i pipe: -f null -\n")
    os.environ["PATH"] = f"{work / 'bin'}:{os.environ['PATH']}"
    shutil.copy(CLIP, work / "a.avi")
    ffmpeg("-stream_loop", "1", "-i", CLIP, "-c", "copy", work / "clip.avi")
    for name in ("b.mov", "clip.mov"):
        ffmpeg("-i", CLIP, "-c", "copy", work / name)
    ffmpeg("-i", CLIP, "-vf", "scale=720:576,separatefields", "-frames:v", "150", work / "f%03d.jpg")
    with open(work / "interlaced.mov", "wb") as track:  # its content tells the player what it is
        subprocess.run([ROOT / "cmake/make-fields-track.py", *sorted(work.glob("f*.jpg"))],
                       stdout=track, check=True)
    (work / "media").mkdir()
    ffmpeg("-stream_loop", "8", "-i", CLIP, "-c", "copy", work / "media/long.avi")


def start(arguments, work):
    return subprocess.Popen(arguments, cwd=work, text=True, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)


def stop(process):
    process.send_signal(signal.SIGINT)
    return process.communicate(timeout=20)[0]


def run_lasting(text, work):
    process = start(shlex.split(text), work)
    said = first_line(process)
    said += stop(process)
    if process.returncode not in (0, 130):
        raise RuntimeError(f"exit code {process.returncode}: {said}")


def run(text, work):
    done = subprocess.run(["bash", "-o", "pipefail", "-c", text], cwd=work, text=True, timeout=120,
                          capture_output=True, stdin=subprocess.DEVNULL)
    if done.returncode != 0:
        raise RuntimeError(f"exit code {done.returncode}: {done.stderr or done.stdout}")


def try_commands(work):
    server = start([PLAYER, "serve", "--port", "0", work / "media"], work)
    address = next(found[0] for line in server.stdout if (found := re.search(r"\S+:\d+:T1\b", line)))
    tried = 0
    for document, text in commands():
        if any(re.match(pattern, text) for pattern in NOT_HERE):
            continue
        here = text.replace("10.0.0.5:8080:T7", address).replace("/srv/media", str(work / "media"))
        if "--port" not in here:  # 8080 may be taken
            here = here.replace("./dev play serve", "./dev play serve --port 0")
        try:
            (run_lasting if LASTING.match(text) else run)(here, work)
            tried += 1
        except (RuntimeError, subprocess.TimeoutExpired) as error:
            problems.append(f"{document}: {text}: {error}")
    stop(server)
    return tried


def words_of_sources():
    words = set()
    for room in ROOMS_OF_SOURCES:
        for path in (ROOT / room).rglob("*"):
            if path.suffix in (".h", ".cpp", ".cmake", ".in", ".txt", ".py", ".map"):
                words |= set(re.findall(r"\w+", path.read_text())) | {path.name, path.stem}
    return words


def look_up_names():
    known = OF_OTHERS | set(re.findall(r"--[a-z0-9-]+", help_texts()))
    dev = (ROOT / "dev").read_text()
    words = words_of_sources()
    for path in DOCUMENTS:
        text = path.read_text()
        for option in set(re.findall(r"(?<![-\w])--[a-z][a-z0-9-]*[a-z]", text)) - known:
            problems.append(f"{path.name}: there is no option {option}")
        for word in set(re.findall(r"\./dev ([a-z]+)", text)):
            if not re.search(rf"^  {word}\)", dev, re.M):
                problems.append(f"{path.name}: there is no command ./dev {word}")
        names = set(re.findall(r"\]\(([^)#:]+)\)", text))
        names |= set(re.findall(r"`([\w-]+/[\w/.-]+\.(?:h|cpp|md|py|sh|map|cmake|in))`", text))
        for name in set(re.findall(r"`((?:\w+::)*k?[A-Z]+[a-z]\w*(?<!_)(?:\.h|\.cpp)?)`", text)):
            if name.split("::")[-1] not in words:
                problems.append(f"{path.name}: nothing is called {name}")
        for name in names:
            if not any((ROOT / room / name).exists() for room in ROOMS):
                problems.append(f"{path.name}: there is no file {name}")


with tempfile.TemporaryDirectory() as folder:
    prepare(pathlib.Path(folder))
    count = try_commands(pathlib.Path(folder))
look_up_names()
for problem in problems:
    print(problem, file=sys.stderr)
if not problems:
    print(f"{count} commands of the documents do what they say")
sys.exit(bool(problems))
