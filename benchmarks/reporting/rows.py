"""The content of the report: the rows of its tables with their goals, and its plots.

Benchmarks have the names that their programs print, without suffixes such as "/real_time". A row's cost is
processor time ("cpu") or wall-clock time ("real"), per iteration, item or byte, or a percentile of the durations
that the benchmark has measured one by one ("p50", "p99", "p99.9").
"""

import dataclasses


MET = "met"
MISSED = "**missed**"
UNKNOWN = "not measured"


@dataclasses.dataclass(frozen=True)
class Within:
    """Costs at most `factor` times as much as the sample with this label."""
    factor: float
    label: str

    @property
    def text(self):
        return f"at most {self.factor:.3g} × {self.label}"

    def verdict(self, cost, others):
        if self.label not in others:
            return UNKNOWN
        return MET if cost <= self.factor * others[self.label] else MISSED


@dataclasses.dataclass(frozen=True)
class Faster:
    """Is at least as fast as each sample with one of these labels."""
    labels: tuple

    @property
    def text(self):
        return "faster than " + " and ".join(self.labels) if len(self.labels) < 3 else "faster than every peer"

    def verdict(self, cost, others):
        known = [label for label in self.labels if label in others]
        faster = [label for label in known if others[label] < cost]
        if faster:
            return f"{MISSED}, slower than {', '.join(faster)}"
        return MET if len(known) == len(self.labels) else UNKNOWN


@dataclasses.dataclass(frozen=True)
class Beyond:
    """Takes at most `seconds` longer than the sample with this label."""
    seconds: float
    label: str
    text: str

    def verdict(self, cost, others):
        if self.label not in others:
            return UNKNOWN
        return MET if cost <= others[self.label] + self.seconds else MISSED


@dataclasses.dataclass(frozen=True)
class Row:
    title: str
    program: str
    own: str
    peers: tuple = ()   # (label, benchmark) pairs of the same program
    limits: tuple = ()  # likewise: lower bounds, and other rows of the library
    goals: tuple = ()
    clock: str = "cpu"
    per: str = "iteration"
    rate: str = ""      # "MB/s" or "M/s" instead of a time


@dataclasses.dataclass(frozen=True)
class Plot:
    file: str
    title: str
    program: str
    xlabel: str
    xs: tuple
    series: tuple       # (label, benchmark with {x}) pairs
    clock: str = "cpu"
    per: str = "iteration"
    rate: str = ""
    linear: bool = False


@dataclasses.dataclass(frozen=True)
class Subsystem:
    name: str
    title: str
    programs: tuple
    rows: tuple
    plots: tuple
    remarks: tuple = ()
    reasons: tuple = () # (prefix of row titles, where the time goes) pairs, printed if the goal is missed


LOGGERS = ("spdlog", "log4cplus", "glog", "POCO", "Boost.Log")
POOLS = ("Boost.Asio", "oneTBB", "POCO", "std::async", "hand-written")
THREADS = (1, 2, 4, 8)
PERCENTILES = ("p50", "p99", "p99.9")


def threads_text(count):
    return "1 thread" if count == 1 else f"{count} threads"


def modules_text(count):
    return "1 module" if count == 1 else f"{count:,} modules"


