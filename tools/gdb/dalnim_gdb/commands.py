"""The commands `nim threads`, `nim pools`, `nim log` and `nim plugins`."""
import gdb

from . import inferior
from . import log
from . import plugins
from . import pools
from . import threads


class Prefix(gdb.Command):
    """Shows the state of the dalnim library: threads, pools, log, plugins.

The commands read memory only. They work in a process and in a core file."""

    def __init__(self):
        super().__init__("nim", gdb.COMMAND_STATUS, gdb.COMPLETE_NONE, True)


class Command(gdb.Command):
    """Runs a function that writes a report. No failure shows a Python traceback."""

    def __init__(self, name, show):
        super().__init__("nim " + name, gdb.COMMAND_STATUS, gdb.COMPLETE_NONE)
        self.name = name
        self.show = show

    def invoke(self, argument, _from_tty):
        try:
            arguments = self.parse(gdb.string_to_argv(argument))
            inferior.require_library()
            self.show(gdb.write, arguments)
        except Exception as error:
            raise gdb.GdbError(f"nim {self.name}: {inferior.reason(error)}") from None

    def parse(self, words):
        """Returns the arguments. Only a command that takes some overrides this."""
        if words:
            raise inferior.Unreadable("takes no argument")
        return []


class Threads(Command):
    """Shows task, pool, context and tracks of each thread.

Usage: nim threads [NUMBER...]

The numbers are those of "info threads". The innermost track is the first."""

    def __init__(self):
        super().__init__("threads", threads.show)

    def parse(self, words):
        if not all(word.isdecimal() for word in words):
            raise inferior.Unreadable("the arguments are numbers of threads, as in \"info threads\"")
        return [int(word) for word in words]


class Pools(Command):
    """Shows each pool with its workers, its queued tasks and its locks.

Usage: nim pools

Pools are found through their worker threads. A pool without workers is not shown."""

    def __init__(self):
        super().__init__("pools", pools.show)


class Log(Command):
    """Shows each logger with its output, severity, modules and locks.

Usage: nim log"""

    def __init__(self):
        super().__init__("log", log.show)


class Plugins(Command):
    """Shows the libraries that the loader has loaded, with their symbols and references.

Usage: nim plugins"""

    def __init__(self):
        super().__init__("plugins", plugins.show)


def register():
    for command in (Prefix, Threads, Pools, Log, Plugins):
        command()
