"""The pools, found through their workers.

The library has no list of its pools. Each worker refers to the queue of its pool, and running and queued tasks
refer to the pool. The pool of a queue without tasks is found by a search for the pointer to the queue.
"""
import contextlib
import re

import gdb

from . import inferior
from . import threads

# Queued tasks of one pool that are named.
MOST_NAMED = 10
# Bytes that are searched for the pools of idle queues.
MOST_SEARCHED = 1 << 30
# Bytes of a worker's stack that are searched for its registration.
MOST_STACK = 1 << 13


class Queue:
    """A server queue, with the threads that work for it."""

    def __init__(self, pointer):
        self.pointer = pointer
        self.implementation = inferior.pointer_in(pointer["_implementation"])
        self.workers = []
        self.pool = None

    def pending(self):
        """Yields pointers to the closures that wait for a worker, oldest first."""
        two_locks = self.implementation["_pending"]
        yield from inferior.elements_of_deque(two_locks["_consumer"]["closures"])
        yield from inferior.elements_of_deque(two_locks["_incoming"])

    def pending_tasks(self):
        """Yields pointers to the closures of pending tasks. A pool's queue also contains a probe at its end."""
        closure_type = inferior.find_type("mt::TaskClosure").pointer()
        for closure in self.pending():
            if inferior.class_at(int(closure)) == inferior.NAMESPACE + "mt::TaskClosure":
                yield closure.cast(closure_type)


def worker_at(address, implementation):
    """Returns the queue of the worker at an address if it belongs to this implementation, otherwise None."""
    with contextlib.suppress(gdb.error):
        worker = inferior.value_at(address, gdb.lookup_type("RX_ServerQueue::Implementation::Worker"))
        queue = inferior.pointer_in(worker["queue"])
        if int(inferior.pointer_in(queue["_implementation"])) == implementation:
            return queue
    return None


def queue_of(thread):
    """Returns a pointer to the queue that a thread works for, or None if the thread is not a worker.

    The debug information of an optimised library does not always locate the worker. Its stack does: the frame of
    runWorker() contains a WorkerThread, which consists of a pointer to the worker and one to the implementation.
    """
    with inferior.selected(thread):
        frame = gdb.newest_frame()
        while frame is not None and "RX_ServerQueue::Implementation::runWorker" not in (frame.name() or ""):
            frame = frame.older()
        if frame is None:
            return None
        while frame.type() == gdb.INLINE_FRAME and frame.older() is not None:
            frame = frame.older()
        bottom = int(frame.read_register("rsp"))
        memory = bytes(gdb.selected_inferior().read_memory(bottom, stack_size(frame, bottom)))
    words = [int.from_bytes(memory[at:at + inferior.POINTER], "little")
             for at in range(0, len(memory) - inferior.POINTER + 1, inferior.POINTER)]
    for worker, implementation in zip(words, words[1:]):
        if worker != 0 and implementation != 0:
            queue = worker_at(worker, implementation)
            if queue is not None:
                return queue
    raise inferior.Unreadable("worker of an unknown queue")


def stack_size(frame, bottom):
    """Returns the number of bytes of a frame."""
    older = frame.older()
    top = int(older.read_register("rsp")) if older is not None else bottom + MOST_STACK
    return max(0, min(top - bottom, MOST_STACK))


def find_queues(write):
    """Returns the queues that have workers, each with its pool if a task refers to that."""
    queues = {}
    for thread in inferior.threads():
        try:
            pointer = queue_of(thread)
            if pointer is None:
                continue
            queue = queues.setdefault(int(pointer), None) or Queue(pointer)
            queues[int(pointer)] = queue
            queue.workers.append(thread)
        except Exception as error:
            write(f"{inferior.thread_label(thread)}: <{inferior.reason(error)}>\n")
            continue
        # lines_of() shows why a state cannot be read.
        with contextlib.suppress(Exception):
            state = threads.state_of(thread)
            if state is not None and int(state["pool"]) != 0 and int(state["pool"]["_queue"]) == int(pointer):
                queue.pool = state["pool"]
    for queue in queues.values():
        if queue.pool is None:
            with contextlib.suppress(Exception):
                for closure in queue.pending_tasks():
                    queue.pool = closure["_pool"]
                    break
    return [queue for queue in queues.values() if queue is not None]


def writable_regions():
    """Yields start and size of the memory that the process may write."""
    if not is_core():
        text = gdb.execute("info proc mappings", to_string=True)
        expression = re.compile(r"^\s*0x([0-9a-f]+)\s+0x([0-9a-f]+)\s+0x[0-9a-f]+\s+0x[0-9a-f]+\s+rw", re.M)
    else:
        # The segments of the core file. Those of read-only files are not in it.
        text = gdb.execute("info files", to_string=True)
        expression = re.compile(r"^\s*0x([0-9a-f]+) - 0x([0-9a-f]+) is load\w+$", re.M)
    for match in expression.finditer(text):
        start, end = int(match[1], 16), int(match[2], 16)
        if end > start:
            yield start, end - start


