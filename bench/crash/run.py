#!/usr/bin/env python3
"""bench/crash/run.py [FOLDER]: the time from a crash of 30 frames to the end of its report, beside other ways to get
the stack's names. Builds the programs in FOLDER (/tmp/zqcore-crash; 3 GB) with the library of build/release, and
prints the rows of bench/README.md."""
import glob
import math
import os
import re
import resource
import signal
import subprocess
import sys
import threading
import time

ROUNDS = 5
SLOW = 5000  # milliseconds of wall time: a way that takes as long is measured once
LIMIT = 120  # seconds: then it is ended
FRAMES = 30
HERE = os.path.dirname(os.path.realpath(__file__))
LIBRARIES = os.path.realpath(f"{HERE}/../../build/release")
FOLDER = os.path.realpath(sys.argv[1] if len(sys.argv) > 1 else "/tmp/zqcore-crash")
INDICES = os.path.expanduser("~/.cache/zqcore")


def limits():
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    os.sched_setaffinity(0, {0})


def measure(command):
    """Returns the processor and wall time in milliseconds, of the command and of what it starts and waits for."""
    start = time.monotonic()
    process = subprocess.Popen(command, cwd=FOLDER, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, preexec_fn=limits)
    timer = threading.Timer(LIMIT, process.kill)
    timer.start()
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - start
    timer.cancel()
    process.returncode = 0
    killed = os.WIFSIGNALED(status) and os.WTERMSIG(status) == signal.SIGKILL
    return (math.inf, math.inf) if killed else ((usage.ru_utime + usage.ru_stime) * 1e3, wall * 1e3)


def text_of(time_):
    return f"more than {LIMIT} s" if time_ == math.inf else f"{time_ / 1e3:.1f} s" if time_ > 1e4 else f"{time_:.0f} ms"


def remove(pattern):
    for path in glob.glob(pattern):
        os.remove(path)


def report_addresses(program):
    """Returns the addresses of the frames of the program, as a report has them."""
    remove(f"{FOLDER}/CrashReport_*")
    measure([program, "ours"])
    with open(glob.glob(f"{FOLDER}/CrashReport_*.rpt")[0], newline="") as file:
        stack = file.read().split("Call stack:")[1].split("Crash code")[0]
    addresses = re.findall(r"^([0-9A-F]{8,})  [0-9A-F]{8,}  \S", stack, re.MULTILINE)[:FRAMES]
    assert len(addresses) == FRAMES, stack
    return addresses


def main():
    subprocess.run([f"{HERE}/../../.ci/need", "binutils", "clang", "gdb", "libbackward-cpp-dev", "libdw-dev", "lld"],
                   check=True)
    os.makedirs(FOLDER, exist_ok=True)
    if not os.path.exists(f"{FOLDER}/crash_big"):
        subprocess.run([f"{HERE}/build.sh", FOLDER, LIBRARIES], check=True)
    print("| Program | Way | Processor | Wall |\n|---|---|---|---|")
    for size in ("small", "big"):
        program = f"{FOLDER}/crash_{size}"
        addresses = report_addresses(program)
        ways = {
            "no report": [program, "none"],
            "ours, without index file": [program, "ours"],
            "ours": [program, "ours"],
            "backtrace_symbols": [program, "backtrace_symbols"],
            "libbackward": [program, "backward"],
            "addr2line": ["addr2line", "-f", "-i", "-C", "-e", program, *addresses],
            "gdb": ["gdb", "-nx", "-batch", "-ex", "run", "-ex", "bt full", "--args", program, "none"],
        }
        best = {way: (math.inf, math.inf) for way in ways}
        slow = set()
        for _ in range(ROUNDS):
            for way, command in ways.items():
                if way == "ours, without index file":
                    remove(f"{INDICES}/*.index")
                if way not in slow:
                    measured = measure(command)
                    best[way] = min(best[way], measured)
                    slow |= {way} if measured[1] > SLOW else set()
        for way, (processor, wall) in best.items():
            print(f"| {size} | {way} | {text_of(processor)} | {text_of(wall)} |", flush=True)
    remove(f"{FOLDER}/CrashReport_*")


if __name__ == "__main__":
    main()
