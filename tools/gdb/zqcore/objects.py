"""Identifiers and modules."""
from .values import Printer, array_bytes


class GuidPrinter(Printer):
    """A Guid_c or a plat::Guid_t."""

    def summary(self):
        guid = self.value["m_guid"] if self.value.type.strip_typedefs().unqualified().name == "Guid_c" else self.value
        tail = array_bytes(guid["Data4"]).hex()
        return f"{int(guid['Data1']):08x}-{int(guid['Data2']):04x}-{int(guid['Data3']):04x}-{tail[:4]}-{tail[4:]}"


def module_name(module):
    """Returns the name of a module."""
    return module["m_szName"].string(errors="replace", length=-1)


def module_state(module):
    """Returns whether a module is initialised, as a word."""
    if module["m_bIsInitialized"]:
        return "initialised"
    return "waiting" if int(module["m_iInitOrder"]) < 0 else "shut down"


class ModulePrinter(Printer):
    """A Module_c."""

    def summary(self):
        order = int(self.value["m_iInitOrder"])
        return f"{module_name(self.value)}, {module_state(self.value)}" + (f", order {order}" if order >= 0 else "")


PRINTERS = (
    ("Guid_c", "Guid_c|plat::Guid_t", GuidPrinter),
    ("Module_c", "Module_c", ModulePrinter),
)
