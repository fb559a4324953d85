"""Reads values that may be damaged, optimised out or out of reach, and has the base of all printers."""
import gdb

LARGE = 1 << 20  # bytes and elements beyond which nothing is counted


class Damaged(Exception):
    """A value that the program can't have stored."""


class Printer:
    """A printer that never raises. A derived class has summary(); with children it derives from one of those below."""

    def __init__(self, value):
        self.value = value
        self.failed = False

    def to_string(self):
        try:
            return self.summary()
        except Exception as error:  # whatever it is, the user wants the other values
            self.failed = True
            return f"<{reason(error)}>"


class ListPrinter(Printer):
    """A printer with children: items() returns pairs of a name and a value."""

    def pairs(self):
        """Returns the children, and at an error its text. The text of a value that failed already says it."""
        try:
            if not self.failed:
                for name, value in self.items():
                    yield fetched(name), fetched(value)
        except Exception as error:
            yield "...", f"<{reason(error)}>"

    def children(self):
        return self.pairs()


class ArrayPrinter(ListPrinter):
    """A printer whose children are elements: values() returns them."""

    def items(self):
        return ((None, value) for value in self.values())

    @staticmethod
    def display_hint():
        return "array"

    def children(self):
        return ((f"[{at}]", value) for at, (_, value) in enumerate(self.pairs()))


class MapPrinter(ListPrinter):
    """A printer whose children are keys and values: items() returns pairs of them."""

    @staticmethod
    def display_hint():
        return "map"

    def children(self):
        for at, (key, value) in enumerate(self.pairs()):
            yield f"[{at}].key", key
            yield f"[{at}].value", value


def fetched(value):
    """Returns a value of the process, or why it is out of reach. gdb itself would end the whole output there."""
    try:
        if isinstance(value, gdb.Value):
            value.fetch_lazy()
        return value
    except gdb.error as error:
        return f"<{reason(error)}>"


def reason(error):
    """Returns why a value has no text."""
    if isinstance(error, TypeError):  # it has no address
        return "not in memory"
    if "optimized out" in str(error):
        return "optimized out"
    return f"damaged: {error}" if isinstance(error, Damaged) else f"not readable: {error}"


def basic_type(kind):
    """Returns a type without typedefs, references and qualifiers."""
    kind = kind.strip_typedefs()
    if kind.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        kind = kind.target().strip_typedefs()
    return kind.unqualified()


def read(address, size):
    """Returns bytes of the process."""
    return bytes(gdb.selected_inferior().read_memory(int(address), size)) if size else b""


def array_length(array):
    """Returns the number of elements of a C array."""
    return array.type.strip_typedefs().range()[1] + 1


def array_bytes(array):
    """Returns the bytes of a C array of integers, which may be outside of memory."""
    if array.address is not None:
        return read(array.address, array.type.sizeof)
    size = array.type.strip_typedefs().target().sizeof
    mask = (1 << 8 * size) - 1
    return b"".join((int(array[i]) & mask).to_bytes(size, "little") for i in range(array_length(array)))


def number(value):
    """Returns a number, which may be in a std::atomic of any standard library."""
    kind = value.type.strip_typedefs()
    while kind.code == gdb.TYPE_CODE_STRUCT:
        field = next(field for field in kind.fields() if hasattr(field, "bitpos"))
        value = value[field]
        kind = value.type.strip_typedefs()
    return int(value)


def offset_of(kind, name):
    """Returns the distance in bytes of a member from the start of its class."""
    return next(field.bitpos // 8 for field in kind.strip_typedefs().fields() if field.name == name)


def set_bits(data):
    """Returns the indices of the set bits in bytes, from the lowest bit of the first byte on."""
    for at, byte in enumerate(data):
        if byte:
            yield from (8 * at + bit for bit in range(8) if byte >> bit & 1)


def elements(pointer, count):
    """Returns the elements from a pointer on. Fails if the last one is out of reach."""
    if count:
        if int(pointer) == 0:
            raise Damaged(f"{count} elements at null")
        read((pointer + (count - 1)).cast(gdb.lookup_type("char").pointer()), 1)
    return (pointer[i] for i in range(count))


def nodes(head):
    """Returns the nodes of a chain, from the one to which a pointer points. Fails at a cycle."""
    seen = set()
    while int(head) != 0:
        if int(head) in seen:
            raise Damaged("a cycle")
        seen.add(int(head))
        node = head.dereference()
        node.fetch_lazy()
        yield node
        head = node["pNext"]


def counted(count, noun):
    """Returns a number with its noun."""
    return f"{count} {noun}" + ("" if count == 1 else "s")
