# Steps that ./run and ./test share. They source this file, after they have set `tree`, and with "set -euo pipefail".

# Prints its arguments as lines to standard error, and ends the script.
fail() {
    printf '%s\n' "$@" >&2
    exit 1
}

# Returns true if standard output is a terminal on which a line can be redrawn.
is_terminal() { [ -t 1 ] && [ "${TERM-dumb}" != dumb ]; }

# Sets `build_root`, the directory of all builds, and creates it: DALNIM_BUILD_DIR, or "build" in the tree.
choose_build_root() {
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

# run_build DIRECTORY LOG: builds everything. Appends the output to LOG.
run_build() {
    if is_terminal; then
        NINJA_STATUS='[%f/%t] ' cmake --build "$1" 2>&1 | show_progress "$2"
    else
        NINJA_STATUS='[%f/%t] ' cmake --build "$1" >>"$2" 2>&1
    fi
}

# build_preset PRESET LOG DURATION [OPTION...]: configures PRESET with the options, and builds it. DURATION says how
# long the first build takes. Writes the output to LOG, and its errors to standard error, too. A failure ends the script.
build_preset() {
    local preset=$1 log=$2 duration=$3 directory=$build_root/$1
    shift 3
    [ -e "$directory/build.ninja" ] && duration="what has changed since the last build"
    echo "==> configuring the $preset build (output in $log)"
    (cd "$tree" && cmake --preset "$preset" -B "$directory" "${launcher_options[@]}" "$@") >"$log" 2>&1 || {
        cat "$log" >&2
        fail "$0: CMake could not configure the build; see $log"
    }
    echo "==> building it ($(nproc) jobs, $duration)"
    run_build "$directory" "$log" || {
        grep -vE '^\[[0-9]+/[0-9]+\]' "$log" | tail -n 100 >&2
        fail "$0: the build failed; see $log"
    }
}
