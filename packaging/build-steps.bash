# Steps that ./run, ./test, tests/platforms/* and tests/reliability/run share. They source this file, after they have
# set `tree`, and with "set -euo pipefail".

# Opens the standard descriptors that are closed: a file that is opened later would have their numbers. If only standard
# error is closed, bash reads the script from that descriptor.
if ! true 9>&2 || [ /dev/fd/2 -ef "$0" ]; then
    exec 2>/dev/null
fi
{ true 9>&1; } 2>/dev/null || exec >/dev/null
{ true 9<&0; } 2>/dev/null || exec </dev/null

# The packages with which ./test builds and runs the suite.
suite_packages=(g++ clang cmake ninja-build --optional ccache pkg-config
    clang-format clang-tidy libgtest-dev libgmock-dev libsystemd-dev libexpat1-dev libssl-dev xxd shared-mime-info
    iso-codes docbook-xsl devscripts man-db abigail-tools xz-utils doxygen graphviz python3 pyflakes3 gdb
    systemtap-sdt-dev bpftrace spin)

# Prints its arguments as lines to standard error, and ends the script.
fail() {
    printf '%s\n' "$@" >&2
    exit 1
}

# Returns true if standard output is a terminal on which a line can be redrawn.
is_terminal() { [ -t 1 ] && [ "${TERM-dumb}" != dumb ]; }

# Prints a duration: about MINUTES
about() {
    if [ "$1" -lt 120 ]; then
        echo "about $1 minutes on two cores"
    else
        echo "about $((($1 + 30) / 60)) hours on two cores"
    fi
}

# Sets `build_root`, the directory of all builds, and creates it: DALNIM_BUILD_DIR, or "build" in the tree. All users may
# read what is built afterwards, whatever the umask was: tests run parts of themselves as another user.
choose_build_root() {
    umask 022
    build_root=${DALNIM_BUILD_DIR:-$tree/build}
    [[ $build_root == /* ]] || build_root=$PWD/$build_root
    local probe
    if ! probe=$({ mkdir -p -- "$build_root" && mktemp "$build_root/.probe.XXXXXX"; } 2>&1); then
        fail "$0: cannot write to $build_root (${probe##*: }). Set DALNIM_BUILD_DIR to a directory for the build."
    fi
    rm -f -- "$probe"
}

# Sets the environment, and `launcher_options` for CMake, for builds with ccache, or without it if it is not
# installed. If its directory cannot be written, or there is no home, the cache is in the build directory.
choose_compiler_cache() {
    launcher_options=()
    if ! command -v ccache >/dev/null; then
        # An earlier configuration may have recorded it.
        launcher_options=(-DCMAKE_CXX_COMPILER_LAUNCHER= -DCMAKE_C_COMPILER_LAUNCHER=)
        return
    fi
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache CMAKE_C_COMPILER_LAUNCHER=ccache
    # ccache needs these settings to cache files that use precompiled headers.
    export CCACHE_SLOPPINESS=pch_defines,time_macros
    [ -z "${CCACHE_DIR-}" ] || return 0
    local cache=
    [ -z "${HOME-}" ] || cache=$(ccache --get-config cache_dir 2>/dev/null) || cache=
    if [ -z "$cache" ] || ! mkdir -p -- "$cache" 2>/dev/null || ! [ -w "$cache" ]; then
        export CCACHE_DIR=$build_root/ccache
    fi
}

# Prints which packages are going to be installed: print_packages ARGUMENT_OF_INSTALL_DEPENDENCIES...
print_packages() {
    local missing
    missing=$("$tree/packaging/install-dependencies" --list "$@")
    if [ -z "$missing" ]; then
        echo "==> packages to install: none"
    elif [ "$(id -u)" -eq 0 ]; then
        echo "==> packages to install, from the network: $missing"
    fi
}

# Prints what the script does and the packages that it installs, installs them, and sets up the compiler cache:
# prepare TEXT ARGUMENT_OF_INSTALL_DEPENDENCIES...
prepare() {
    echo "==> $1"
    shift
    print_packages "$@"
    "$tree/packaging/install-dependencies" "$@"
    choose_compiler_cache
}

# Appends standard input, the output of a build, to LOG, and shows its progress in one line of the terminal:
# show_progress LOG
show_progress() {
    local line began=$SECONDS
    while IFS= read -r line; do
        printf '%s\n' "$line" >&3
        if [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]]; then
            printf '\r    step %s of %s, %d min %02d s\033[K' "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}" \
                $(((SECONDS - began) / 60)) $(((SECONDS - began) % 60))
        fi
    done 3>>"$1"
    printf '\r\033[K'
}

# configure NAME LOG OPTION...: configures the build NAME in `build_root` with the options of CMake. Writes the output to
# LOG, and to standard error if it fails, which ends the script.
configure() {
    local name=$1 log=$2
    shift 2
    echo "==> configuring the $name build (output in $log)"
    (cd "$tree" && cmake -B "$build_root/$name" "${launcher_options[@]}" "$@") >"$log" 2>&1 || {
        cat "$log" >&2
        fail "$0: CMake could not configure the build; see $log"
    }
}

# compile NAME LOG [TARGET...]: builds the targets of a configured build, or everything. Appends the output to LOG, and
# writes the errors to standard error, too. A failure ends the script.
compile() {
    local directory=$build_root/$1 log=$2
    shift 2
    [ $# -eq 0 ] || set -- --target "$@"
    if is_terminal; then
        NINJA_STATUS='[%f/%t] ' cmake --build "$directory" "$@" 2>&1 | show_progress "$log"
    else
        NINJA_STATUS='[%f/%t] ' cmake --build "$directory" "$@" >>"$log" 2>&1
    fi || {
        grep -vE '^\[[0-9]+/[0-9]+\]' "$log" | tail -n 100 >&2
        fail "$0: the build failed; see $log"
    }
}

# build_all NAME LOG DURATION OPTION...: configures the build NAME in `build_root` with the options of CMake, and builds
# everything. DURATION says how long that takes if nothing has been built, or is empty.
build_all() {
    local name=$1 log=$2 duration=$3 built stamp=$build_root/$1/.built-with
    shift 3
    configure "$name" "$log" "$@"
    # The options of the last build that succeeded; of one without the tests only if none with them did.
    built=$(cat "$stamp" 2>/dev/null) || built=
    if [ "$built" = "$*" ] || [ "$built" = "${*/BUILD_TESTS=OFF/BUILD_TESTS=ON}" ]; then
        duration="what has changed since the last build"
    else
        built=$*
    fi
    echo "==> building it ($(nproc) jobs${duration:+, $duration})"
    compile "$name" "$log"
    printf '%s\n' "$built" >"$stamp"
}
