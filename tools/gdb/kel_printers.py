"""Shows objects of the runtime and their wrappers in gdb as what they are.

gdb loads it with libkel where that is installed; elsewhere `source` it. It only reads memory of the
process, so it works on a core file too.
"""

import gdb
import gdb.printing


def type_name(module, index):
    """The full name of the type in the record at that address; None for no type."""
    if int(module) == 0:
        return None
    word = int(module["typeRows"][int(index)]["word"])
    return (module["typeNamePool"] + (word >> 19 & 0xfffff)).string()


def attribute_name(module, index):
    row = module["attrRows"][int(index)]
    offset = int(row["nameHigh"]) << 4 | int(row["flagsAndName"]) >> 28
    return (module["attrNamePool"] + offset).string()


def bare(value_type):
    """The type without const and typedefs."""
    return value_type.strip_typedefs().unqualified()


class TextPrinter(object):
    """Kel::String and Kel::Bytes: their bytes."""

    def __init__(self, value):
        self.data = value["data_"]

    def to_string(self):
        if int(self.data) == 0:
            return ""
        text = (self.data + 1).cast(gdb.lookup_type("char").pointer())
        return text.string("latin-1", length=int(self.data["length"]))

    def display_hint(self):
        return "string"


class PtrPrinter(object):
    """Kel::Ptr: where it points, and the count there."""

    def __init__(self, value):
        self.object = value["object_"]
        self.name = str(bare(value.type))

    def to_string(self):
        if int(self.object) == 0:
            return "%s, null" % self.name
        said = "%s to %#x" % (self.name, int(self.object))
        references = self.references()
        return said if references is None else "%s, references %d" % (said, references)

    def references(self):
        try:
            return int(self.object["word_"]) & 0x1fffffff
        except (gdb.error, RuntimeError):
            return None


class TypePrinter(object):
    """Kel::KelType: as Python's repr."""

    def __init__(self, value):
        self.name = type_name(value["module_"], value["typeIndex_"])

    def to_string(self):
        return "type('%s')" % self.name if self.name else "no type"


class AttrPrinter(object):
    """Kel::KelAttr: as Python's repr."""

    def __init__(self, value):
        self.type = type_name(value["module_"], value["typeIndex_"])
        self.name = self.type and attribute_name(value["module_"], value["attrIndex_"])

    def to_string(self):
        return "type('%s').attr('%s')" % (self.type, self.name) if self.type else "no attribute"


class GenericPrinter(object):
    """Kel::GenericIf: what it shows and where that is."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        name = type_name(self.value["module_"], self.value["typeIndex_"])
        const = "const " if self.value["isConst_"] else ""
        return "%s%s at %#x" % (const, name, int(self.value["address_"]))


class WrapperPrinter(object):
    """PyGenericIf: what it wraps."""

    def __init__(self, value):
        self.generic = value["gif"]["object_"]

    def to_string(self):
        if int(self.generic) == 0:
            return "a wrapper of nothing"
        return "a wrapper of " + GenericPrinter(self.generic.dereference()).to_string()


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("kel")
    collection.add_printer("text", "^Kel::(String|Bytes)$", TextPrinter)
    collection.add_printer("Ptr", "^Kel::Ptr<.*>$", PtrPrinter)
    collection.add_printer("type", "^Kel::KelType(Base)?$", TypePrinter)
    collection.add_printer("attribute", "^Kel::KelAttr(Base)?$", AttrPrinter)
    collection.add_printer("generic", "^Kel::GenericIf$", GenericPrinter)
    collection.add_printer("wrapper", "^PyGenericIf$", WrapperPrinter)
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
