"""Runs programs of the library once for each system call that can fail, and checks the files that they leave.

BUILD is the folder of the preset "failing". Prints a table of scenarios and kinds of calls, then each run that broke a
promise. Status 1 if one did. With --kill the programs are killed at random moments instead.
"""
import argparse
import collections
import concurrent.futures
import os
import pathlib
import random
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
TABLE_SIZE = 4096   # see failing.cpp
HEAD = struct.Struct("<IiQQQQ")
SHORT = 0   # the call handles half of its bytes

# How each kind of call can fail: by values of errno, or SHORT.
REASONS = {
    "open": ("ENOENT", "EACCES", "EMFILE", "ENOSPC", "EIO", "EINTR"),
    "read": ("EIO", "EINTR", SHORT),
    "write": ("ENOSPC", "EIO", "EINTR", SHORT),
    "seek": ("EINVAL",),
    "stat": ("ENOENT", "EACCES", "EIO"),
    "list": ("EIO", "ENOENT"),
    "rename": ("EACCES", "ENOSPC", "EIO"),
    "sync": ("EIO", "ENOSPC", "EINTR"),
    "make": ("EACCES", "ENOSPC", "EEXIST"),
    "remove": ("EACCES", "EBUSY"),
    "truncate": ("EIO",),
    "map": ("ENOMEM",),
    "thread": ("EAGAIN",),
    "wait": ("EINTR",),
    "watch": ("EMFILE", "ENOSPC"),
    "lease": ("EAGAIN", "EINVAL"),
    "lock": ("ENOLCK", "EINTR"),
    "start": ("ENOMEM", "EMFILE"),
    "random": ("ENOSYS", "EINTR"),
    "queue": ("ENOSYS", "EAGAIN"),
    "close": ("EIO", "ENOSPC", "EINTR"),
    "timer": ("EAGAIN", "ENOMEM"),
    "allocate": ("ENOMEM",),
}
FOREVER = 1 << 62
KILLED = -signal.SIGKILL
# What a program without memory may print when it ends.
OUT_OF_MEMORY = {-signal.SIGTRAP: "Can't allocate additional", -signal.SIGABRT: "bad_alloc"}
TIME_LIMIT = 20

Outcome = collections.namedtuple("Outcome", "status text seconds")


def errno_of(reason):
    return reason if isinstance(reason, int) else getattr(__import__("errno"), reason)


class Table:
    """The file that a program and its driver share."""

    def __init__(self, path):
        self.path = path

    def plan(self, kind=0, reason=0, call=0, times=1):
        self.path.write_bytes(HEAD.pack(kind, errno_of(reason), call, times, 0, 0).ljust(TABLE_SIZE, b"\0"))

    def failed(self):
        """Returns how many calls failed, and the offset in the library of the first."""
        return HEAD.unpack_from(self.path.read_bytes())[4:6]

    def counts(self):
        """Returns the number of calls of each kind, with its index and name."""
        data = self.path.read_bytes()
        kinds = len(REASONS)
        names = [data[HEAD.size + 8 * kinds + 16 * i:][:16].rstrip(b"\0").decode() for i in range(kinds)]
        return [(i, name, struct.unpack_from("<Q", data, HEAD.size + 8 * i)[0]) for i, name in enumerate(names)]


def run(command, folder, environment=None, drive=None):
    """Returns a program's status, output and run time; the status is None if it hangs. Calls `drive` while it runs."""
    begin = time.monotonic()
    process = subprocess.Popen([str(part) for part in command], cwd=folder, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, errors="backslashreplace",
                               env=dict(os.environ, **(environment or {})))
    try:
        if drive:
            drive(process)
        text = process.communicate(timeout=TIME_LIMIT)[0]
    except subprocess.TimeoutExpired:
        process.kill()
        return Outcome(None, process.communicate()[0], TIME_LIMIT)
    return Outcome(process.returncode, text, time.monotonic() - begin)


def judge_stats(zqtool, file, whole):
    """Returns what is wrong with a stats file, or None. Only a program that failed may leave none or a part."""
    outcome = run([zqtool, "stats", file], file.parent)
    if outcome.status == 0 or (not whole and outcome.status == 1):
        return None
    return f"stats that zqtool can't read, {outcome.status}: {outcome.text[-200:]}"


