#!/usr/bin/env python3
"""compare.py PROGRAM ROWS [LOADER]: runs the program in gdb until its signal, and compares what gdb prints for the
commands of ROWS with the lines below them. Does the same with a core file. Without a LOADER gdb must find the printers
itself. Status 77: gdb is missing, or neither a process nor a core file can be had."""
import os
import re
import resource
import shutil
import subprocess
import sys
import tempfile

try:
    import gdb  # this file also runs inside gdb
except ImportError:
    gdb = None


def answer(command):
    try:
        return gdb.execute(command, to_string=True).strip("\n")
    except gdb.error as error:
        return str(error)


def compare_rows(path):
    gdb.execute("frame function main")
    with open(path) as file:
        rows = [row.partition("\n") for row in file.read().split("\n(gdb) ")[1:]]
    differ = 0
    for command, _, expected in rows:
        said = answer(command)
        pattern = ".*".join(map(re.escape, expected.strip("\n").split("*")))
        if not re.fullmatch(pattern, said, re.DOTALL):
            differ += 1
            print(f"{command}\nexpected: {expected}printed:  {said}")
    print(f"compared {len(rows)} rows, {differ} differ")


def gdb_says(folder, first, program, rows, loader):
    """Runs the first command of gdb, compares the rows, and writes a core file. Returns what gdb prints."""
    safe = os.path.dirname(os.path.dirname(program))
    arguments = ["gdb", "-nx", "-batch", "-iex", f"add-auto-load-safe-path {safe}", "-ex", first]
    for script in loader + [os.path.realpath(__file__)]:
        arguments += ["-ex", f"source {script}"]
    result = subprocess.run(arguments + ["-ex", "generate-core-file live.core", program], cwd=folder, text=True,
                            env={**os.environ, "ROWS": rows}, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT)
    return result.stdout


def crash(folder, program):
    """Lets the system write a core file."""
    unlimited = (resource.RLIM_INFINITY, resource.RLIM_INFINITY)
    subprocess.run([program], cwd=folder, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, unlimited))


def differs(kind, said):
    good = re.search(r"compared [1-9]\d+ rows, 0 differ", said) and "Python Exception" not in said
    print(f"{kind}: as expected" if good else f"{kind}: {said}")
    return not good


def compare(folder, *arguments):
    """Returns the status."""
    live = gdb_says(folder, "run", *arguments)
    is_live = "received signal SIGQUIT" in live
    if not is_live:
        print(f"live: skipped, gdb can't run a program here: {live}")
        crash(folder, arguments[0])
    cores = [name for name in os.listdir(folder) if "core" in name]
    status = is_live and differs("live", live)
    if not cores:
        print("core: skipped, there is no core file")
        return status if is_live else 77
    return differs("core", gdb_says(folder, f"core-file {cores[0]}", *arguments)) or status


if gdb:
    compare_rows(os.environ["ROWS"])
elif shutil.which("gdb") is None:
    print("skipped: gdb is missing")
    sys.exit(77)
else:
    with tempfile.TemporaryDirectory() as work:
        sys.exit(int(compare(work, sys.argv[1], sys.argv[2], sys.argv[3:])))
