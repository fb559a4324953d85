"""gdb's view of ZQCore: printers of its types, element access without a call, and the command zq.

Works on a running process, on a core file and on a program that is not started. Nothing here calls a function of the
process or writes to it.
"""
import gdb
import gdb.printing
import gdb.xmethod

from . import access, bits, commands, containers, files, links, objects, pools, strings

MODULES = (strings, containers, links, bits, pools, files, objects)


class Printers(gdb.printing.RegexpCollectionPrettyPrinter):
    """The printers by the names of their types. A list is a pointer to its first node, so that type has one too."""

    def __init__(self):
        super().__init__("zqcore")
        for module in MODULES:
            for name, pattern, printer in module.PRINTERS:
                self.add_printer(name, f"^{pattern}$", printer)

    def __call__(self, value):
        return links.list_printer(value) or super().__call__(value)


def raise_value_size():
    """Lets gdb read whole tables, such as that of files, if the limit on the size of values is the default one."""
    if gdb.parameter("max-value-size") == 65536:
        gdb.execute(f"set max-value-size {4 << 20}")


def register(objfile):
    """Registers all for an object file, or for all if it is None."""
    gdb.printing.register_pretty_printer(objfile, Printers(), replace=True)
    raise_value_size()
    gdb.xmethod.register_xmethod_matcher(objfile, access.Matcher(), replace=True)


commands.register()
