"""Reads objects in the process or the core file that gdb examines.

A failure is a gdb.error or an Unreadable. Its message is for the user: see reason().
"""
import contextlib
import os
import re

import gdb

NAMESPACE = "com::kor::dal::nim::"

# Larger values are not sizes: the object was overwritten, or is not constructed yet.
MOST_ELEMENTS = 1 << 20
LONGEST_TEXT = 1 << 20
LONGEST_NAME = 4096

CHUNK = 64  # bytes; a chunk that is aligned to its size is on one page
POINTER = 8  # bytes

ESCAPES = {"\n": "\\n", "\r": "\\r", "\t": "\\t"}


class Unreadable(Exception):
    """An object that cannot be read, with the reason."""


def reason(error):
    """Returns the message of an error as one line."""
    lines = str(error).strip().splitlines()
    return lines[0].rstrip(".") if lines else type(error).__name__


def described(function, *arguments):
    """Returns the text that the function returns or, if it fails, the reason in angle brackets."""
    try:
        return function(*arguments)
    except Exception as error:
        return f"<{reason(error)}>"


def checked(count, what, most=MOST_ELEMENTS):
    """Returns a number of elements, unless it cannot be one."""
    count = int(count)
    if not 0 <= count <= most:
        raise Unreadable(f"corrupt {what} of size {count}")
    return count


# Process and library


def library():
    """Returns the object file of the library, or None if it is not loaded."""
    for objfile in gdb.objfiles():
        if objfile.owner is None and os.path.basename(objfile.filename or "").startswith("libdalnim.so"):
            return objfile
    return None


def require_library():
    """Raises Unreadable unless there is a process whose library has debug information."""
    if not gdb.selected_inferior().threads():
        raise Unreadable("there is no process and no core file")
    found = library()
    if found is None:
        raise Unreadable("libdalnim.so is not loaded in this process")
    try:
        # A class without a header: applications that were built with -g describe the others, too.
        gdb.lookup_type("RX_ServerQueue::Implementation")
    except gdb.error:
        raise Unreadable(f"{found.filename} has no debug information: install libdalnim1-dbgsym, or the library "
                         "without --strip") from None


def find_type(name):
    """Returns a type of the library, whose name is relative to its namespace."""
    return gdb.lookup_type(NAMESPACE + name)


def variable(name):
    """Returns a variable of the library, whose name is relative to its namespace."""
    return gdb.parse_and_eval(f"'{NAMESPACE}{name}'")


def threads():
    """Returns the threads, in the order of their numbers."""
    return sorted(gdb.selected_inferior().threads(), key=lambda thread: thread.num)


def thread_label(thread):
    """Returns the number, the kernel's ID and the name of a thread, such as 'Thread 2 (LWP 4711) "worker"'."""
    name = f' "{printable(thread.name)}"' if thread.name else ""
    return f"Thread {thread.num} (LWP {thread.ptid[1]}){name}"


def lwp_label(lwp):
    """Returns the label of the thread with a kernel's thread ID, also if it has ended."""
    for thread in threads():
        if thread.ptid[1] == lwp:
            return thread_label(thread)
    return f"LWP {lwp}, which has ended"


@contextlib.contextmanager
def selected(thread):
    """Selects a thread, and restores the thread and the frame that the user has selected."""
    previous = gdb.selected_thread()
    frame = None
    if previous is not None:
        with contextlib.suppress(gdb.error):
            frame = gdb.selected_frame()
    try:
        thread.switch()
        yield
    finally:
        if previous is not None and previous.is_valid():
            previous.switch()
            if frame is not None and frame.is_valid():
                frame.select()


def target_size(pointer):
    """Returns the size of the objects that a pointer points to, in bytes."""
    return pointer.type.strip_typedefs().target().sizeof


# Memory and texts


def read_pointer(address):
    """Returns the 8 bytes at an address as an integer."""
    return int.from_bytes(bytes(gdb.selected_inferior().read_memory(address, POINTER)), "little")


def printable(text):
    """Returns a text in which control characters, which a terminal would obey, are escaped."""
    return "".join(character if character.isprintable() else
                   ESCAPES.get(character) or character.encode("unicode_escape").decode() for character in text)


def text_at(address, length):
    """Returns the text of a given length in bytes."""
    length = checked(length, "string", LONGEST_TEXT)
    if length == 0:
        return ""
    return printable(bytes(gdb.selected_inferior().read_memory(address, length)).decode("utf-8", "backslashreplace"))


def c_string(pointer):
    """Returns the text that a `const char*` points to."""
    address = int(pointer)
    if address == 0:
        raise Unreadable("null")
    found = b""
    while len(found) < LONGEST_NAME:
        size = CHUNK - address % CHUNK
        part, end, _ = bytes(gdb.selected_inferior().read_memory(address, size)).partition(b"\0")
        found += part
        if end:
            break
        address += size
    return printable(found.decode("utf-8", "backslashreplace"))


def std_string(value):
    """Returns the text of a std::string."""
    return text_at(int(value["_M_dataplus"]["_M_p"]), int(value["_M_string_length"]))


def rx_string(value):
    """Returns the text of an RX_String."""
    rep = value["_rep"]
    if int(rep) == 0:
        raise Unreadable("corrupt string without a representation")
    length = checked(rep["length"], "string", LONGEST_TEXT)
    # The empty representation is shared, and has no capacity.
    if length > int(rep["capacity"]):
        raise Unreadable(f"corrupt string of length {length} and capacity {int(rep['capacity'])}")
    return text_at(int(rep) + target_size(rep), length)