def log_rows():
    for threads in THREADS:
        suffix = f"/threads:{threads}"
        yield Row(f"disabled by severity, {threads_text(threads)}", "gate_bench", "refused/dalnim" + suffix,
                  peers=tuple((name, f"refused/{name}{suffix}") for name in LOGGERS),
                  goals=(Within(1.5 / 0.65, "POCO"),))
    for threads in THREADS:
        suffix = f"/threads:{threads}"
        yield Row(f"disabled by the module filter, {threads_text(threads)}", "gate_bench",
                  "statementRefusedByFilter" + suffix)
    for threads in THREADS:
        suffix = f"/threads:{threads}"
        itself = ("itself with 1 thread", "record/dalnim/threads:1")
        yield Row(f"record of 160 bytes to a file, {threads_text(threads)}", "record_bench",
                  "record/dalnim" + suffix,
                  peers=tuple((name, f"record/{name}{suffix}") for name in LOGGERS),
                  limits=(("write", "record/write" + suffix), ("ofstream", "record/ofstream" + suffix))
                  + (() if threads == 1 else (itself,)),
                  goals=(Within(1.3, "write"),) if threads == 1
                  else (Faster(LOGGERS), Within(1.3, itself[0])),
                  clock="real")
    for threads in THREADS:
        suffix = f"/threads:{threads}"
        for percentile in PERCENTILES:
            yield Row(f"time of a statement, {threads_text(threads)}, {percentile}", "record_bench",
                      "latency/dalnim" + suffix,
                      peers=tuple((name, f"latency/{name}{suffix}") for name in LOGGERS),
                      limits=(("write", "latency/write" + suffix), ("clock", "latency/nothing")),
                      goals=() if percentile == "p99.9" else (Faster(LOGGERS),), clock=percentile)
    for size in (20, 200, 2000):
        yield Row(f"record of {size:,} bytes, short prefix", "record_bench", f"recordOfSize/dalnim/{size}",
                  peers=tuple((name, f"recordOfSize/{name}/{size}") for name in LOGGERS),
                  limits=(("write", f"recordOfSize/write/{size}"),
                          ("ofstream", f"recordOfSize/ofstream/{size}")),
                  goals=(Faster(("spdlog",)),) if size == 20 else (), clock="real")
    yield Row("record with rotation, 10 MB files", "record_bench", "rotation/on/dalnim",
              peers=tuple((name, f"rotation/on/{name}") for name in ("spdlog", "log4cplus", "POCO")),
              limits=(("without rotation", "rotation/off/dalnim"),),
              goals=(Within(1.05, "without rotation"),), clock="real")
    for modules in (1, 100, 10000):
        yield Row(f"filter change and the next check, {modules_text(modules)}", "registry_bench",
                  f"gateAfterFilterChange/{modules}")
    for modules in (1, 100, 10000):
        yield Row(f"getInstance among {modules_text(modules)}", "registry_bench", f"getInstance/{modules}")


LOG_PLOTS = (
    Plot("refused-threads", "A disabled statement", "gate_bench", "threads", THREADS,
         tuple((name, f"refused/{name}/threads:{{x}}") for name in ("dalnim",) + LOGGERS)),
    Plot("record-threads", "A record of 160 bytes to a file, time per record of all threads",
         "record_bench", "threads", THREADS,
         tuple((name, f"record/{name}/threads:{{x}}")
               for name in ("dalnim",) + LOGGERS + ("write", "ofstream")), clock="real", linear=True),
    Plot("record-latency", "A record of 160 bytes to a file, time of a statement, 99th percentile",
         "record_bench", "threads", THREADS,
         tuple((name, f"latency/{name}/threads:{{x}}") for name in ("dalnim",) + LOGGERS + ("write",)),
         clock="p99"),
    Plot("record-size", "A record to a file, by size", "record_bench", "bytes of the line",
         (20, 50, 100, 200, 500, 1000, 2000),
         tuple((name, f"recordOfSize/{name}/{{x}}")
               for name in ("dalnim",) + LOGGERS + ("write", "ofstream")), clock="real"),
    Plot("registry", "The module registry", "registry_bench", "modules", (1, 10, 100, 1000, 10000),
         (("filter change and the next check", "gateAfterFilterChange/{x}"),
          ("filter change and the checks of all modules", "allGatesAfterFilterChange/{x}"),
          ("getInstance", "getInstance/{x}"))),
)

MEM_ROWS = (
    Row("copy and release, thread-safe", "rcoref_bench", "copyAndDrop/thread_safe",
        peers=(("POCO", "copyAndDropPoco"), ("Boost", "copyAndDropBoost"),
               ("shared_ptr", "standardCopyAndDrop")),
        limits=(("atomic counting", "bareAtomicCounting"),),
        goals=(Within(1.1, "POCO"), Within(1.1, "Boost"))),
    Row("copy and release, one thread", "rcoref_bench", "copyAndDrop/one_thread",
        limits=(("thread-safe", "copyAndDrop/thread_safe"),), goals=(Within(1 / 3, "thread-safe"),)),
    Row("create and release", "rcoref_bench", "makeAndDrop",
        peers=(("POCO", "makeAndDropPoco"), ("Boost", "makeAndDropBoost"),
               ("shared_ptr", "standardMakeAndDrop")), goals=(Within(1.1, "POCO"),)),
    Row("copy and release, one object, 2 threads", "rcoref_bench", "copyAndDropShared/threads:2",
        peers=(("shared_ptr", "standardCopyAndDropShared/threads:2"),), clock="real"),
)


