"""Lists of Link_T, and the event lists that are made of them."""
import itertools

import gdb

from .values import ArrayPrinter, Damaged, ListPrinter, basic_type, nodes


MAX_NODES = 10000  # nodes that are counted


def count_nodes(chain):
    """Returns the number of nodes as a text, which says so if the list does not end."""
    count = 0
    try:
        for count, _ in enumerate(chain, 1):
            if count == MAX_NODES:
                return f"{count} or more"
    except (Damaged, gdb.error):
        return f"{count}, damaged"
    return str(count)


class LinkPrinter(ArrayPrinter):
    """The list from a node on, which may be outside of memory."""

    def chain(self):
        if self.value.address is not None:
            return nodes(self.value.address)
        return itertools.chain([self.value], nodes(self.value["pNext"]))

    def summary(self):
        return f"list of {count_nodes(self.chain())}"

    def values(self):
        return (node["tData"] for node in self.chain())


class HeadPrinter(LinkPrinter):
    """The list to which a pointer points."""

    def chain(self):
        return nodes(self.value)


def list_printer(value):
    """Returns the printer of a pointer to a node, or None for another value."""
    kind = basic_type(value.type)
    if kind.code != gdb.TYPE_CODE_PTR:
        return None
    name = basic_type(kind.target()).name
    return HeadPrinter(value) if name and name.startswith("Link_T<") else None


class EventPrinter(ListPrinter):
    """A Callbacker_T: its functions in the order in which they are called."""

    def summary(self):
        text = f"event of {count_nodes(nodes(self.value['pHead']))}"
        return text + (", firing" if self.value["m_bFiring"] else "")

    def items(self):
        for at, node in enumerate(nodes(self.value["pHead"])):
            entry = node["tData"]
            yield f"[{at}]" + (" exclusive" if entry["m_bExclusive"] else ""), entry["fn"]


PRINTERS = (
    ("Link_T", "Link_T<.*>", LinkPrinter),
    ("Callbacker_T", "Callbacker(Base)?_T<.*>", EventPrinter),
)