def class_at(address):
    """Returns the class of the object at an address, which its table of virtual functions identifies."""
    text = gdb.execute(f"info symbol {read_pointer(address):#x}", to_string=True)
    match = re.match(r"vtable for (.+?)(?: \+ \d+)?(?: in section .*)?$", text.strip())
    if match is None:
        raise Unreadable("object of an unknown class")
    return match[1]


def short_class_at(address):
    """Returns the class of an object, without the namespace of the library."""
    return class_at(address).replace(NAMESPACE, "")


def object_label(pointer):
    """Returns class and address of the object that a pointer points to."""
    if int(pointer) == 0:
        return "null"
    return f"{described(short_class_at, int(pointer))} at {int(pointer):#x}"


def counted_label(pointer):
    """Returns class, address and number of references of a reference-counted object."""
    if int(pointer) == 0:
        return "null"
    return f"{object_label(pointer)}, {described(reference_count, pointer)}"


def reference_count(pointer):
    """Returns the number of references to a mem::RefCntObject, as refCount() does."""
    target = pointer.dereference()
    count = int(target["refs"]) - int(target["bias"])
    return f"{count} reference" + ("" if count == 1 else "s")


# Containers of the C++ library


def elements_of_vector(vector):
    """Yields the elements of a std::vector."""
    begin, end = vector["_M_impl"]["_M_start"], vector["_M_impl"]["_M_finish"]
    length, size = int(end) - int(begin), target_size(begin)
    if length % size != 0:
        raise Unreadable(f"corrupt vector of {length} bytes")
    for index in range(checked(length // size, "vector")):
        yield (begin + index).dereference()


def elements_of_list(values, element_type):
    """Yields the elements of a std::list."""
    sentinel = values["_M_impl"]["_M_node"]
    node, count = sentinel["_M_next"], 0
    while int(node) != int(sentinel.address):
        count = checked(count + 1, "list")
        yield value_at(int(node) + 2 * POINTER, element_type)
        node = node["_M_next"]


def entries_of_map(mapping):
    """Yields the keys and the values of a std::map."""
    arguments = mapping.type.strip_typedefs()
    key_type, value_type = arguments.template_argument(0), arguments.template_argument(1)
    offset = -(-key_type.sizeof // value_type.alignof) * value_type.alignof
    tree = mapping["_M_t"]["_M_impl"]
    node = tree["_M_header"]["_M_left"]
    for index in range(checked(tree["_M_node_count"], "map")):
        if index > 0:
            node = next_node(node)
        address = int(node) + target_size(node)
        yield value_at(address, key_type), value_at(address + offset, value_type)


def next_node(node):
    """Returns the next node of a std::map."""
    steps = 0
    if int(node["_M_right"]) != 0:
        node = node["_M_right"]
        while int(node["_M_left"]) != 0:
            steps = checked(steps + 1, "map")
            node = node["_M_left"]
        return node
    parent = node["_M_parent"]
    while int(node) == int(parent["_M_right"]):
        steps = checked(steps + 1, "map")
        node, parent = parent, parent["_M_parent"]
    return parent


def entries_of_hash_map(mapping):
    """Yields the keys and the values of a std::unordered_map."""
    arguments = mapping.type.strip_typedefs()
    key_type, value_type = arguments.template_argument(0), arguments.template_argument(1)
    offset = -(-key_type.sizeof // value_type.alignof) * value_type.alignof
    node, count = mapping["_M_h"]["_M_before_begin"]["_M_nxt"], 0
    while int(node) != 0:
        count = checked(count + 1, "hash map")
        address = int(node) + POINTER
        yield value_at(address, key_type), value_at(address + offset, value_type)
        node = node["_M_nxt"]


def elements_of_deque(values):
    """Yields the elements of a std::deque whose elements are smaller than its blocks of 512 bytes."""
    start, finish = values["_M_impl"]["_M_start"], values["_M_impl"]["_M_finish"]
    current, last, block = start["_M_cur"], start["_M_last"], start["_M_node"]
    count = 0
    while int(current) != int(finish["_M_cur"]):
        count = checked(count + 1, "deque")
        yield current.dereference()
        current = current + 1
        if int(current) == int(last):
            block = block + 1
            current = block.dereference()
            last = current + 512 // target_size(current)


def value_at(address, value_type):
    """Returns the object of a type at an address."""
    return gdb.Value(address).cast(value_type.pointer()).dereference()


def atomic(value):
    """Returns the value of a std::atomic."""
    return value_at(int(value.address), value.type.strip_typedefs().template_argument(0))


def pointer_in(holder):
    """Returns the pointer of a std::unique_ptr, or of another holder whose first member it is."""
    target = holder.type.strip_typedefs().template_argument(0)
    return value_at(int(holder.address), target.pointer())


def mutex_owner(section):
    """Returns the label of the thread that holds a mt::CriticalSection or an RX_Mutex, or None."""
    fields = {field.name for field in section.type.strip_typedefs().fields()}
    data = section["_mu" if "_mu" in fields else "_mutex"]["mutex"]["__data"]
    return lwp_label(int(data["__owner"])) if int(data["__lock"]) != 0 else None
