"""What each thread does, from the state that the library stores for it."""
import gdb

from . import inferior

STATES = {1: "ready", 2: "queued", 4: "starting", 8: "running", 16: "finished", 32: "joined", 64: "destroyed"}
HAS_WAITERS = 0x80000000
# A deeper stack of tracks is shown up to here.
MOST_TRACKS = 100


def state_of(thread):
    """Returns the state of a thread, or None if the thread has never used the library."""
    try:
        with inferior.selected(thread):
            # The address depends on the selected thread, so the value is read here.
            address = int(inferior.variable("sys::internal::cached_state"))
    except gdb.error as error:
        if "thread-local" not in str(error):
            raise
        raise inferior.Unreadable("gdb cannot find thread-local variables: it needs libthread_db, which its "
                                  "auto-load safe-path must contain") from None
    return inferior.value_at(address, inferior.find_type("sys::internal::ThreadState")) if address != 0 else None


def track_label(track):
    """Returns the label of a track, as sys::StackTrack::label() does."""
    parts = [inferior.c_string(track[scope]) for scope in ("out_scope", "mid_scope", "scope_name")
             if int(track[scope]) != 0]
    first, current = int(track["init_line"]), int(track["cur_line"])
    lines = "".join(f":{line}" for line in (first or ("-" if current else 0), current) if line)
    return ".".join(parts) + lines


def tracks_of(state):
    """Yields the labels of the tracks, innermost first."""
    tracks = list(inferior.elements_of_vector(state["where"]))
    for track in reversed(tracks):
        yield inferior.described(lambda pointer: track_label(pointer.dereference()), track)


def task_label(task):
    """Returns name, state, ID and class of the task that a pointer points to."""
    # Members of mt::Thread shadow those of mt::Task.
    task = task.cast(inferior.find_type("mt::Task").pointer())
    status = int(inferior.atomic(task["_state"])) & ~HAS_WAITERS
    return (f'"{inferior.described(inferior.rx_string, task["_name"])}", {STATES.get(status, "in an unknown state")}'
            f", ID {int(task['_id'])}, {inferior.object_label(task)}")


def pool_label(pool):
    """Returns name, ID and address of the pool that a pointer points to."""
    return (f'"{inferior.described(inferior.std_string, pool["_name"])}", ID {int(pool["_id"])}, '
            f"at {int(pool):#x}")


def context_of(state):
    """Returns the context of a thread."""
    return state["contextRef"].referenced_value()["rco"].dereference()


def entries_of_context(context):
    """Yields the keys and the references of a ContainerContext."""
    if context["isAdopted"]:
        entries = context["adopted"]["_M_ptr"]
        if int(entries) == 0:
            return
        for entry in inferior.elements_of_vector(entries["content"]):
            yield int(entry["cid"]), entry["ref"]["rco"]
    else:
        for key, reference in inferior.entries_of_map(context["content"]):
            yield int(key), reference["rco"]


def lines_of(state):
    """Yields the lines about a thread."""
    # A Thread is a task, too, and usually the one that the thread runs.
    if int(state["thrd"]) not in (0, int(state["task"])):
        yield "thread   " + inferior.described(task_label, state["thrd"])
    if int(state["task"]) != 0:
        yield "task     " + inferior.described(task_label, state["task"])
    if int(state["pool"]) != 0:
        yield "pool     " + inferior.described(pool_label, state["pool"])
    try:
        for key, pointer in entries_of_context(context_of(state)):
            yield f"context  {key}: {inferior.counted_label(pointer)}"
    except Exception as error:
        yield f"context  <{inferior.reason(error)}>"
    try:
        number = -1
        for number, label in enumerate(tracks_of(state)):
            if number == MOST_TRACKS:
                yield "tracks   further ones are not shown"
                break
            yield f"{'tracks' if number == 0 else '':8} #{number} {label}"
        if number < 0:
            yield "tracks   none"
    except Exception as error:
        yield f"tracks   <{inferior.reason(error)}>"


def show(write, numbers):
    """Writes what the threads with these numbers do, or all threads if there are none."""
    known = inferior.threads()
    for number in numbers:
        if number not in [thread.num for thread in known]:
            raise inferior.Unreadable(f"there is no thread {number}")
    for thread in known:
        if numbers and thread.num not in numbers:
            continue
        write(inferior.thread_label(thread) + "\n")
        try:
            state = state_of(thread)
            for line in lines_of(state) if state is not None else ["has not used the library"]:
                write(f"  {line}\n")
        except Exception as error:
            write(f"  <{inferior.reason(error)}>\n")
