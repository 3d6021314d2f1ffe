"""Does what a page tells its reader to do, and compares what the reader would see: follow_page.py PAGE [BUILD LIBDIR]

Without a build folder the packages must be installed.

A fenced block whose info string has file=NAME is written to that file; one of `sh` is run, all in one shell; one of
`text` is what has come since, in which "..." stands for anything within a line, and on a line of its own for any lines.
Other blocks are for the eye.
"""
import os
import pathlib
import queue
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading

PATIENCE = 300  # seconds for one block; under load everything takes long
BLOCK = re.compile(r"^```(\w+)(?: +file=(\S+))?\n(.*?)^```$", re.MULTILINE | re.DOTALL)
MARK = "page-block-done"


class Shell:
    def __init__(self, directory, environment):
        self.process = subprocess.Popen(["bash", "--norc", "-s"], cwd=directory, env=environment, text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        start_new_session=True)
        self.lines = queue.Queue()
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line)

    def run(self, commands):
        """What the commands print, and programs that are still running."""
        self.process.stdin.write(f"{{\n{commands}\n}} </dev/null\nprintf '\\n{MARK} %d\\n' $?\n")
        self.process.stdin.flush()
        said = ""
        while True:
            try:
                said += self.lines.get(timeout=PATIENCE)
            except queue.Empty:
                raise AssertionError(f"does not end:\n{commands}\n{said}") from None
            end = re.search(rf"\n{MARK} (\d+)\n$", said)
            if end:
                assert end[1] == "0", f"status {end[1]}:\n{commands}\n{said}"
                return said[:end.start()]

    def end(self):
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()


def pattern(text):
    """A page's output as a regular expression."""
    lines = text.splitlines(keepends=True)
    return "".join("(?:.*\n)*" if line == "...\n" else ".*".join(map(re.escape, line.split("..."))) for line in lines)


def compiler(path, variable, flags):
    """The build's own, with its sanitizers."""
    path.parent.mkdir(exist_ok=True)
    name = path.name
    path.write_text(f'#!/bin/sh\nexec "${{{variable}:-/usr/bin/{name}}}" ${{{flags}:-}} "$@"\n')
    path.chmod(0o755)


def interpreter(path, build):
    """With the build's own module, and the sanitizers that this needs."""
    path.write_text(f'#!/bin/sh\nexec env ${{LUA_SETTINGS:-}} LUA_CPATH="{build}/bindings/lua/5.4/?.so" '
                    f'/usr/bin/lua5.4 "$@"\n')
    path.chmod(0o755)


def environment(build, work, libdir):
    """That of a reader who has installed the packages."""
    prefix = work / "prefix"
    for component in ("runtime", "platform", "development"):
        subprocess.run(["cmake", "--install", build, "--prefix", prefix, "--component", component], check=True,
                       stdout=subprocess.DEVNULL)
    for description in (prefix / libdir / "pkgconfig").glob("*.pc"):
        description.write_text(re.sub("(?m)^prefix=.*$", f"prefix={prefix}", description.read_text()))
    programs = [work / "bin", *build.glob("daemons/*"), *build.glob("tools/*")]
    compiler(work / "bin" / "cc", "CC", "CFLAGS")
    compiler(work / "bin" / "c++", "CXX", "CXXFLAGS")
    interpreter(work / "bin" / "lua5.4", build)
    python = work / "bin" / "python3"
    python.write_text(f'#!/bin/sh\nexec {os.environ.get("PYTHON", "/usr/bin/python3")} "$@"\n')
    python.chmod(0o755)
    return {**os.environ,
            "PATH": ":".join(map(str, [*filter(pathlib.Path.is_dir, programs), os.environ["PATH"]])),
            "PKG_CONFIG_PATH": str(prefix / libdir / "pkgconfig"),
            "CMAKE_PREFIX_PATH": str(prefix),
            "LD_LIBRARY_PATH": str(prefix / libdir)}


def main():
    page = pathlib.Path(sys.argv[1])
    work = pathlib.Path(tempfile.mkdtemp(prefix="page."))
    shell = None
    try:
        (work / "home").mkdir()
        built = environment(pathlib.Path(sys.argv[2]), work, sys.argv[3]) if len(sys.argv) > 2 else dict(os.environ)
        shell = Shell(work / "home", built)
        said = ""
        for language, name, text in BLOCK.findall(page.read_text(encoding="utf-8")):
            if name:
                (work / "home" / name).write_text(text, encoding="utf-8")
            elif language == "sh":
                said = shell.run(text)
            elif language == "text":
                got = said.strip("\n") + "\n"
                assert re.fullmatch(pattern(text), got), f"the page says:\n{text}\nbut this came:\n{got}"
    finally:
        if shell:
            shell.end()
        shutil.rmtree(work)


main()
