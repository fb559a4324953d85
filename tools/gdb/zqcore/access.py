"""Access to elements in expressions: array[2], table["name"] and table[7], without a call of the process."""
import gdb
import gdb.xmethod

from . import containers
from .strings import plain
from .values import Damaged, array_length, basic_type, reason


def array_element(array, index):
    """Returns an element of an array."""
    length, _ = containers.array_shape(array)
    return element(array["pData"], length, int(index))


def fixed_element(array, index):
    """Returns an element of a StaticArray_T."""
    elements = array["m_dElements"]
    return element(elements, array_length(elements), int(index))


def element(data, length, index):
    """Returns an element, or a text if there is no such index."""
    return data[index] if 0 <= index < length else text(f"no element {index}: the length is {length}")


def named_object(table, name):
    """Returns the object of a name in a StringHash_T, or a text."""
    wanted = name.string()
    for slot in containers.used_slots(table):
        if plain(slot["pName"].dereference()) == wanted:
            return slot["pObject"].dereference()
    return text(f"nothing named {wanted}")


def numbered_value(table, key):
    """Returns the value of a number in an IndexHash_T, or a text."""
    for slot in containers.number_slots(table):
        if int(slot["iKey"]) == int(key):
            return slot["Value"]
    return text(f"no value of {int(key)}")


def text(message):
    """Returns a text as a value. An exception would end in two lines about Python."""
    return gdb.Value(f"<{message}>")


# By the beginning of the class's name: the type of the index, and the function.
OPERATORS = {
    "Array_T<": ("int", array_element),
    "SortedArray_T<": ("int", array_element),
    "ArrayBuffer_c": ("int", array_element),
    "StaticArray_T<": ("int", fixed_element),
    "StringHash_T<": ("char const *", named_object),
    "IndexHash_T<": ("unsigned int", numbered_value),
}


class Worker(gdb.xmethod.XMethodWorker):
    """The operator [] of one class."""

    def __init__(self, index, function):
        self.index = index
        self.function = function

    def get_arg_types(self):
        if self.index == "char const *":
            return gdb.lookup_type("char").const().pointer()
        return gdb.lookup_type(self.index)

    def get_result_type(self, container, index):
        return self(container, index).type

    def __call__(self, container, index):
        try:
            return self.function(container, index)
        except (Damaged, gdb.error) as error:
            return text(reason(error))


class Matcher(gdb.xmethod.XMethodMatcher):
    """Finds the operator of a class."""

    def __init__(self):
        super().__init__("zqcore")
        self.methods = [gdb.xmethod.XMethod("operator[]")]

    def match(self, class_type, method_name):
        name = basic_type(class_type).name or ""
        if method_name != "operator[]" or not self.methods[0].enabled:
            return None
        for start, (index, function) in OPERATORS.items():
            if name.startswith(start):
                return Worker(index, function)
        return None
