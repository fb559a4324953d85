#!/usr/bin/env python3
"""compare.py MODE ROOT LIBRARIES: builds values.cpp in a mode of debug information (modes.txt), lets it crash in gdb,
and compares the variables that gdb shows with those that the same process then writes: those in memory with the report,
all with the details. Status 77: a tool is missing."""
import glob
import os
import re
import shutil
import struct
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
                                env={**os.environ, "MODE": mode, "VALUES_LATE": " && ".join(late)},
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        print(result.stdout)
        matches = re.findall(r"compared (\d+) variables with the \w+, (\d+) differ", result.stdout)
        sys.exit(0 if len(matches) == 2 and all(int(count) >= 10 and differ == "0" for count, differ in matches) else 1)


def value_text(value, kind, size):
    """Returns what the report prints for a value, or None for nothing."""
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
    """Returns the type by which a value is printed: its own, or for an array or a pointer to char that of its element.
    Returns None for any other pointer."""
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
    """Returns whether a variable has a value but no place. Of some types gdb always has an address."""
    if value.type.strip_typedefs().code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF, gdb.TYPE_CODE_ARRAY):
        frame.select()
        return "DW_OP_" in gdb.execute(f"info address {symbol.name}", to_string=True)
    return value.address is None


def frame_variables(frame):
    """Returns the variables of a frame that gdb shows and that are in memory."""
    block = frame.block()
    while block is not None:
        for symbol in block:
            generated = symbol.name.startswith("__") and not symbol.is_argument
            if (symbol.is_argument or symbol.is_variable) and not generated:
                value = symbol.value(frame)
                # The report has no printers, and spells the templates' names in another way than gdb.
                plain = not value.is_optimized_out and gdb.default_visualizer(value) is None
                if plain and not is_computed(symbol, value, frame):
                    lines = []
                    flatten(symbol.name, value, 0, lines)
                    yield lines
        if block.function is not None:
            return
        block = block.superblock


def gdb_frames():
    """Returns the variables of each frame of the program's source, with those of the calls inlined into it."""
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


def number_text(number, bits):
    shown = f"{number} (0x{number & ((1 << bits) - 1):0{bits // 4}X})" if number < 0 else f"{number} (0x{number:X})"
    return shown if number < 0 or number >= 0x10000 else str(number)


def quoted(text, more=False):
    return '"' + text[:200].replace("\n", "\\n") + '"' + ("..." if more or len(text) > 200 else "")


def real_text(number, size):
    """Returns the shortest text that is the number."""
    packed = "f" if size == 4 else "d"
    texts = ("%.*g" % (digits, number) for digits in range(1, 18))
    return next(text for text in texts if struct.pack(packed, float(text)) == struct.pack(packed, number))


def is_char(kind):
    return kind.strip_typedefs().unqualified().name in ("char", "wchar_t", "char8_t", "char16_t", "char32_t")


def elements_text(values, depth):
    shown = ", ".join(shown_text(value, depth) for value in values[:16])
    return "{ " + shown + (f", ... {len(values)} elements" if len(values) > 16 else "") + (" }" if values else "}")


def known_text(value, depth):
    """Returns what the details print for a type with a printer of gdb's or of the library, or None for another type."""
    name = value.type.strip_typedefs().unqualified().name or ""
    if name.startswith("String_T<"):
        return quoted(value["m_sText"].string())
    printer = gdb.default_visualizer(value)
    if printer is None:
        return None
    if getattr(printer, "display_hint", str)() == "string":
        try:
            text = printer.to_string()
        except gdb.error:   # some of it is optimised out
            return None
        return quoted(text.value().string(length=text.length) if hasattr(text, "length") else str(text))
    children = [child for _, child in printer.children()]
    if name.startswith("std::vector<"):
        return elements_text(children, depth - 1)
    if name.startswith("std::unique_ptr<"):
        pointer = children[0] if children else gdb.Value(0)
        at = int(pointer)
        return f"0x{at:X} {{ {shown_text(pointer.dereference(), depth - 1)} }}" if at else "(empty)"
    return shown_text(children[0], depth) if children else "(empty)"


def shown_text(value, depth=2, bits=0):
    """Returns what the details print for a value in one line."""
    kind = value.type.strip_typedefs().unqualified()
    code = kind.code
    if value.is_optimized_out:
        return "(optimized out)"
    if code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        return shown_text(value.referenced_value(), depth)
    if code == gdb.TYPE_CODE_PTR:
        target = kind.target().strip_typedefs().unqualified()
        if str(value) == "<synthetic pointer>":   # so gdb calls one of whose piece nothing is known
            return "(optimized out)"
        if is_char(target) and int(value):
            return quoted(value.string(length=-1))
        function = gdb.block_for_pc(int(value)).function if target.code == gdb.TYPE_CODE_FUNC and int(value) else None
        return f"0x{int(value):X}" + (" " + re.sub(r"(?<=\w)\(.*", "", function.name) if function else "")
    if code == gdb.TYPE_CODE_ARRAY:
        if is_char(kind.target()):
            return quoted(value.string())
        return elements_text([value[i] for i in range(kind.range()[0], kind.range()[1] + 1)], depth - 1)
    if code == gdb.TYPE_CODE_ENUM:
        mask = (1 << kind.sizeof * 8) - 1   # gdb's enumerators are signed in any type
        names = {field.enumval & mask: field.name.rpartition("::")[2] for field in kind.fields()}
        return f"{names[int(value) & mask]} ({number_text(int(value), kind.sizeof * 8)})"
    if code == gdb.TYPE_CODE_BOOL:
        return "true" if value else "false"
    if code == gdb.TYPE_CODE_FLT:
        return real_text(float(value), kind.sizeof)
    if code == gdb.TYPE_CODE_COMPLEX:
        return str(value)
    if code not in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION):
        shown = number_text(int(value), bits or kind.sizeof * 8)
        return f"'{chr(int(value))}' ({shown})" if is_char(kind) else shown
    known = known_text(value, depth)
    if known is not None or depth <= 0:
        return known or "{...}"
    members = []
    for field in fields_of(kind):
        member = value.cast(field.type) if field.is_base_class else value[field.name]
        name = "" if field.is_base_class else f".{field.name} = "
        members.append(name + shown_text(member, depth - 1, field.bitsize))
    return "{ " + ", ".join(members[:8] + (["..."] if len(members) > 8 else [])) + (" }" if members else "}")