def mt_rows():
    for pairs in (1, 4):
        yield Row(f"queue, {pairs} to {pairs}", "queue_bench", f"dalnimQueue/{pairs}",
                  peers=(("deque with mutex", f"plainQueue/{pairs}"),
                         ("the same without a limit", f"plainQueueUnlimited/{pairs}"),
                         ("POCO", f"pocoQueue/{pairs}"), ("oneTBB", f"tbbQueue/{pairs}"),
                         ("moodycamel, without a limit", f"moodycamelQueue/{pairs}")),
                  goals=(Faster(("deque with mutex", "POCO")),),
                  clock="real", per="item", rate="M/s")
    for entries in (0, 4):
        for title, own in (("preallocated tasks", "dalnimPool"),
                           ("a new task each time", "dalnimPoolManaged")):
            yield Row(f"pool, {title}, {entries} context entries", "pool_bench", f"{own}/{entries}",
                      peers=(("Boost.Asio", "asioPool"), ("oneTBB", "tbbPool"), ("hand-written", "plainPool"),
                             ("POCO", "pocoPool"), ("std::async", "standardAsync")),
                      goals=(Faster(("Boost.Asio", "oneTBB")) if entries == 0 else Within(2, "Boost.Asio"),),
                      clock="real", per="item")
    for own, submitted in (("dalnim", "a task submitted to a pool"),
                           ("RX_ServerQueue", "a closure put into a server queue")):
        for load, circumstances in (("idle", "idle workers"), ("row", "64 in a row")):
            for percentile in PERCENTILES:
                yield Row(f"time until {submitted} begins, {circumstances}, {percentile}",
                          "task_latency_bench", f"latency/{load}/{own}",
                          peers=tuple((name, f"latency/{load}/{name}") for name in POOLS),
                          limits=(("clock", "latency/nothing"),), clock=percentile)
    yield Row("thread, start to join", "thread_bench", "dalnimThread",
              peers=(("std::thread", "standardThread"), ("POCO", "pocoThread")),
              goals=(Within(1.3, "std::thread"),), clock="real")
    yield Row("thread restarted, start to join", "thread_bench", "dalnimThreadAgain",
              peers=(("std::thread", "standardThread"), ("POCO", "pocoThread")), clock="real")
    for threads in (1, 4):
        suffix = f"/threads:{threads}"
        yield Row(f"CriticalSection, {threads_text(threads)}", "lock_bench",
                  "dalnim::CriticalSection" + suffix,
                  peers=(("std::mutex", "std::mutex" + suffix), ("POCO", "Poco::FastMutex" + suffix),
                         ("Abseil", "absl::Mutex" + suffix)),
                  goals=(Within(1.2, "std::mutex"),) if threads > 1 else (), clock="real")
        yield Row(f"ReaderWriterLock for reading, {threads_text(threads)}", "lock_bench",
                  "dalnim::ReaderWriterLock/read" + suffix,
                  peers=(("std::shared_mutex", "std::shared_mutex/read" + suffix),
                         ("Abseil", "absl::Mutex/read" + suffix)),
                  goals=(Within(1.2, "std::shared_mutex"),) if threads > 1 else (), clock="real")


def sys_rows():
    yield Row("StackTrack, enter and leave", "stacktrack_bench", "enterAndLeave",
              limits=(("atomic increment and decrement", "bareAtomicCounting"),),
              goals=(Within(3 / 4.7, "atomic increment and decrement"),))
    yield Row("system_error thrown and caught under 5 tracks", "stacktrack_bench", "throwAnError",
              peers=(("std::runtime_error", "throwAStandardError"),),
              goals=(Within(2, "std::runtime_error"),))
    for threads in (1, 2, 4):
        suffix = f"/threads:{threads}"
        yield Row(f"symbol in the cache, {threads_text(threads)}", "symbol_bench", "symbolHit" + suffix,
                  peers=(("dlsym", "dlsymHit" + suffix),), goals=(Faster(("dlsym",)),), clock="real")
    yield Row("library that is loaded already", "symbol_bench", "libraryHit/threads:1",
              peers=(("dlopen", "dlopenHit/threads:1"),), clock="real")
    yield Row("process with the library, start to exit", "load_bench", "processWithLibrary",
              limits=(("C++ program without it", "processWithout"),),
              goals=(Beyond(1e-3, "C++ program without it", "less than 1 ms more than without it"),), clock="real")


CONTEXTS = (0, 1, 4, 10, 32, 100, 1000)


def type_rows():
    for entries in (0, 4, 32, 1000):
        yield Row(f"copy of a context with {entries:,} entries", "context_bench",
                  f"duplicateContext/{entries}",
                  peers=(("map of strings", f"copyMapOfStrings/{entries}"),
                         ("map of numbers", f"copyMapOfNumbers/{entries}")),
                  goals=(Faster(("map of strings",)),) if entries <= 4 else ())
    yield Row("1,024 integers parsed", "numberops_bench", "parseInt",
              peers=(("strtol", "strtolAlone"), ("from_chars", "intFromChars")),
              goals=(Within(1.5, "from_chars"),))
    yield Row("1,024 floating-point numbers parsed", "numberops_bench", "parseDouble",
              peers=(("strtod", "strtodAlone"), ("from_chars", "doubleFromChars"),
                     ("fast_float", "doubleFastFloat")),
              goals=(Within(1.5, "from_chars"),))


