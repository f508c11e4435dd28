"""The environment of a measurement: the machine, its tools, and the versions of the peers."""

import json
import os
import platform
import re
import subprocess

PEERS = {
    "Google Benchmark": "libbenchmark-dev", "spdlog": "libspdlog-dev", "log4cplus": "liblog4cplus-dev",
    "glog": "libgoogle-glog-dev", "POCO": "libpoco-dev", "Boost": "libboost-dev",
    "Boost.Log": "libboost-log-dev", "expat": "libexpat1-dev", "pugixml": "libpugixml-dev",
    "OpenSSL": "libssl-dev", "oneTBB": "libtbb-dev", "moodycamel": "libconcurrentqueue-dev",
    "Abseil": "libabsl-dev", "fast_float": "libfast-float-dev", "C library": "libc6", "C++ library": "libstdc++6",
}


def output_of(*command):
    """Returns the output of a command, or an empty string if it fails or does not exist."""
    try:
        return subprocess.run(command, capture_output=True, text=True).stdout.strip()
    except OSError:
        return ""


def version_of(package):
    text = output_of("dpkg-query", "-W", "-f", "${db:Status-Status} ${Version}\n", package)
    installed = [line.split()[1] for line in text.splitlines() if line.startswith("installed ")]
    return installed[0] if installed else ""


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        text = file.read()
    model = re.search(r"^model name\s*:\s*(.*)$", text, re.M)
    clock = re.search(r"^cpu MHz\s*:\s*(.*)$", text, re.M)
    return (model.group(1) if model else platform.machine(),
            f"{float(clock.group(1)):,.0f} MHz" if clock else "unknown")


def compiler(build):
    """Returns the compiler and the flags of the measured build."""
    text = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    cache = dict(re.findall(r"^(\w+):\w+=(.*)$", text, re.M))
    flags = " ".join(filter(None, [cache.get("CMAKE_CXX_FLAGS", ""),
                                   cache.get("CMAKE_CXX_FLAGS_" + cache["CMAKE_BUILD_TYPE"].upper(), "")]))
    return f"{output_of(cache['CMAKE_CXX_COMPILER'], '--version').splitlines()[0]}, `{flags}`"


def revision(tree):
    """Returns the measured commit, marked if the tree differs from it."""
    name = output_of("git", "-C", str(tree), "log", "-1", "--format=%h")
    changed = output_of("git", "-C", str(tree), "status", "--porcelain", "--", ".", ":!docs")
    return (name or "unknown") + (" with changes" if changed else "")


def library_size(build):
    """Returns the size of the stripped library in bytes, or None if it cannot be determined."""
    source = next(build.glob("libdalnim.so.*.*.*"), None)
    if source is None:
        return None
    stripped = build / "libdalnim.stripped"
    if subprocess.run(["strip", "--strip-unneeded", "-o", stripped, source]).returncode != 0:
        return None
    size = stripped.stat().st_size
    stripped.unlink()
    return size


def private_memory(build):
    """Returns by how many bytes the private memory of a program grows if it is linked with the library."""
    sizes = [output_of(str(build / "benchmarks" / name), "memory") for name in ("load_with", "load_without")]
    return (int(sizes[0]) - int(sizes[1])) * 1024 if all(sizes) else None


def record(path, tree):
    """Stores the environment with the results, so that a report written later describes the measured machine."""
    build = tree / "build" / "benchmarks"
    model, clock = processor()
    data = {
        "processor": model, "clock": clock, "cores": os.cpu_count(),
        "load": [round(value, 1) for value in os.getloadavg()],
        "kernel": f"{platform.system()} {platform.release().partition('-')[0]}",
        "compiler": compiler(build),
        "peers": {name: version_of(package) for name, package in PEERS.items()},
        "library_size": library_size(build),
        "private_memory": private_memory(build),
    }
    path.write_text(json.dumps(data, indent=1), encoding="utf-8")