def fields_of(kind):
    return [field for field in kind.fields() if hasattr(field, "bitpos")]   # not static


def member_lines(value, level, lines):
    for field in fields_of(value.type.strip_typedefs().unqualified()):
        if field.is_base_class:
            member_lines(value.cast(field.type), level, lines)
            continue
        member = value[field.name]
        structure = member.type.strip_typedefs().code in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION)
        text = shown_text(member, 0 if structure and level < 3 else 2, field.bitsize)
        lines.append((level, field.name, text))
        if level < 3 and text == "{...}":
            member_lines(member, level + 1, lines)


def detailed(symbol, frame):
    """Returns the lines that the details have for a variable."""
    value = symbol.value(frame)
    mode = os.environ["MODE"]
    if value.is_optimized_out:
        # gdb finds no location lists in clang's split units of DWARF 5, and no place of a static variable after link
        # time optimisation.
        split = mode in ("clang++-split", "clang++-package5", "clang++-packagetypes5")
        gdb_fails = split or (mode, symbol.name) == ("g++-lto", "s_nCount")
        return None if gdb_fails else [(0, symbol.name, "(optimized out)")]
    if mode.startswith("clang") and is_lost(symbol, frame):
        return [(0, symbol.name, "(unreadable)")]
    if value.type.strip_typedefs().code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        value = value.referenced_value()
    whole, kind = value, value.type.strip_typedefs()
    if kind.code == gdb.TYPE_CODE_PTR and int(value):
        whole = value.dereference()
    lines = []
    structure = whole.type.strip_typedefs().code in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION)
    if structure and known_text(whole, 0) is None:
        member_lines(whole, 1, lines)
    return [(0, symbol.name, shown_text(value, 0 if lines and whole is value else 2))] + lines


def block_symbols(frame):
    """Returns the arguments and variables of a frame, of each name the innermost."""
    block, seen = frame.block(), set()
    while block is not None:
        for symbol in block:
            generated = symbol.name.startswith("__") and not symbol.is_argument
            if (symbol.is_argument or symbol.is_variable) and not generated and symbol.name not in seen:
                seen.add(symbol.name)
                yield symbol
        if block.function is not None:
            return
        block = block.superblock


def is_lost(symbol, frame):
    """Returns whether the place of a variable is a register that the functions called since may have changed. Clang
    does not say so, and gdb then shows what they left there."""
    if frame.newer() is None or frame.newer().type() == gdb.INLINE_FRAME and frame.newer().newer() is None:
        return False
    frame.select()
    text, inside = gdb.execute(f"info address {symbol.name}", to_string=True), frame.pc() - 1
    ranges = re.findall(r"Range 0x(\w+)-0x(\w+): (.*)", text)
    place = next((place for start, end, place in ranges if int(start, 16) <= inside < int(end, 16)), text)
    return re.search(r"a variable in \$r(ax|cx|dx|si|di|8|9|10|11)\b", place) is not None


def gdb_details():
    """Returns the lines of the variables of each frame and inlined call of the program's source."""
    frames, frame = [], gdb.newest_frame()
    while frame is not None and frame.find_sal().symtab is not None:
        variables = [detailed(symbol, frame) for symbol in block_symbols(frame)]
        frames.append((frame.name(), [variable for variable in variables if variable is not None]))
        frame = frame.older()
    return frames


def details_frames(path):
    with open(path) as file:
        text = file.read().split("\n[Frames]\n")[1].split("\n\n[")[0]
    frames = []
    for line in text.split("\n"):
        variable = re.match(r"    (?:parameter|local) (.*?): .*? = (.*?)(?: \[register\])?$", line)
        member = re.match(r"    ((?:    )+)\.(.*?): .*? = (.*)$", line)
        if line.startswith("#"):
            frames.append([])
        elif variable:
            frames[-1].append([(0, variable[1], variable[2])])
        elif member:
            frames[-1][-1].append((len(member[1]) // 4, member[2], member[3]))
    return frames


def report_differences(what, expected, found):
    count = differ = 0
    for index, (name, variables) in enumerate(expected):
        for variable in variables:
            count += 1
            reported = [other for other in found[index] if other[0][1] == variable[0][1]]
            if variable not in reported:
                differ += 1
                print(f"frame {index} {name}: gdb has {variable}, the {what} {reported}")
    print(f"compared {count} variables with the {what}, {differ} differ")


def compare():
    gdb.execute("set pagination off")
    gdb.execute("handle SIGSEGV stop print pass")
    gdb.execute("run")
    expected, expected_details = gdb_frames(), gdb_details()
    subprocess.run(os.environ["VALUES_LATE"], shell=True, check=True)
    gdb.execute("continue")
    report_differences("report", expected, report_frames(glob.glob("CrashReport_*.rpt")[0]))
    report_differences("details", expected_details, details_frames(glob.glob("CrashReport_*_details.txt")[0]))


if gdb is not None:
    compare()
else:
    build_and_compare(*sys.argv[1:])