TYPE_PLOTS = (
    Plot("context-entries", "Copying a context", "context_bench", "entries", CONTEXTS[1:],
         (("dalnim", "duplicateContext/{x}"), ("map of strings", "copyMapOfStrings/{x}"),
          ("map of numbers", "copyMapOfNumbers/{x}"))),
)

ENCODED_SIZES = (1000, 100000, 1000000, 100000000)
LINES = (10, 100, 1000, 10000, 100000, 1000000)


def size_text(size):
    return f"{size // 1000000} MB" if size >= 1000000 else f"{size // 1000} KB"


def io_rows():
    for verb in ("encode", "decode"):
        for size in ENCODED_SIZES:
            for form, target in (("String", "ToNewString"), ("Stream", "")):
                yield Row(f"Base64 {verb}, {form.lower()}, {size_text(size)}", "base64_bench",
                          f"{verb}{form}/{size}",
                          peers=(("OpenSSL", f"{verb}OpenSsl{target}/{size}"),
                                 ("Boost", f"{verb}Beast{target}/{size}"), ("POCO", f"{verb}Poco/{size}")),
                          goals=(Faster(("OpenSSL", "Boost")),), per="byte", rate="MB/s")
    for count in LINES[2:]:
        yield Row(f"properties load, {count:,} lines", "properties_scale_bench", f"load/dalnim/{count}",
                  peers=tuple((name, f"load/{name}/{count}") for name in ("log4cplus", "POCO", "Boost")),
                  limits=(("getline", f"load/getline/{count}"),),
                  goals=(Within(1 / 2, "log4cplus") if count >= 100000 else Faster(("log4cplus",)),),
                  per="item", rate="M/s")
    yield Row("properties store, 100,000 lines", "properties_scale_bench", "store/dalnim/100000",
              peers=(("POCO", "store/POCO/100000"),), per="item", rate="M/s")
    for count in (1000, 100000):
        yield Row(f"lookup among {count:,}", "properties_scale_bench", f"lookUp/dalnim/{count}",
                  peers=tuple((name, f"lookUp/{name}/{count}") for name in ("log4cplus", "POCO")),
                  goals=(Faster(("log4cplus",)),))
    itself = ("itself among 1,000", "select/dalnim/1000")
    for count in (1000, 100000):
        yield Row(f"selection of 100 among {count:,} by prefix", "properties_scale_bench",
                  f"select/dalnim/{count}",
                  peers=(("log4cplus", f"select/log4cplus/{count}"),),
                  limits=() if count == 1000 else (itself,),
                  goals=() if count == 1000 else (Within(3, itself[0]),))


def io_plots():
    for verb in ("encode", "decode"):
        yield Plot(f"base64-{verb}", f"Base64 {verb}", "base64_bench", "bytes of data", ENCODED_SIZES,
                   (("dalnim, String", verb + "String/{x}"), ("dalnim, stream", verb + "Stream/{x}"),
                    ("OpenSSL", verb + "OpenSsl/{x}"), ("Boost", verb + "Beast/{x}"),
                    ("POCO", verb + "Poco/{x}")),
                   per="byte", rate="MB/s")
    yield Plot("properties-load", "Loading properties", "properties_scale_bench", "lines", LINES,
               tuple((name, f"load/{name}/{{x}}")
                     for name in ("dalnim", "log4cplus", "POCO", "Boost", "getline")),
               per="item", rate="M/s")
    yield Plot("properties-select", "Selecting 100 properties by prefix",
               "properties_scale_bench", "properties in the table", LINES[1:],
               tuple((name, f"select/{name}/{{x}}") for name in ("dalnim", "log4cplus")))


KINDS = ("attributes", "text", "mixed")
DOCUMENT_SIZES = (10000, 1000000, 10000000, 100000000)


def xml_row(title, suffix, one):
    base = "parseOne" if one else "parseMessages"
    in_place = f"{base}InPlace{suffix}"
    return Row(title, "parser_bench", f"{base}<PlainParser>{suffix}",
               peers=(("pugixml in place", in_place), ("pugixml", f"{base}<PugiParser>{suffix}"),
                      ("expat", f"{base}<ExpatParser>{suffix}"), ("POCO", f"{base}<PocoParser>{suffix}")),
               limits=(("memchr", f"{base}<MemChr>{suffix}"),),
               goals=(Within(1 / 1.5, "pugixml in place") if suffix == f"/{KINDS.index('mixed')}/10000000"
                      else Faster(("pugixml in place", "pugixml")), Within(0.2, "expat")),
               per="byte", rate="MB/s")


