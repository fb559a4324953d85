"""Runs benchmark programs and prints ours beside the peers' as a Markdown table.

A row's name has one component that is "ours" or a peer's name; rows that agree in all others are one piece of work.
"""
import json
import pathlib
import subprocess
import sys

ROUNDS = 3        # over all programs, so that minutes lie between a row's repetitions
REPETITIONS = 3   # repetitions in a round
OURS = "ours"


def run(program):
    """Returns the fastest of some repetitions of each row: what others do on the machine meanwhile only slows."""
    command = [str(program), "--benchmark_format=json", f"--benchmark_repetitions={REPETITIONS}",
               "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.05"]
    output = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True).stdout
    rows = [row for row in json.loads(output)["benchmarks"]
            if row["run_type"] == "iteration" and not row.get("error_occurred")]
    fastest = {}
    for row in sorted(rows, key=lambda row: (row["family_index"], row["per_family_instance_index"])):
        time = row["cpu_time"] * {"ns": 1, "us": 1e3, "ms": 1e6}[row["time_unit"]]
        fastest[row["run_name"]] = min(time, fastest.get(row["run_name"], time))
    return fastest


def peers_of(name, times):
    parts = name.split("/")
    at = parts.index(OURS)
    for other in times:
        others = other.split("/")
        same_work = others[:at] + others[at + 1:] == parts[:at] + parts[at + 1:]
        if len(others) == len(parts) and others[at] != OURS and same_work:
            yield others[at], times[other]


def text(nanoseconds):
    for limit, unit in ((1e3, "ns"), (1e6, "us"), (1e9, "ms")):
        if nanoseconds < limit:
            return f"{nanoseconds / limit * 1e3:.3g} {unit}"
    return f"{nanoseconds / 1e9:.3g} s"


def main():
    folder, families = pathlib.Path(sys.argv[1]), sys.argv[2:]
    programs = [program for program in sorted(folder.glob("*_bench"))
                if not families or program.stem.removesuffix("_bench") in families]
    fastest = {program: {} for program in programs}
    for _ in range(ROUNDS):
        for program in programs:
            for name, time in run(program).items():
                fastest[program][name] = min(time, fastest[program].get(name, time))
    print("| Work | Ours | Peers (time, ours / theirs) |\n|---|---|---|")
    for times in fastest.values():
        for name, ours in times.items():
            if OURS in name.split("/"):
                peers = ", ".join(f"{peer} {text(time)} ({ours / time:.2f})" for peer, time in peers_of(name, times))
                work = "/".join(part for part in name.split("/") if part != OURS)
                print(f"| {work} | {text(ours)} | {peers} |")


main()
