"""Element pools: how full they are, and the addresses of the elements in use."""
import gdb

from .containers import array_shape
from .strings import quoted
from .values import ArrayPrinter, Damaged, MapPrinter, Printer, counted, nodes

GROUP_ELEMENTS = 32
MAX_GROUPS = 0xFFFF


def marks_text(marks):
    """Returns a text for the marks of a pool."""
    if not 0 <= int(marks["m_iWaterMark"]):
        raise Damaged(f"{int(marks['m_iWaterMark'])} elements in use")
    return f"{int(marks['m_iWaterMark'])} in use, peak {int(marks['m_iHighWaterMark'])}"


def group_masks(slab, open_group):
    """Returns the masks of allocated elements of a slab's groups. The open group has its own masks."""
    count = int(slab["m_iNumGroups"])
    groups = slab["m_pGroups"]
    if not 0 <= count <= MAX_GROUPS:
        raise Damaged(f"{count} groups")
    for at in range(count if int(groups) else 0):
        group = groups[at]
        is_open = int(group.address) == int(open_group["m_pRecord"])
        yield int((open_group["m_Group"] if is_open else group)["m_iBits"])


def used_elements(slab, open_group):
    """Returns the addresses of a slab's elements in use."""
    pointer = gdb.lookup_type("void").pointer()
    first, size = int(slab["m_pData"]), int(slab["m_iElementSize"])
    for group, mask in enumerate(group_masks(slab, open_group)):
        for bit in range(GROUP_ELEMENTS):
            at = group * GROUP_ELEMENTS + bit
            if mask >> bit & 1 and at < int(slab["m_iNumElements"]):
                yield gdb.Value(first + at * size).cast(pointer)


class FixedPoolPrinter(ArrayPrinter):
    """A GigaPoolStatic_c."""

    def summary(self):
        slab = self.value["m_Slab"]
        room = int(slab["m_iNumElements"]) if int(slab["m_pGroups"]) else 0
        return f"pool of {room} elements of {int(slab['m_iElementSize'])} bytes, {marks_text(self.value['m_Marks'])}"

    def values(self):
        return used_elements(self.value["m_Slab"], self.value["m_Open"])


class GrowingPoolPrinter(ArrayPrinter):
    """A GigaPoolResizeable_c: the elements of the full chunks, then the others."""

    def all_slabs(self):
        for chunks in ("m_pFullList", "m_pHalfList"):
            yield from (chunk["Slab"] for chunk in nodes(self.value[chunks]))

    def summary(self):
        size = int(self.value["m_iElementSize"])
        chunks = sum(1 for _ in self.all_slabs()) + (int(self.value["m_pEmpty"]) != 0)
        marks = marks_text(self.value["m_Marks"])
        return f"pool of elements of {size} bytes, {marks}, {counted(chunks, 'chunk')}"

    def values(self):
        for slab in self.all_slabs():
            yield from used_elements(slab, self.value["m_Open"])


class MarksPrinter(Printer):
    """A GigaMarks_c."""

    def summary(self):
        return marks_text(self.value)


class SizesPoolPrinter(MapPrinter):
    """A StaticMemoryPool_c: its pools by the sizes of their blocks."""

    def summary(self):
        groups, _ = array_shape(self.value["m_dGroups"])
        return f"pool {quoted(self.value['m_sName'])} with {counted(groups, 'size')}"

    def items(self):
        groups = self.value["m_dGroups"]
        for at in range(array_shape(groups)[0]):
            group = groups["pData"][at]
            yield group["element_size"], group["pPool"].dereference()


PRINTERS = (
    ("GigaPoolStatic_c", "GigaPoolStatic_c", FixedPoolPrinter),
    ("GigaPoolResizeable_c", "GigaPoolResizeable_c", GrowingPoolPrinter),
    ("GigaMarks_c", "GigaMarks_c", MarksPrinter),
    ("StaticMemoryPool_c", "StaticMemoryPool_c", SizesPoolPrinter),
)
