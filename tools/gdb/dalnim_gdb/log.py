"""The loggers, from the list that the fork handlers of the log use."""
import gdb

from . import inferior

SEVERITIES = ("NONE", "TRACE", "DEBUG", "INFO", "NOTICE", "WARNING", "ERROR", "FATAL")
MASK = ("DATETIME", "TIMEZONE", "SEVERITY", "HOSTNAME", "PROCESSNAME", "PROCESSID", "THREADID", "MODULENAME",
        "SOURCEFILE", "LINENUMBER")
# The list of all loggers, a static variable of ForkEntry::List::of().
LOGGERS = "_ZZN3com3kor3dal3nim3log9ForkEntry4List2ofENS4_4KindEE7loggers"
MASK_SHIFT, MINIMUM_SHIFT, BITS = 8, 16, 0xFF
MOST_MODULES = 50


def loggers():
    """Yields pointers to all objects of log::Write, oldest first."""
    logger_type = inferior.find_type("log::Write")
    offset = next(field.bitpos // 8 for field in logger_type.fields() if field.name == "stateSync")
    list_type = inferior.find_type("log::ForkEntry::List")
    entry = inferior.value_at(int(gdb.parse_and_eval(f"&{LOGGERS}")), list_type)["first"]
    found = []
    while int(entry) != 0:
        inferior.checked(len(found), "list of loggers")
        # The entry refers to the lock that it is for, which is a member of the logger.
        section = int(entry["section"].referenced_value().address)
        found.append(inferior.value_at(section - offset, logger_type).address)
        entry = entry["next"]
    return reversed(found)


def names_of(bits, names, first=0):
    """Returns the names of the bits that are set."""
    return " ".join(name for bit, name in enumerate(names, first) if bits >> bit & 1) or "NONE"


def severity_line(logger):
    word = int(inferior.atomic(logger["severity"]["word"]))
    mask, minimum = word >> MASK_SHIFT & BITS, word >> MINIMUM_SHIFT
    if mask != 0:
        return "mask " + names_of(mask, SEVERITIES)
    return SEVERITIES[minimum] + " and above" if minimum < len(SEVERITIES) else f"<corrupt severity {minimum}>"


def path_of(logger):
    output = output_of(logger)
    path = inferior.std_string(output["outputPath"])
    if path:
        return f'"{path}"'
    stream = int(output["outputStream"])
    return f"stream at {stream:#x}" if stream != 0 else "not set"


def output_of(logger):
    """Returns the output of a logger's file."""
    return inferior.pointer_in(logger["logFile"]["rco"]["output"]).dereference()


def output_line(logger):
    output = output_of(logger)
    size, number = int(output["sizeLimit"]), int(output["rotatedLimit"])
    parts = []
    file = inferior.pointer_in(output["file"])
    if int(file) != 0:
        parts.append("closed" if int(file["descriptor"]) < 0 else f"file descriptor {int(file['descriptor'])}")
        if file["hasFailed"]:
            parts.append("last write failed")
        if file["positionKnown"] or int(file["appended"]) != 0:
            parts.append(f"{int(file['position']) + int(file['appended'])} bytes")
    parts.append(f"limit {size} bytes" if size != 0 else "no size limit")
    parts.append(f"{int(output['rotatedCount'])} rotated files" + (f", limit {number}" if number != 0 else ""))
    return ", ".join(parts)


def modules_line(logger):
    """Returns the names at registration: the modules themselves may have been unloaded."""
    registration = inferior.pointer_in(logger["modules"])
    names = [(int(record["number"]), inferior.std_string(name))
             for name, records in inferior.entries_of_hash_map(registration["_records"])
             for record in inferior.elements_of_list(records, records.type.template_argument(0))]
    names = [name for _, name in sorted(names)]
    shown = ", ".join(names[:MOST_MODULES]) + (", ..." if len(names) > MOST_MODULES else "")
    return f"{len(names)}: {shown}" if names else "none"


def filter_line(logger):
    registration = inferior.pointer_in(logger["modules"])
    string_type = registration["_modulesRequested"].type.strip_typedefs().template_argument(0)
    return ", ".join(map(inferior.std_string,
                         inferior.elements_of_list(registration["_modulesRequested"], string_type))) or "*"


def locks_line(logger):
    held = [f"{name} held by {owner}" for name, owner in
            (("of the logger", inferior.mutex_owner(logger["stateSync"])),
             ("of the file", inferior.mutex_owner(logger["logFile"]["rco"]["stateSync"]))) if owner is not None]
    return ", ".join(held) or "not held"


def default_logger():
    """Returns the address of the default logger."""
    return int(gdb.parse_and_eval("&com_kor_dal_nim_log_control"))


def show(write, _arguments):
    """Writes the state of each logger."""
    default = inferior.described(default_logger)
    for logger in loggers():
        title = "Default logger" if int(logger) == default else "Logger"
        write(f"{title} {inferior.object_label(logger)}\n")
        lines = (("path", path_of), ("severity", severity_line),
                 ("fields", lambda log: names_of(int(inferior.atomic(log["prefixFormat"])), MASK)),
                 ("output", output_line), ("modules", modules_line), ("filter", filter_line),
                 ("lock", locks_line),
                 ("refused", lambda log: f"{int(inferior.atomic(log['refusedStatements']))} statements in handlers"))
        for label, line in lines:
            write(f"  {label:8} {inferior.described(line, logger)}\n")
