"""Arrays and hash tables."""
import gdb

from .values import (ArrayPrinter, Damaged, MapPrinter, array_bytes, array_length, counted, elements, offset_of,
                     set_bits)


def is_in_place(data):
    """Returns whether the storage of an array is a member, not a pointer to the heap."""
    return data.type.strip_typedefs().code == gdb.TYPE_CODE_ARRAY


def array_shape(value):
    """Returns the length and the capacity of an array. Fails if they can't be true."""
    length = int(value["iLength"])
    data = value["pData"]
    capacity = array_length(data) if is_in_place(data) else int(value["iAllocated"])
    if not 0 <= length <= capacity:
        raise Damaged(f"length {length}, capacity {capacity}")
    return length, capacity


class GrowingPrinter(ArrayPrinter):
    """An Array_T or another SortedArray_T."""

    def summary(self):
        length, capacity = array_shape(self.value)
        return f"length {length}, capacity {capacity}"

    def values(self):
        length, _ = array_shape(self.value)
        data = self.value["pData"]
        if is_in_place(data):
            return (data[i] for i in range(length))
        return elements(data, length)


class FixedPrinter(ArrayPrinter):
    """A StaticArray_T."""

    def summary(self):
        return f"length {array_length(self.value['m_dElements'])}"

    def values(self):
        data = self.value["m_dElements"]
        return (data[i] for i in range(array_length(data)))


def used_slots(table):
    """Returns the slots of a StringHash_T that hold an object, in slot order."""
    slots = table["m_dSlots"]
    for at in set_bits(array_bytes(table["m_dTaken"])):
        if at >= array_length(slots):
            raise Damaged("more entries than slots")
        yield slots[at]


class NameTablePrinter(MapPrinter):
    """A StringHash_T: its objects by their names."""

    def summary(self):
        taken = array_bytes(self.value["m_dTaken"])
        used = sum(bin(byte).count("1") for byte in taken)
        return f"{counted(used, 'object')} in {array_length(self.value['m_dSlots'])} slots"

    def items(self):
        for slot in used_slots(self.value):
            yield slot["pName"].dereference(), slot["pObject"].dereference()


def number_slots(table):
    """Returns the used slots of an IndexHash_T, in slot order."""
    slots = table["m_dSlots"]
    size = slots.type.target().sizeof
    offset = offset_of(slots.type.target(), "bUsed")
    data = array_bytes(slots)
    return (slots[at // size] for at in range(0, len(data), size) if data[at + offset])


class NumberTablePrinter(MapPrinter):
    """An IndexHash_T: its values by their numbers."""

    def summary(self):
        used, size = int(self.value["m_nEntries"]), array_length(self.value["m_dSlots"])
        if not 0 <= used <= size:
            raise Damaged(f"{used} entries in {size} slots")
        return f"{counted(used, 'value')} in {size} slots"

    def items(self):
        return ((slot["iKey"], slot["Value"]) for slot in number_slots(self.value))


PRINTERS = (
    ("Array_T", "(Array_T|SortedArray_T)<.*>", GrowingPrinter),
    ("ArrayBuffer_c", "ArrayBuffer_c", GrowingPrinter),
    ("StaticArray_T", "StaticArray_T<.*>", FixedPrinter),
    ("StringHash_T", "StringHash_T<.*>", NameTablePrinter),
    ("IndexHash_T", "IndexHash_T<.*>", NumberTablePrinter),
)
