"""Fields of bits. Planes and spaces show a row as a text with # for each set bit."""
import math

from .values import ArrayPrinter, Damaged, LARGE, ListPrinter, counted, read, set_bits

REVERSED = bytes(int(f"{byte:08b}"[::-1], 2) for byte in range(256))  # bit 0 of a row is the highest bit of a byte


def check(pointer, size):
    """Fails if a field can't have this many bytes at this place."""
    if size < 0 or size and int(pointer) == 0:
        raise Damaged(f"{size} bytes at {int(pointer):#x}")
    read(pointer + max(size - 1, 0), min(size, 1))


def bytes_of(pointer, size):
    """Returns the bytes of a field, each with its first bit as the lowest one."""
    check(pointer, size)
    return read(pointer, size).translate(REVERSED)


def set_text(pointer, size):
    """Returns how many bits of a field are set, as a text. A large field is not read."""
    check(pointer, size)
    if size > LARGE:
        return "large"
    return f"{sum(bin(byte).count('1') for byte in bytes_of(pointer, size))} set"


def row_text(data, width):
    """Returns a text for the first bits of bytes."""
    word = int.from_bytes(data, "little")
    return "".join("#" if word >> bit & 1 else "." for bit in range(width))


class RowPrinter(ArrayPrinter):
    """A BitVec_c: the indices of the set bits."""

    STEP = 4096

    def summary(self):
        size = int(self.value["iDim"])
        return f"{counted(size, 'bit')}, {set_text(self.value['pVec'], size // 8)}"

    def values(self):
        pointer, size = self.value["pVec"], int(self.value["iDim"]) // 8
        for start in range(0, size, self.STEP):
            data = bytes_of(pointer + start, min(self.STEP, size - start))
            yield from (8 * start + bit for bit in set_bits(data))


class FieldPrinter(ListPrinter):
    """A BitMap_c or a BitMap3D_c: its rows."""

    def sizes(self):
        names = ("iDimX", "iDimY", "iDimZ") if self.is_space() else ("iDimX", "iDimY")
        sizes = [int(self.value[name]) for name in names]
        if min(sizes) < 0:
            raise Damaged(f"sizes {sizes}")
        return sizes

    def is_space(self):
        return "3D" in self.value.type.strip_typedefs().unqualified().name

    def summary(self):
        sizes = self.sizes()
        return f"{' x '.join(map(str, sizes))} bits, {set_text(self.value['pMap'], math.prod(sizes) // 8)}"

    def items(self):
        width, rows, *planes = self.sizes()
        check(self.value["pMap"], math.prod(self.sizes()) // 8)
        for plane in range((planes[0] if planes else 1) if width * rows else 0):
            for row in range(rows):
                at = (plane * rows + row) * (width // 8)
                name = f"[{row}, {plane}]" if planes else f"[{row}]"
                yield name, row_text(bytes_of(self.value["pMap"] + at, width // 8), width)


class TinyPrinter(ListPrinter):
    """A TinyBitmap_c: its rows. With the width 0 there is only one row."""

    CELLS = 28

    def summary(self):
        word = int(self.value["m_dwBits"])
        return f"width {word & 15}, {bin(word >> 4).count('1')} set"

    def items(self):
        word = int(self.value["m_dwBits"])
        width = word & 15 or self.CELLS
        for row, first in enumerate(range(0, self.CELLS, width)):
            cells = min(width, self.CELLS - first)
            yield f"[{row}]", row_text((word >> 4 + first).to_bytes(4, "little"), cells)


PRINTERS = (
    ("BitVec_c", "BitVec_c", RowPrinter),
    ("BitMap_c", "BitMap_c|BitMap3D_c", FieldPrinter),
    ("TinyBitmap_c", "TinyBitmap_c", TinyPrinter),
)