def consumer_row(size):
    suffix = f"/{KINDS.index('mixed')}/{size}"
    return Row(f"xml::Parser with a Consumer, mixed, {size_text(size)}", "parser_bench",
               "parseOne<ObjectParser>" + suffix,
               peers=(("pugixml in place", "parseOneInPlace" + suffix),
                      ("pugixml", "parseOne<PugiParser>" + suffix), ("expat", "parseOne<ExpatParser>" + suffix),
                      ("POCO", "parseOne<PocoParser>" + suffix)),
               limits=(("push parser", "parseOne<PlainParser>" + suffix),),
               goals=(Faster(("pugixml",)), Within(1.21, "pugixml in place")), per="byte", rate="MB/s")


def xml_rows():
    for kind, name in enumerate(KINDS):
        for size in DOCUMENT_SIZES:
            yield xml_row(f"{name}, {size_text(size)}", f"/{kind}/{size}", one=True)
    yield xml_row("1,000 messages of 300 bytes", "", one=False)
    for size in (1000000, 10000000):
        yield consumer_row(size)


def xml_plots():
    for kind, name in enumerate(KINDS):
        yield Plot(f"xml-{name}", f"Parsing documents, {name}", "parser_bench", "bytes of the document",
                   DOCUMENT_SIZES,
                   (("dalnim, push parser", f"parseOne<PlainParser>/{kind}/{{x}}"),
                    ("dalnim, consumers", f"parseOne<ObjectParser>/{kind}/{{x}}"),
                    ("pugixml in place", f"parseOneInPlace/{kind}/{{x}}"),
                    ("expat", f"parseOne<ExpatParser>/{kind}/{{x}}"),
                    ("POCO", f"parseOne<PocoParser>/{kind}/{{x}}"),
                    ("memchr", f"parseOne<MemChr>/{kind}/{{x}}")), per="byte", rate="MB/s")


# Where the time of rows goes that miss a goal, by the prefix of their titles. Instructions are counted by
# benchmarks/profile. Times in these texts are processor time on an AMD EPYC with 2 cores, medians of 5 to 7
# interleaved repetitions of the row's program, unless another machine is named.
SHARED_RECORDS = (
    "Records of several threads: the line is formatted before the lock of the logger is acquired. The rest is waiting: "
    "when two threads alternate, the one that finds the lock held blocks and must be woken. That took 0.56 µs a record "
    "on an idle AMD EPYC (1.76 µs with 2 threads, 1.20 with one), and less with more threads (1.34 with 4, 1.17 with "
    "8). Spinning on the lock for the duration of a write before blocking was tried: it made no clear difference with "
    "two threads, and made four threads on two cores a quarter slower. Threads that append with `write` alone wait in "
    "the kernel, which lets one at a time append to a file: a record of two threads takes 1.86 µs of processor time, "
    "one of one thread 0.94.")

LOG_REASONS = (
    ("record of 160 bytes to a file, 1 thread",
     "Records of one thread: 1.20 µs of processor time, of which `write` alone takes 0.94 µs (1.29), and the record "
     "without its output 0.19 µs (`recordWithoutOutput`). A record executes 1,905 instructions (`./benchmarks/profile "
     "--inclusive record-to-file`). 45 % turn it into a line, in the memory of its own text: the date (15 %), the names "
     "and numbers of the other fields, and the prefix written in front of the text (16 %). 19 % acquire the thread's "
     "stream, and reset it when the statement ends. 11 % are two error-checking mutexes, of the logger and of its file. "
     "6 % insert the text. No field is cached between records, each line has its own system call, and the stream is "
     "one that user code may change in any way."),
    ("record of 160 bytes to a file, 2 threads", SHARED_RECORDS),
    ("record of 160 bytes to a file, 4 threads", SHARED_RECORDS),
    ("record of 160 bytes to a file, 8 threads", SHARED_RECORDS),
    ("record of 20 bytes, short prefix",
     "Records of 20 bytes: 1.00 µs of processor time, spdlog 1.06, `write` alone 0.82. With the full prefix a record "
     "takes 1.20 µs and spdlog's 1.59, but a prefix of the severity alone has no date and no numbers to format. What "
     "remains is what every statement costs: its stream is acquired and reset, and two mutexes are locked (30 % of "
     "the profile of 160 bytes)."),
    ("time of a statement",
     "The slowest statements wait for the lock of the logger: with 2 threads on 2 cores the 99th percentile was 70 µs, "
     "that of `write` alone 5 µs, while the medians were 1.1 µs and 1.4 µs. With 8 threads the 99th percentile was 6.7 "
     "µs against 5.3 µs, and at 99.9 % it was 880 µs against 29 µs: `write` has no lock whose holder can be "
     "interrupted by the scheduler."),
)