def is_core():
    """Returns true if gdb examines a core file."""
    connection = getattr(gdb.selected_inferior(), "connection", None)
    return connection is not None and connection.type == "core"


def search_pools(queues):
    """Finds the pools of the given queues by the pointers to these. Returns false if memory was left out."""
    pool_type = inferior.find_type("mt::ThreadPool")
    offset = next(field.bitpos // 8 for field in pool_type.fields() if field.name == "_queue")
    process = gdb.selected_inferior()
    searched = 0
    for start, size in writable_regions():
        searched += size
        if searched > MOST_SEARCHED:
            return False
        for queue in queues:
            position, end = start, start + size
            while queue.pool is None and position < end:
                try:
                    found = process.search_memory(position, end - position,
                                                  int(queue.pointer).to_bytes(inferior.POINTER, "little"))
                except gdb.error:
                    break
                if found is None:
                    break
                if found % inferior.POINTER == 0 and is_pool(found - offset, pool_type):
                    queue.pool = inferior.value_at(found - offset, pool_type).address
                position = found + 1
    return True


def is_pool(address, pool_type):
    """Returns true if the object at an address looks like a pool."""
    with contextlib.suppress(Exception):
        pool = inferior.value_at(address, pool_type)
        recorder = pool["_ar"]
        return ("vtable" in gdb.execute(f"info symbol {inferior.read_pointer(address):#x}", to_string=True)
                and inferior.class_at(int(recorder)) == "RX_ActivityRecorder"
                and len(inferior.std_string(pool["_name"])) < inferior.LONGEST_NAME)
    return False


def backlog(pool):
    """Returns the number of tasks that are queued or running."""
    recorder = pool["_ar"]
    return int(inferior.atomic(recorder["_started"])) - (int(inferior.atomic(recorder["_finished"])) >> 1)


def lines_of(queue):
    """Yields the lines about a queue and its pool."""
    implementation = queue.implementation
    state = "closed" if implementation["_isClosed"] else "open"
    if queue.pool is not None and int(inferior.atomic(queue.pool["isPoolClosed"])) != 0:
        state = "shutting down" if state == "open" else "shut down"
    pending = list(queue.pending())
    idle = int(implementation["_idle"]["_count"])
    workers = int(queue.pointer["_threadCount"])
    yield f"state    {state}, workers: {workers}, idle: {idle}"
    yield f"queue    pending: {len(pending)}, limit: {int(implementation['_capacity'])}"
    if queue.pool is not None:
        yield f"backlog  queued or running: {inferior.described(backlog, queue.pool)}"
    for name, lock in (("consumers", implementation["_pending"]["_consumer"]["mutex"]),
                       ("producers", implementation["_mutex"].referenced_value())):
        owner = inferior.described(inferior.mutex_owner, lock)
        if owner is not None:
            yield f"lock     of the {name} is held by {owner}"
    for thread in queue.workers:
        yield f"worker   {inferior.thread_label(thread)}: {inferior.described(worker_task, thread)}"
    for number, closure in enumerate(queue.pending_tasks()):
        if number == MOST_NAMED:
            yield f"queued   ..., {len(pending) - number} more"
            break
        yield "queued   " + inferior.described(lambda pointer: threads.task_label(pointer["_task"]), closure)


def worker_task(thread):
    """Returns the task that a worker runs."""
    state = threads.state_of(thread)
    if state is None or int(state["task"]) == 0:
        return "idle"
    return threads.task_label(state["task"])


def show(write, _arguments):
    """Writes the state of each pool."""
    queues = find_queues(write)
    unknown = [queue for queue in queues if queue.pool is None]
    if unknown:
        try:
            if not search_pools(unknown):
                write("Only the first gigabyte was searched for the pools of idle queues.\n")
        except Exception as error:
            write(f"The pools of idle queues cannot be searched for: {inferior.reason(error)}\n")
    if not queues:
        write("No thread is a worker of a pool.\n")
    for queue in queues:
        title = f"Pool {inferior.described(threads.pool_label, queue.pool)}" if queue.pool is not None \
            else f"Queue at {int(queue.pointer):#x}, whose pool was not found"
        write(title + "\n")
        try:
            for line in lines_of(queue):
                write(f"  {line}\n")
        except Exception as error:
            write(f"  <{inferior.reason(error)}>\n")
