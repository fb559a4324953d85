"""Files of the table of files, and archives."""
from .strings import plain, quoted
from .values import Damaged, Printer, counted, number


def folder_of(file):
    """Returns the folder of a file, or an empty text."""
    return plain(file["pPath"].dereference()) if int(file["pPath"]) else ""


def state_of(file):
    """Returns whether the contents of a file are in memory, and who uses them."""
    references = number(file["m_iOpensCount"])
    state = "resident" if int(file["pData"]) else "not resident"
    return f"{state}, {counted(references, 'reference')}" if references else state


class FilePrinter(Printer):
    """A File_c."""

    def summary(self):
        folder = folder_of(self.value)
        place = f" in {quoted(self.value['pPath'].dereference())}" if folder else ""
        size = counted(int(self.value["iLength"]), "byte")
        return f"{quoted(self.value['sName'])}{place}, {size}, {state_of(self.value)}"


class ArchivePrinter(Printer):
    """An archive. A derived class has place(), which says where it is."""

    def summary(self):
        version = int(self.value["m_dwVersion"])
        failed = ", failed" if self.value["m_bFailed"] else ""
        return f"{self.place()}, version {version >> 16}.{version & 0xFFFF}{failed}"


class ReaderPrinter(ArchivePrinter):
    """A Readable_c."""

    def place(self):
        if not int(self.value["m_pFile"]):
            return "closed reader"
        file = self.value["m_pFile"].dereference()
        start, at = int(file["pData"]), int(self.value["m_pPos"])
        position, length = at - start if at else 0, int(file["iLength"])
        if not 0 <= position <= length:
            raise Damaged(f"byte {position} of {length}")
        chunk = int(self.value["m_pCurrentChunk"])
        in_chunk = f", in the chunk at byte {chunk - start}" if chunk else ""
        return f"reader of {quoted(file['sName'])} at byte {position} of {length}{in_chunk}"


class MemoryReaderPrinter(ArchivePrinter):
    """A MemoryReadable_c."""

    def place(self):
        left = int(self.value["m_pEnd"]) - int(self.value["m_pPos"])
        if left < 0:
            raise Damaged(f"{left} bytes left")
        name = self.value["m_szName"].string(errors="replace")
        return f'reader of "{name}" with {counted(left, "byte")} left'


class WriterPrinter(ArchivePrinter):
    """A Writeable_c or a BufferedWriteable_c."""

    NO_CHUNK = 0xFFFFFFFF

    def waiting(self):
        """Returns the number of bytes in the buffer."""
        if self.value.type.strip_typedefs().unqualified().name != "BufferedWriteable_c":
            return 0
        return int(self.value["m_pPos"]) - int(self.value["m_dBuffer"].address)

    def place(self):
        name = quoted(self.value["m_sFileName"])
        if not int(self.value["m_hFile"]):
            return f"closed writer of {name}"
        return f"writer of {name} at byte {int(self.value['m_nPosition']) + self.waiting()}{self.chunk()}"

    def chunk(self):
        """Returns where the open chunk begins, as a text."""
        chunk = int(self.value["m_dwCurrentChunk"])
        return f", in the chunk at byte {chunk}" if chunk != self.NO_CHUNK else ""


class MemoryWriterPrinter(WriterPrinter):
    """A MemoryWriteable_c."""

    def place(self):
        return f"writer of memory at byte {int(self.value['m_pPos']) - int(self.value['m_pStart'])}{self.chunk()}"


PRINTERS = (
    ("File_c", "File_c|FileOnDisk_c", FilePrinter),
    ("Readable_c", "Readable_c", ReaderPrinter),
    ("MemoryReadable_c", "MemoryReadable_c|ArchiveCheck_c", MemoryReaderPrinter),
    ("MemoryWriteable_c", "MemoryWriteable_c", MemoryWriterPrinter),
    ("Writeable_c", "Writeable_c|BufferedWriteable_c", WriterPrinter),
)