MEM_REASONS = (
    ("copy and release, thread-safe",
     "Thread-safe references: 43 instructions (`./benchmarks/profile reference-copied-and-dropped`). acquireRef() and "
     "releaseRef() are virtual, since subclasses may override them, and each object stores how it is counted: what is "
     "inline still compares the entries of the virtual table, and loads the mode and the bias, between two atomic "
     "operations. 4.2 ns of processor time, POCO and Boost 3.5, the bare atomic operations 4.1."),
    ("copy and release, one thread",
     "References of one thread: what is saved are the atomic operations, which are fast on an AMD EPYC: 1.6 ns of "
     "processor time, thread-safe 4.2 ns. An object that is not counted at all takes 1.4 ns."),
    ("create and release",
     "An object created and released executes 224 instructions (`./benchmarks/profile object-made-and-dropped`). 66 "
     "% are malloc() and free(), as for the peers. The rest constructs and destroys an object with a virtual base "
     "(type::Object), and calls the destructor through its virtual table; its first reference is added atomically, "
     "its last one removed without that. 19.6 ns of processor time, POCO 17.0, shared_ptr 12.3, Boost 10.9; the same "
     "instructions took 14.7 ns in an earlier measurement, POCO 16.8."),
)

MT_REASONS = (
    ("queue, 1 to 1",
     "An element that is inserted and taken executes 475 instructions (`./benchmarks/profile queue-put-and-get`). 35 "
     "% are the error-checking mutex in the C library, 12 % its wrapper with a virtual interface, 31 % insert() and "
     "next(), 8 % their stack tracks. The handwritten deque has a plain mutex, and neither tracks nor time limits. "
     "One pair of threads on an idle AMD EPYC passed 8.9 M/s, the deque 12.8 M/s; in another run of the same programs "
     "8.6 and 6.5 M/s: how often one thread blocks on the other differs more than the queues do. Four pairs passed 7.5 "
     "and 3.4 M/s."),
    ("pool, preallocated tasks",
     "A preallocated task executes 690 instructions on the submitting thread and 560 on the worker "
     "(`./benchmarks/profile --inclusive pool-task`, without the construction of the task): its closure is allocated "
     "from a cache, the context of the submitter is shared with it and becomes that of the worker, and its state is "
     "set for threads that wait. Functions without state, as given to the peers, need none of this."),
    ("pool, a new task each time",
     "A new task each time: 2,180 instructions if no memory is used twice, because all tasks are pending before the "
     "first one runs (`./benchmarks/profile --inclusive pool-task-managed`). 28 % of them allocate the task, its name "
     "and its closure. With at most 5,000 pending tasks their memory comes from a cache instead, and a task takes 0.7 "
     "of the processor time. The pool's own share is that of the preallocated tasks. If the workers are faster than "
     "the submitter, they park, and each wake-up is a system call of the submitter: in 100,000 tasks that were added "
     "in one go, 23 % of the processor time were context switches and wake-ups, 9 % the polls of the worker that is "
     "the last to park; polling 3 to 16 times as long made no difference. Beside all other pools in one process a task "
     "took 1.17 and 1.23 times as long as that of oneTBB in two runs; beside oneTBB alone "
     "(`--benchmark_filter='dalnimPool|tbbPool'`), 0.93 to 1.00 times in three. The functions given to the peers "
     "have no state."),
    ("CriticalSection",
     "A critical section executes 101 instructions (`./benchmarks/profile critical-section-acquired-and-released`), "
     "87 of them in pthread_mutex_lock() and pthread_mutex_unlock(). The mutex is an error-checking one, which "
     "compares the caller with its owner in both calls, so that misuse fails with 35 (`EDEADLK`) and 1 (`EPERM`); "
     "std::mutex is a plain one, called without a function in between. 10.2 ns with one thread on an idle AMD EPYC, "
     "std::mutex 5.8; 28.0 and 16.2 ns with 4 threads. The C library's two kinds alone take 7.5 and 5.8 ns. Calling "
     "pthread_mutex_trylock() first, which does not compare, saved 0.5 ns, and would hide the order of locks from "
     "the thread sanitizer."),
    ("ReaderWriterLock for reading",
     "Shared access executes 79 instructions (`./benchmarks/profile read-lock-acquired-and-released`), 42 of them in "
     "the lock and 37 in the class that turns errors into exceptions; 8.3 ns of processor time without contention, "
     "std::shared_mutex 6.1. Two threads that both ran took 33.9 and 34.5 ns in two measurements, std::shared_mutex "
     "28.5 and 53.6 ns: most of that is the transfer of the cache line from one core to the other. Before readers "
     "were added by one atomic addition, it was 40.0 and 63.6 ns."),
)

