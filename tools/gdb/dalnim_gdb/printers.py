"""Pretty printers of the library's classes."""
import gdb
import gdb.printing

from . import inferior
from . import threads


class Printer:
    """A pretty printer whose failures are texts, so that the rest of a structure is still printed."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return inferior.described(self.text)


class StringPrinter(Printer):
    """Prints an RX_String as a string."""

    def __init__(self, value):
        super().__init__(value)
        try:
            self.string = inferior.rx_string(value)
            self.is_text = True
        except Exception as error:
            self.string = f"<{inferior.reason(error)}>"
            self.is_text = False

    def text(self):
        return self.string

    def display_hint(self):
        # Without quotation marks, a reason is not mistaken for the text.
        return "string" if self.is_text else None


class ReferencePrinter(Printer):
    """Prints a reference with the class, the address and the number of references of its object."""

    def text(self):
        return f"{short_type(self.value)} to " + inferior.counted_label(self.value["rco"])

    def children(self):
        pointer = self.value["rco"]
        return iter([("rco", pointer)]) if int(pointer) != 0 else iter([])


class HolderPrinter(Printer):
    """Prints an ObjectHolder."""

    RELEASE, ACQUIRE, COUNTED = 1, 2, 4

    def text(self):
        flags = int(self.value["flags"])
        pointer = self.value["rco"] if flags & self.COUNTED else self.value["obj"]
        if int(pointer) == 0:
            return "ObjectHolder of null"
        label = inferior.counted_label(pointer) if flags & self.COUNTED else inferior.object_label(pointer)
        return f"ObjectHolder of {label}, " + ("owned" if flags & self.RELEASE else "not owned")


class ContextPrinter(Printer):
    """Prints the entries of a ContainerContext."""

    def text(self):
        count = sum(1 for _ in threads.entries_of_context(self.value))
        return f"{short_type(self.value)} with {count} entr" + ("y" if count == 1 else "ies")

    def children(self):
        return guarded(((f"[{key}]", inferior.counted_label(pointer))
                        for key, pointer in threads.entries_of_context(self.value)))


class PropertiesPrinter(Printer):
    """Prints the keys and values of Properties."""

    def text(self):
        count = inferior.checked(self.value["data"]["_M_t"]["_M_impl"]["_M_node_count"], "map")
        return f"Properties with {count} propert" + ("y" if count == 1 else "ies")

    def children(self):
        return guarded(self.pairs(), 2)

    def pairs(self):
        for number, (key, value) in enumerate(inferior.entries_of_map(self.value["data"])):
            yield f"[{number}].key", inferior.described(inferior.std_string, key)
            yield f"[{number}].value", inferior.described(inferior.std_string, value)

    def display_hint(self):
        return "map"


class CompositePrinter(Printer):
    """Prints a CompositeString as the part that next() has not returned, with its delimiters."""

    def text(self):
        skips = ", empty components skipped" if self.value["skip_nil"] else ""
        return (f'CompositeString "{inferior.std_string(self.value["target"])}", '
                f'delimiters "{inferior.std_string(self.value["delims"])}"{skips}')


class TracePrinter(Printer):
    """Prints a StackTrace, also that of an exception. The innermost track is the first."""

    def text(self):
        number = sum(1 for _ in inferior.elements_of_vector(self.trace()["data"]))
        text = f"{short_type(self.value)} with {number} track" + ("" if number == 1 else "s")
        error = base_of(self.value, "sys::system_error")
        if error is not None:
            text += f", error {int(error['err'])}"
        failure = base_of(self.value, "std::runtime_error", "")
        if failure is not None:
            # The member after the table of virtual functions. Its type is described in libstdc++ only.
            message = inferior.described(lambda: inferior.c_string(inferior.read_pointer(int(failure.address) + 8)))
            text += f': "{message}"'
        return text

    def trace(self):
        return base_of(self.value, "sys::StackTrace")

    def children(self):
        return guarded(((f"[{number}]", inferior.described(inferior.std_string, label)) for number, label in
                        enumerate(inferior.elements_of_vector(self.trace()["data"]))))


class RuntimeExceptionPrinter(Printer):
    """Prints an RX_Exception with its messages, the latest first."""

    def text(self):
        base = base_of(self.value, "RX_Exception_", "")
        text = f"{self.value.type.unqualified().strip_typedefs()} with code {int(base['_code'])}"
        file = inferior.rx_string(base["_file"])
        return text + (f" from {file}:{int(base['_line'])}" if file else "")

    def children(self):
        return guarded(self.messages())

    def messages(self):
        message = base_of(self.value, "RX_Exception_", "")
        number = 0
        code, arguments, pointer = message["_code"], message["_arguments"], message["_next"]
        while True:
            words = [inferior.rx_string(arguments[index]) for index in range(arguments.type.range()[1] + 1)]
            yield f"[{number}]", " ".join([str(int(code))] + [word for word in words if word])
            pointer = inferior.pointer_in(pointer)
            if int(pointer) == 0:
                return
            number = inferior.checked(number + 1, "chain of messages", 1000)
            message = pointer.dereference()
            code, arguments, pointer = message["code"], message["arguments"], message["next"]


def guarded(children, parts=1):
    """Yields children up to a failure, which becomes the last child. In maps, a child has two parts."""
    try:
        yield from children
    except Exception as error:
        for _ in range(parts):
            yield "unreadable", f"<{inferior.reason(error)}>"


def short_type(value):
    """Returns the class of a value, without the namespace of the library."""
    return str(value.type.unqualified().strip_typedefs()).replace(inferior.NAMESPACE, "")


def base_of(value, name, namespace=inferior.NAMESPACE):
    """Returns the part of a value that is of this class: itself, or one of its bases. Otherwise None."""
    own = value.type.unqualified().strip_typedefs()
    if own.name == namespace + name:
        return value
    if own.code != gdb.TYPE_CODE_STRUCT:
        return None
    for field in own.fields():
        if field.is_base_class:
            found = base_of(value[field], name, namespace)
            if found is not None:
                return found
    return None


# By the name of the class without its template arguments.
PRINTERS = {
    "RX_String": StringPrinter,
    inferior.NAMESPACE + "mem::RcoRef": ReferencePrinter,
    inferior.NAMESPACE + "mem::ConstRcoRef": ReferencePrinter,
    inferior.NAMESPACE + "mem::ObjectHolder": HolderPrinter,
    inferior.NAMESPACE + "io::Properties": PropertiesPrinter,
    inferior.NAMESPACE + "type::CompositeString": CompositePrinter,
}
# By a class that is the class of the value, or one of its bases.
BASE_PRINTERS = (
    ("sys::StackTrace", inferior.NAMESPACE, TracePrinter),
    ("type::ContainerContext", inferior.NAMESPACE, ContextPrinter),
    ("RX_Exception_", "", RuntimeExceptionPrinter),
)


class Collection(gdb.printing.PrettyPrinter):
    """Selects the printer of a value."""

    def __call__(self, value):
        try:
            value_type = value.type.unqualified().strip_typedefs()
            if value_type.code != gdb.TYPE_CODE_STRUCT or value_type.name is None:
                return None
            printer = PRINTERS.get(value_type.name.partition("<")[0])
            if printer is None:
                printer = next((printer for name, namespace, printer in BASE_PRINTERS
                                if base_of(value, name, namespace) is not None), None)
            return printer(value) if printer is not None else None
        except Exception:
            # gdb prints the value without a printer.
            return None


def register(objfile):
    gdb.printing.register_pretty_printer(objfile, Collection("dalnim"), replace=True)