class Host:
    """Runs the example host over its own media tree. Its save must be either the old one or the new one.

    The next run must find the files that a scan finds, also from a cache.
    """
    STATUSES = (0, 1, 3, 4, 5, 6, 8)   # the ones in the host's help
    LOADED = re.compile(r"Loaded\n  .* after (\d+) hours")
    SAVED = re.compile(r"Saved\n  .* after (\d+) hours")
    FILES = re.compile(r"(\d+) files in (\d+) folders")

    def __init__(self, build, zqtool, runs_before, *options):
        self.program = build / "examples/host/zqhost"
        self.zqtool = zqtool
        self.runs_before = runs_before
        self.options = options
        self.prepared = None

    def command(self, folder):
        return [self.program, "--silent", "--frames", 10, "--media", folder / "media", "--log", folder / "log",
                "--save", folder / "game.sav", "--stats", folder / "game.stats", *self.options]

    def plain_run(self, folder, *without):
        return run([part for part in self.command(folder) if part not in ("--watch", *without)], folder)

    def count_files(self, outcome):
        """Returns the numbers of files and folders that a run reported, or None."""
        found = self.FILES.search(outcome.text)
        return found and tuple(map(int, found.groups()))

    def prepare(self, folder):
        if self.prepared is None:
            scan = folder / "scan"
            shutil.copytree(ROOT / "examples/media", scan / "media")
            self.scanned = self.count_files(self.plain_run(scan, "--cache"))
            shutil.rmtree(scan)
            shutil.copytree(ROOT / "examples/media", folder / "media")
            for _ in range(self.runs_before):
                assert self.plain_run(folder).status == 0
            self.prepared = folder.with_name(f"prepared-{id(self)}")
            shutil.copytree(folder, self.prepared)
        else:
            shutil.copytree(self.prepared, folder, dirs_exist_ok=True)

    def drive(self):
        return None

    def judge(self, folder, outcome, kind, reason):
        """Returns what is wrong after a run, or None. A run without failures must continue from the last save."""
        if outcome.status == 0 and "Saved\n" not in outcome.text and not (
                reason == "ENOENT" and "these media have no" in outcome.text):   # the file was removed meanwhile
            return "ended well and saved nothing"
        if kind == "allocate" and OUT_OF_MEMORY.get(outcome.status, "\0") in outcome.text:
            return self.judge_files(folder, outcome, reason)
        if outcome.status not in (*self.STATUSES, KILLED):
            return "hangs" if outcome.status is None else f"status {outcome.status}"
        said = re.search("^zqhost: |^Assert|^Application aborted|Can't allocate", outcome.text, re.M)
        if outcome.status not in (0, KILLED, -signal.SIGTERM) and not said:
            return f"status {outcome.status} without a word"
        return "a leak" if "Memory leak" in outcome.text else self.judge_files(folder, outcome, reason)

    def judge_files(self, folder, outcome, reason):
        stats = judge_stats(self.zqtool, folder / "game.stats", outcome.status == 0)
        if stats:
            return stats
        before = self.runs_before * 10
        files, folders = self.scanned
        files += (folder / "media/filesystemcache.bin").exists()
        after = self.plain_run(folder)
        loaded = self.LOADED.search(after.text)
        hours = int(loaded.group(1)) if loaded else 0
        saved = self.SAVED.search(outcome.text)
        if after.status != 0:
            return f"the next run ends with {after.status}: {after.text[-200:]}"
        if self.count_files(after) != (files, folders) and reason != "ENOENT":   # a folder was removed meanwhile
            return f"the next run finds {self.count_files(after)} files and folders, a scan {files} in {folders}"
        if saved and hours != int(saved.group(1)):
            return f"saved after {saved.group(1)} hours, the next run loads {hours}"
        if not saved and (hours < before if "--watch" in self.options else hours not in (before, before + 10)):
            return f"the save of {before} hours is lost"
        if before and saved and not self.LOADED.search(outcome.text):
            return f"the save of {before} hours was not loaded and is overwritten"
        return None