SYS_REASONS = (
    ("StackTrack",
     "A track executes 29 instructions and no atomic one (`./benchmarks/profile track-entered-and-left`). The goal "
     "was set on an Intel Xeon, whose two atomic operations took 18.9 ns; on an AMD EPYC they take 4.2 ns, and the "
     "track 2.5 ns (0.60). It is left inline; entering it is a call into the library, for a variable of the thread. "
     "The same code without that variable takes 2.4 ns."),
)

TYPE_REASONS = (
    ("copy of a context with 0 entries",
     "An empty context is copied and destroyed in 462 instructions (`./benchmarks/profile context-copied`). 32 % are "
     "malloc() and free(), as for the map. The rest constructs and destroys an object of five classes with virtual "
     "bases and a reference count (CurrentContext, ContainerContext, Context, RefCntObject, Object), where the map "
     "has one class and no entry. 32.7 ns of processor time, the map 13.1; with 4 entries 112 and 141 ns."),
)

IO_REASONS = (
    ("lookup among",
     "A lookup among 1,000 properties executes 500 instructions (`./benchmarks/profile property-looked-up`): 89 % "
     "are the std::map and the comparison of its keys, which log4cplus uses, too; 4 % the stack track, about the "
     "difference. 52.5 ns on an idle AMD EPYC, log4cplus 51.0; among 100,000 properties 910 and 915 ns."),
    ("properties load",
     "A line that is loaded, and destroyed with its table, executes 2,850 instructions (`./benchmarks/profile "
     "properties-loaded`, by 100 lines): 38 % allocate and free the two strings and the node of each property, 10 % "
     "insert it, 8 % compare keys. 1,000 lines took 167 µs of processor time, log4cplus 162; 100,000 lines 41 ms and "
     "90 ms."),
)

XML_REASONS = (
    ("attributes,",
     "Attributes: 83 % of the instructions are in the two loops that take markup apart (`./benchmarks/profile "
     "document-parsed`: startTag() 47 %, runParse() 36 %), and most of a document of attributes is markup. Whether "
     "that is faster than pugixml in place depends on the processor: 0.88 to 1.05 times its time on an Intel Xeon, "
     "1.19 times on an AMD EPYC at 10 KB."),
    ("text, 10",
     "Text from 10 MB on: the parser copies the document, which the caller keeps, and delivers text that ends in a "
     "zero byte. Two buffers of that size therefore pass through memory, one of them in fresh pages. Expat delivers "
     "pieces of a small buffer, and pugixml in place modifies the caller's document."),
    ("mixed, 10 MB",
     "Mixed: of the instructions (`valgrind --tool=callgrind --toggle-collect=nim_pdsParseBuffer parser_bench "
     "--benchmark_filter='parseOne<PlainParser>/2/1000000$'`), 35 % are the two loops over markup, startTag() and "
     "runParse(), 16 % maintain the path of the open elements, which each callback receives, 14 % look up the "
     "classes of the characters of names, 13 % prepare and make the calls, 10 % scan for markup 16 bytes at a time, "
     "and 8 % are memcpy(), of the document and the path. Wider scans could therefore save a few percent. pugixml "
     "maintains no paths, and modifies the document. On an idle AMD EPYC the parser took 0.89 times as long as "
     "pugixml in place."),
    ("mixed, 100 MB",
     "Mixed at 100 MB: 4.8 times as fast as expat instead of 5, since the document is copied as it is for text."),
    ("xml::Parser with a Consumer",
     "With a consumer the parser executes 1.65 times the instructions of the push parser (as above, "
     "`--toggle-collect='*Parser::parse*'` and `parseOne<ObjectParser>`). Of the difference, 37 % prepare the call "
     "for a start tag, with its attributes, 20 % those for text and end tags, and 37 % assign and append the strings "
     "that the consumer receives, since its interface takes std::string. 10 MB took 11.0 ms of processor time, the "
     "push parser 6.2, pugixml 7.1 if the process has the memory for its tree from an earlier document, and 23 to 28 "
     "if it must ask the kernel for it, as in a process that parses only this one."),
)

EVIDENCE_ROWS = tuple(
    Row(title, "evidence_bench", f"{own}/all", limits=(("without", f"{own}/none"),), clock="real", per="item")
    for own, title in (("record", "record to a file, with two fields"), ("refused", "statement disabled by severity"),
                       ("track", "track entered and left"), ("task", "task of a pool")))

