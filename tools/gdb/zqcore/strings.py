"""Texts: String_T and what derives from it, of narrow and of wide characters."""
import gdb

from .values import Damaged, Printer, array_bytes


def characters(array):
    """Returns the bytes of an array of characters up to its terminator, and whether it has one."""
    size = array.type.strip_typedefs().target().sizeof
    data = array_bytes(array)
    ends = (at for at in range(0, len(data), size) if not any(data[at:at + size]))
    end = next(ends, None)
    return data[:end], end is not None


def plain(text):
    """Returns a String_T as text of Python."""
    data, ended = characters(text["m_sText"])
    if not ended:
        raise Damaged("a text without a terminator")
    return data.decode(errors="replace")


def quoted(text):
    """Returns a String_T in quotes, as gdb prints a text."""
    return '"' + plain(text).replace("\\", "\\\\").replace('"', '\\"') + '"'


class TextPrinter(Printer):
    """A String_T. gdb itself prints the characters, so that its settings for texts hold."""

    def summary(self):
        array = self.value["m_sText"]
        kind = array.type.strip_typedefs().target().unqualified()
        data, ended = characters(array)
        if not data:
            return '""' if kind.sizeof == 1 else 'L""'
        text = gdb.Value(data, kind.array(len(data) // kind.sizeof - 1))
        return text if ended else f"<damaged: no terminator after {text}>"


PRINTERS = (
    ("String_T", "W?String_T<.*>", TextPrinter),
    ("FileName_c", "FileName_c", TextPrinter),
)