class Watch(Host):
    """Runs the host while a table is rewritten, until it is asked to end. That may happen while it starts."""
    STATUSES = (*Host.STATUSES, 7, -signal.SIGTERM)

    def drive(self):
        def act(process):
            media = pathlib.Path(process.args[process.args.index("--media") + 1])
            time.sleep(0.15)
            table = media / "tables/goods.csv"
            if table.exists():
                table.write_bytes(table.read_bytes() + b"\r\n")
            time.sleep(0.15)
            process.send_signal(signal.SIGTERM)
        return act


class Parts:
    """Runs one service. A second run of the program checks what is left: the old or the new data, never a part."""

    def __init__(self, build, service):
        self.program = build / "tests/failing/parts"
        self.service = service

    def command(self, folder):
        return [self.program, self.service, folder, "new"]

    def prepare(self, folder):
        outcome = run([self.program, self.service, folder, "old"], folder)
        assert outcome.status == 0, outcome

    def drive(self):
        return None

    def judge(self, folder, outcome, kind, reason):
        out_of_memory = kind == "allocate" and OUT_OF_MEMORY.get(outcome.status, "\0") in outcome.text
        if self.service == "crash":
            ended = out_of_memory or outcome.status in (-signal.SIGSEGV, KILLED)
            return None if ended else f"status {outcome.status}: {outcome.text[-200:]}"
        if outcome.status not in (0, 1, KILLED) and not out_of_memory:
            return "hangs" if outcome.status is None else f"status {outcome.status}: {outcome.text[-200:]}"
        if outcome.status == 1 and not outcome.text.strip():
            return "failed without a word"
        if outcome.status in (0, 1) and "Memory leak" in outcome.text:
            return "a leak"
        return self.check(folder, outcome)

    def check(self, folder, outcome):
        after = run([self.program, self.service, folder, "check-new" if outcome.status == 0 else "check"], folder)
        return None if after.status == 0 else f"left: {after.text[-300:]}"


class Stats(Parts):
    """Runs the profiler, whose file `zqtool stats` reads afterwards."""

    def __init__(self, build, zqtool, service):
        super().__init__(build, service)
        self.zqtool = zqtool

    def check(self, folder, outcome):
        return judge_stats(self.zqtool, folder / "game.stats", outcome.status == 0)


def kill_after(seconds):
    def act(process):
        time.sleep(seconds)
        process.kill()
    return act


def one_run(scenario, work, number, kind=0, name="", reason=0, call=0, times=1, drive=None):
    folder = work / f"run{number}"
    folder.mkdir()
    table = Table(folder.with_suffix(".failing"))
    try:
        scenario.prepare(folder)
        table.plan(kind, reason, call, times)
        outcome = run(scenario.command(folder), folder, {"ZQ_FAILING": str(table.path)}, drive or scenario.drive())
        failed, site = table.failed()
        return outcome, failed, site, table.counts(), scenario.judge(folder, outcome, name, reason)
    finally:
        shutil.rmtree(folder, ignore_errors=True)
        table.path.unlink(missing_ok=True)