SUBSYSTEMS = (
    Subsystem(
        "log", "Log statements and records", ("gate_bench", "record_bench", "registry_bench"),
        tuple(log_rows()), LOG_PLOTS,
        ("Disabled statements are measured in processor time, so that the number of threads that the machine "
         "can run at the same time does not matter. Records are measured in wall-clock time, divided by the "
         "records of all threads.",
         "All loggers write lines of the same length, with date, zone, host, process, thread, module, "
         "severity, file and line, to a new file, and each line has been written to the kernel when its "
         "statement returns. spdlog caches the formatted date for a second, and has host and process as constants "
         "in its pattern, as the others have, all or some of them; dalnim formats every field of every record. "
         "`write` and `ofstream` receive the complete line and format nothing.",
         "The times of a statement are measured one by one, 20,000 on each thread, by a monotonic clock that is read "
         "before and after the statement; its share is the limit \"clock\". They are percentiles of the statements "
         "of all threads: more than half of them may find the lock of their logger free, while the slowest "
         "wait for other threads, or for a processor."),
        LOG_REASONS),
    Subsystem("mem", "References", ("rcoref_bench",), MEM_ROWS, (), reasons=MEM_REASONS),
    Subsystem("mt", "Queues, pools, threads and locks",
              ("queue_bench", "pool_bench", "task_latency_bench", "thread_bench", "lock_bench"),
              tuple(mt_rows()), (),
              ("The times until a task begins are measured one by one, from the call that submits it to the first "
               "instruction of the task, by a monotonic clock that is read twice; its share is the limit \"clock\". "
               "Two workers are idle for 100 µs before each task, or 64 tasks are submitted in a row and all of "
               "them have begun before the next 64. The tasks and closures are allocated by the submitter and "
               "freed by a worker.",),
              MT_REASONS),
    Subsystem("sys", "Stack tracks, errors, symbols and process start",
              ("stacktrack_bench", "symbol_bench", "load_bench"), tuple(sys_rows()), (), reasons=SYS_REASONS),
    Subsystem("evidence", "Everything opted in", ("evidence_bench",), EVIDENCE_ROWS, (),
              ("Each operation in a program that has asked for everything that helps to explain an incident, compared "
               "with the same in one that has asked for nothing (\"without\"): reports of crashes and threads, a "
               "watchdog with limits for tasks, queues and tracks, the statistics of logger, contexts and pool with "
               "its clock, names of threads in the kernel, limits of modules that hold nothing back, times in ISO "
               "8601 with microseconds. Its record has two fields more. Everything runs in children of their own, "
               "since most of it cannot be disabled again.",)),
    Subsystem("type", "Contexts and numbers", ("context_bench", "numberops_bench"),
              tuple(type_rows()), TYPE_PLOTS, reasons=TYPE_REASONS),
    Subsystem("io", "Base64 and properties", ("base64_bench", "properties_scale_bench"),
              tuple(io_rows()), tuple(io_plots()), reasons=IO_REASONS),
    Subsystem("xml", "XML", ("parser_bench",), tuple(xml_rows()), tuple(xml_plots()),
              ("dalnim runs its push parser with an empty callback, expat and POCO run with empty handlers, and "
               "pugixml builds its tree. In place means that pugixml modifies the document, which is restored "
               "outside the measured time.",), XML_REASONS),
)

# The rows that the report begins with: what they measure, the subsystem, the title of the row, one peer each.
OPENING = (
    ("Log record of 160 bytes, written to a file", "log", "record of 160 bytes to a file, 1 thread", "spdlog"),
    ("Task created for a thread pool, and run", "mt", "pool, a new task each time, 0 context entries", "oneTBB"),
    ("Properties file of 100,000 lines, loaded", "io", "properties load, 100,000 lines", "log4cplus"),
    ("XML document of 1 MB, parsed by the push parser", "xml", "mixed, 1 MB", "pugixml in place"),
    ("1 MB encoded in Base64", "io", "Base64 encode, string, 1 MB", "OpenSSL"),
)
OPENING_PLOT = "record-threads"

# The rows that README.md shows: what they measure, the subsystem, the title of the row.
SUMMARY = (
    ("Log statement that is disabled", "log", "disabled by severity, 1 thread"),
    ("Log record of 160 bytes, written to a file", "log", "record of 160 bytes to a file, 1 thread"),
    ("Task run by a thread pool", "mt", "pool, preallocated tasks, 0 context entries"),
    ("Properties file of 100,000 lines, loaded", "io", "properties load, 100,000 lines"),
    ("XML document of 1 MB, parsed by the push parser", "xml", "mixed, 1 MB"),
)
