#!/usr/bin/env python3
"""compare.py MODE ROOT LIBRARIES: builds values.cpp in a mode of debug information (modes.txt), lets it crash in gdb,
and compares the variables in memory that gdb shows with those of the report that the same process then writes.
Status 77: a tool is missing."""
import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile

try:
    import gdb  # this file also runs inside gdb
except ImportError:
    gdb = None

LATE = "late: "


def row_of(mode, root):
    with open(f"{root}/tests/values/modes.txt") as file:
        for line in file:
            name, *parts = [part.strip() for part in line.split("|")]
            if name == mode:
                return parts[0], parts[1:]
    sys.exit(f"unknown mode {mode}")


def build_and_compare(mode, root, libraries):
    compiler, commands = row_of(mode, root)
    late = [part[len(LATE):] for part in commands if part.startswith(LATE)]
    after = [part for part in commands if not part.startswith(LATE)]
    programs = [part.split()[0] for part in [compiler] + after + late]
    for tool in ["gdb", "ld.lld" if "lld" in compiler else "ld"] + programs:
        if shutil.which(tool) is None:
            print(f"skipped: {tool} is missing")
            sys.exit(77)
    with tempfile.TemporaryDirectory() as folder:
        includes = f"-I{root} -I{root}/platform/linux/include"
        link = f"-L{libraries} -lzqcore -Wl,-rpath,{libraries}"
        for command in [f"{compiler} -std=c++20 -g -c {root}/tests/values/values.cpp -o values.o {includes}",
                        f"{compiler} values.o -o values {link}"] + after:
            subprocess.run(command, cwd=folder, shell=True, check=True)
        result = subprocess.run(["gdb", "-nx", "-batch", "-x", os.path.realpath(__file__), "values"], cwd=folder,
                                env={**os.environ, "VALUES_LATE": " && ".join(late)}, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        print(result.stdout)
        match = re.search(r"compared (\d+) variables, (\d+) differ", result.stdout)
        sys.exit(0 if match and int(match[1]) >= 10 and int(match[2]) == 0 else 1)


def value_text(value, kind, size):
    """What the report prints for a value, or None for nothing."""
    is_float = kind is not None and kind.code == gdb.TYPE_CODE_FLT
    raw = bytes(gdb.selected_inferior().read_memory(int(value.address), size)) if size in (1, 2, 4, 8) else b""
    number = int.from_bytes(raw, "little")
    if size == 8 and kind is not None and kind.name == "char":
        text = bytes(gdb.selected_inferior().read_memory(number, 32)).split(b"\0")[0][:31]
        return '"' + text.decode() + '"'
    if is_float and size in (4, 8):
        cell = gdb.Value(raw, kind)
        return "%f" % float(cell)
    return "%X" % number if raw else None


def base_of(kind):
    """The type by which a value is printed: its own; of a pointer to char and of an array that of its element."""
    if kind.code == gdb.TYPE_CODE_PTR:
        target = kind.target().strip_typedefs().unqualified()
        return target if target.name == "char" else None
    if kind.code == gdb.TYPE_CODE_ARRAY:
        return kind.target().strip_typedefs().unqualified()
    return kind


def flatten(name, value, level, lines):
    kind = value.type.strip_typedefs().unqualified()
    if kind.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        lines.append((level, name, "%X" % int(value.referenced_value().address)))
        return
    if kind.code not in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION):
        lines.append((level, name, value_text(value, base_of(kind), kind.sizeof)))
        return
    lines.append((level, name, None))
    for field in kind.fields():
        if not hasattr(field, "bitpos"):
            continue  # static
        if field.bitsize:
            lines.append((level + 1, field.name, "%X" % (int(value[field]) & ((1 << field.bitsize) - 1))))
        elif field.is_base_class:
            flatten(field.name, value.cast(field.type), level + 1, lines)
        else:
            flatten(field.name, value[field], level + 1, lines)


def is_computed(symbol, value, frame):
    """Whether a variable has a value but no place. Of some types gdb always has an address."""
    if value.type.strip_typedefs().code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF, gdb.TYPE_CODE_ARRAY):
        frame.select()
        return "DW_OP_" in gdb.execute(f"info address {symbol.name}", to_string=True)
    return value.address is None


def frame_variables(frame):
    """The variables of a frame that gdb shows and that are in memory."""
    block = frame.block()
    while block is not None:
        for symbol in block:
            generated = symbol.name.startswith("__") and not symbol.is_argument
            if (symbol.is_argument or symbol.is_variable) and not generated:
                value = symbol.value(frame)
                if not value.is_optimized_out and not is_computed(symbol, value, frame):
                    lines = []
                    flatten(symbol.name, value, 0, lines)
                    yield lines
        if block.function is not None:
            return
        block = block.superblock


def gdb_frames():
    """The variables of each frame of the program's source, with those of the calls inlined into it."""
    frames, pending, frame = [], [], gdb.newest_frame()
    while frame is not None and frame.find_sal().symtab is not None:
        pending += list(frame_variables(frame))
        if frame.type() != gdb.INLINE_FRAME:
            frames.append((frame.name(), pending))
            pending = []
        frame = frame.older()
    return frames


def report_frames(path):
    with open(path, newline="") as file:
        text = file.read().split("Local Variables And Parameters")[1]
    frames = []
    for line in text.replace("\r", "").split("\n"):
        if re.match(r"[0-9A-F]{8,}  ", line):
            frames.append([])
        variable = re.match(r"\t(?:Parameter |Local )?'([^']*)'(?: ([^=]*?))?(?: = (.*))?$", line)
        member = re.match(r"\t(\t+) (.*?)(?: = (.*))?$", line)
        if variable:
            frames[-1].append([(0, variable[1], variable[3])])
        elif member:
            frames[-1][-1].append((len(member[1]), member[2], member[3]))
    return frames


def compare():
    gdb.execute("set pagination off")
    gdb.execute("handle SIGSEGV stop print pass")
    gdb.execute("run")
    expected = gdb_frames()
    subprocess.run(os.environ["VALUES_LATE"], shell=True, check=True)
    gdb.execute("continue")
    found = report_frames(glob.glob("CrashReport_*.rpt")[0])
    count = differ = 0
    for index, (name, variables) in enumerate(expected):
        for variable in variables:
            count += 1
            reported = [other for other in found[index] if other[0][1] == variable[0][1]]
            if variable not in reported:
                differ += 1
                print(f"frame {index} {name}: gdb has {variable}, the report {reported}")
    print(f"compared {count} variables, {differ} differ")


if gdb is not None:
    compare()
else:
    build_and_compare(*sys.argv[1:])
