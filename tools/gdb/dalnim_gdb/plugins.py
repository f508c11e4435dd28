"""The plug-ins, from the table of the loader."""
from . import inferior

MOST_SYMBOLS = 20


def link_map(handle):
    """Returns load address and path of a handle of dlopen(), which points to the linker's record of the module."""
    address = int(handle)
    if address == 0:
        return "no module"
    base, name = inferior.read_pointer(address), inferior.read_pointer(address + inferior.POINTER)
    path = inferior.c_string(name) if name != 0 else ""
    return f"{path or 'the program'}, loaded at {base:#x}"


def lines_of(record):
    """Yields the lines about a library."""
    library = record["library"]["rco"]
    if int(library) == 0:
        yield "library  none, symbols only"
    else:
        yield f"library  {inferior.described(inferior.counted_label, library)}"
        yield f"module   {inferior.described(link_map, library['hnd'])}"
        yield "lookup   " + ("global" if library["global"] else "local")
    for number, (name, symbol) in enumerate(inferior.entries_of_map(record["symbols"])):
        if number == MOST_SYMBOLS:
            yield "symbol   further ones are not shown"
            break
        yield (f"symbol   {inferior.described(inferior.std_string, name)}, "
               f"{inferior.described(inferior.reference_count, symbol['rco'])}")


def show(write, _arguments):
    """Writes what the loader has loaded."""
    manager = inferior.atomic(inferior.variable("sys::(anonymous namespace)::instance"))
    if int(manager) == 0:
        write("The loader has not been used.\n")
        return
    owner = inferior.described(inferior.mutex_owner, manager["sync"])
    if owner is not None:
        write(f"The lock of the loader is held by {owner}.\n")
    empty = True
    for name, record in inferior.entries_of_map(manager["libs"]):
        empty = False
        text = inferior.described(inferior.std_string, name)
        write((f'Plug-in "{text}"' if text else "The process itself") + "\n")
        try:
            for line in lines_of(record):
                write(f"  {line}\n")
        except Exception as error:
            write(f"  <{inferior.reason(error)}>\n")
    if empty:
        write("No plug-in is loaded.\n")