def kill(scenarios, work, jobs, times):
    """Kills each scenario so many times, at random moments of its run. Returns what was wrong afterwards."""
    broken = []
    print("| Scenario | Killed | Ended before | Broken |\n|---|--:|--:|--:|")
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for name, scenario in scenarios.items():
            seconds = one_run(scenario, work, "-whole")[0].seconds
            killed, number, wrongs = 0, 0, []
            while killed < times and number < 10 * times:
                batch = range(number, number + times - killed)
                number = batch.stop
                for outcome, *_, wrong in pool.map(lambda run_number: one_run(
                        scenario, work, run_number, drive=kill_after(random.uniform(0, seconds))), batch):
                    if outcome.status == KILLED:
                        killed += 1
                    else:
                        seconds = min(seconds, outcome.seconds)
                    wrongs += [wrong] if wrong else []
            if killed < times:
                wrongs.append(f"only {killed} of {number} runs were killed")
            print(f"| {name} | {killed} | {number - killed} | {len(wrongs)} |", flush=True)
            broken += [f"{name}: {wrong}" for wrong in wrongs]
    return broken


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--sample", type=int, help="runs to make, spread evenly over all")
    parser.add_argument("--part", default="1/1", metavar="K/N", help="makes the K-th of N parts of the runs")
    parser.add_argument("--only", default="", metavar="SCENARIO[/KIND]")
    parser.add_argument("--kill", type=int, metavar="N", help="kills each scenario N times")
    parser.add_argument("--zqtool", type=pathlib.Path, default=ROOT / "build/release/tools/zqtool")
    parser.add_argument("--jobs", type=int, default=3 * os.cpu_count())   # they wait most of the time
    options = parser.parse_args()
    build = options.build.resolve()
    zqtool = options.zqtool.resolve()
    if not zqtool.exists():
        parser.error(f"no {zqtool}: build the preset release first, or use --zqtool")
    scenarios = {"first start": Host(build, zqtool, 0, "--cache"), "second start": Host(build, zqtool, 1, "--cache"),
                 "scan": Host(build, zqtool, 1), "watch": Watch(build, zqtool, 1, "--watch"),
                 **{service: Stats(build, zqtool, service) for service in ("stats", "stats in place")}}
    services = ("registry", "clipboard", "archive", "report", "logs", "crash")
    scenarios.update({service: Parts(build, service) for service in services})
    only, _, only_kind = options.only.partition("/")
    scenarios = {name: scenario for name, scenario in scenarios.items() if only in ("", name)}

    with tempfile.TemporaryDirectory(prefix="failing") as temporary:
        work = pathlib.Path(temporary)
        if options.kill:
            broken = kill(scenarios, work, options.jobs, options.kill)
            print("\n".join(broken))
            return 1 if broken else 0
        plans = []
        for name, scenario in scenarios.items():
            outcome, _, _, counts, wrong = one_run(scenario, work, f"-{name}".replace(" ", "-"))
            assert {kind_name for _, kind_name, _ in counts} == set(REASONS), counts
            if wrong:
                sys.exit(f"{name}: without a failure: {wrong}\n{outcome.text}")
            plans += [(name, kind, kind_name, reason, call + 1, times)
                      for kind, kind_name, count in counts if only_kind in ("", kind_name)
                      for reason in REASONS[kind_name] for times in (1, FOREVER)
                      if times == 1 or reason not in ("EINTR", SHORT)
                      for call in range(count)]
        possible = len(plans)
        if options.sample and options.sample < len(plans):
            plans = [plans[i * len(plans) // options.sample] for i in range(options.sample)]
        part, parts = map(int, options.part.split("/"))
        plans = plans[part - 1::parts]
        rows = collections.defaultdict(collections.Counter)
        broken = []

        def follow(numbered):
            number, (name, kind, kind_name, reason, call, times) = numbered
            outcome, failed, site, _, wrong = one_run(scenarios[name], work, number, kind, kind_name, reason, call, times)
            return name, kind_name, reason, call, times, outcome, failed, site, wrong

        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            for name, kind_name, reason, call, times, outcome, failed, site, wrong in pool.map(follow, enumerate(plans)):
                row = rows[name, kind_name]
                row["runs"] += 1
                row["went on"] += outcome.status == 0
                row["not reached"] += failed == 0
                row["broken"] += wrong is not None
                if wrong:
                    forever = " and all after" if times > 1 else ""
                    broken.append(f"{name}: {kind_name} {call}{forever}, {reason or 'short'}, at {site:#x}: {wrong}")
                    print(broken[-1], file=sys.stderr, flush=True)
    print("| Scenario | Call | Runs | Went on | Ended with its reason | Broken |\n|---|---|--:|--:|--:|--:|")
    for (name, kind_name), row in rows.items():
        ended = row["runs"] - row["went on"]
        print(f"| {name} | {kind_name} | {row['runs']} | {row['went on']} | {ended - row['broken']} | {row['broken']} |")
    print(f"{len(plans)} of {possible} runs, {len(broken)} broken; "
          f"{sum(row['not reached'] for row in rows.values())} did not reach their call")
    print("\n".join(broken))
    return 1 if broken or not plans else 0


if __name__ == "__main__":
    sys.exit(main())
