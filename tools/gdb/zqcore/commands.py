"""The command zq: what the library's global objects hold."""
import fnmatch

import gdb

from . import containers, files, objects
from .strings import plain
from .values import LARGE, nodes, number, reason

NOT_FOUND = ("gdb does not know {}. Start the program or load a core file. If that has been done, the debug "
             "information of ZQCore is missing (docs/debugging.md).")


def known(name):
    """Returns a variable of the library, or None."""
    symbol = gdb.lookup_global_symbol(name) or gdb.lookup_static_symbol(name)
    return symbol.value() if symbol else None


def variable(name):
    """Returns a variable of the library."""
    value = known(name)
    if value is None:
        raise gdb.GdbError(NOT_FOUND.format(name))
    return value


def write_table(heads, rows):
    """Writes rows of cells in columns. Numbers are on the right."""
    lines = [heads] + [[f"{cell:,}" if isinstance(cell, int) else cell for cell in row] for row in rows]
    widths = [max(len(line[at]) for line in lines) for at in range(len(heads))]
    right = [any(isinstance(row[at], int) for row in rows) for at in range(len(heads))]
    for line in lines:
        cells = (cell.rjust(width) if is_right else cell.ljust(width)
                 for cell, width, is_right in zip(line, widths, right))
        gdb.write("  ".join(cells).rstrip() + "\n")


class Command(gdb.Command):
    """A command that reports what it can't read."""

    def __init__(self, name, completer=gdb.COMPLETE_NONE):
        super().__init__(name, gdb.COMMAND_DATA, completer)

    def invoke(self, argument, _from_tty):
        try:
            self.run(argument.strip())
        except gdb.GdbError:
            raise
        except Exception as error:
            raise gdb.GdbError(f"The process can't be shown, {reason(error)}") from None


class Zq(gdb.Command):
    """Show what ZQCore holds: its files, its memory, its modules.

The commands read the process or a core file. They call no function of it."""

    def __init__(self):
        super().__init__("zq", gdb.COMMAND_DATA, gdb.COMPLETE_NONE, True)


class Files(Command):
    """List the known files whose names match: folder, size and state.
Usage: zq files [NAME]

NAME is a part of a name, or a pattern with * and ?. Case does not matter. Without a NAME all files are listed."""

    def run(self, pattern):
        named = [(self.name(slot), slot) for slot in containers.used_slots(variable("g_sFileObjects"))]
        rows = sorted(self.row(name, slot) for name, slot in named if self.matches(name, pattern))
        if rows:
            write_table(["name", "bytes", "folder", "state"], rows)
        gdb.write(f"{len(rows)} of {len(named)} files\n")

    @staticmethod
    def matches(name, pattern):
        pattern = pattern.lower().replace("/", "\\").replace("[", "[[]")
        whole = pattern if any(sign in pattern for sign in "*?") else f"*{pattern}*"
        return fnmatch.fnmatchcase(name.lower(), whole)

    @staticmethod
    def name(slot):
        try:
            return plain(slot["pName"].dereference())
        except Exception:
            return "?"

    @staticmethod
    def row(name, slot):
        try:
            file = slot["pObject"].dereference()
            return name, int(file["iLength"]), files.folder_of(file), files.state_of(file)
        except Exception as error:
            return name, 0, "", reason(error)


class Memory(Command):
    """List the memory of each category: bytes and blocks, now and at the peak.
Usage: zq memory

The heap of a shipped game knows the peaks of categories only as of the last report."""

    def run(self, _argument):
        counters = known("g_MemoryCounters")
        rows, total = debug_memory(counters) if counters is not None else ship_memory()
        rows = sorted((row for row in rows if any(row[1:])), key=lambda row: -row[1])
        write_table(["category", "bytes", "blocks", "peak bytes", "peak blocks"], rows + [total])


def categories():
    """Returns the names and the numbers of the categories of memory that are counted."""
    fields = gdb.lookup_type("mem::Categories_e").fields()
    named = [(field.name.split("::")[-1], field.enumval) for field in fields]
    return [category for category in named if category[0] not in ("CRT", "TOTAL")]


def debug_memory(counters):
    """Returns the rows of the debug heap and their total."""
    names = ("dBytes", "dCount", "dMaxBytes", "dMaxCount")
    rows = [[name] + [int(counters[figure][at]) for figure in names] for name, at in categories()]
    total = [number(counters[name]) for name in ("nTotalBytes", "nTotalCount", "nMaxTotalBytes")]
    return rows, ["all"] + total + [""]


def ship_memory():
    """Returns the rows of the heap of a shipped game and their total."""
    head = variable("(anonymous namespace)::g_pFigures")
    threads = list(nodes(head.address.cast(gdb.lookup_type("MemoryFigures_s").pointer().pointer()).dereference()))
    seen = variable("(anonymous namespace)::g_dSeen")
    rows = []
    for name, at in categories():
        sums = [sum(number(thread["dCategories"][at][figure]) for thread in threads)
                for figure in ("iBytes", "nAllocs", "nFrees")]
        count = sums[1] - sums[2]
        rows.append([name, sums[0], count, max(sums[0], int(seen[at]["nMaxBytes"])),
                     max(count, int(seen[at]["nMaxCount"]))])
    count = [sum(row[column] for row in rows) for column in (1, 2)]
    return rows, ["all"] + count + [max(count[0], number(variable("(anonymous namespace)::g_iPeak"))), ""]


class Modules(Command):
    """List the registered modules: order of initialisation, state, and what each needs.
Usage: zq modules"""

    def run(self, _argument):
        modules = variable("Module_c::m_dModules")
        length, _ = containers.array_shape(modules)
        rows = [self.row(modules["pData"][at].dereference()) for at in range(length)]
        if rows:
            write_table(["order", "module", "state", "needs"], rows)
        gdb.write(f"{len(rows)} modules\n")

    @staticmethod
    def row(module):
        try:
            order = int(module["m_iInitOrder"])
            needs = ", ".join(map(objects.module_name, prerequisites(module)))
            return order if order >= 0 else "-", objects.module_name(module), objects.module_state(module), needs
        except Exception as error:
            return "-", "?", reason(error), ""


def prerequisites(module):
    """Returns the modules that a module needs."""
    entry = module["m_ppPrerequisites"]
    for at in range(LARGE if int(entry) else 0):
        if not int(entry[at]):
            return
        yield entry[at].dereference()


def register():
    """Adds the commands to gdb."""
    for command in (Zq, Files, Memory, Modules):
        command() if command is Zq else command(f"zq {command.__name__.lower()}")
