"""The gdb extension of dalnim: commands that show the state of the library, and pretty printers."""
from . import commands
from . import printers


def register(objfile):
    """Registers the commands, and the printers for an object file, or for all if it is None."""
    commands.register()
    printers.register(objfile)
