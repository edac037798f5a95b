# Shared by the project's shell scripts: where things are, how to fail, how to end cleanly.
# shellcheck shell=bash

# shellcheck disable=SC2034 # used by the scripts that read this file
SOURCE_DIR="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)"
PROGRAM="${0##*/}"

# The recorder's own places. They are literal in the programs, so they are literal here.
# shellcheck disable=SC2034 # used by the scripts that read this file
FIXED_PATHS=(/share /storage /home/httpd /Zdbglog)
# shellcheck disable=SC2034
RECORDER_HOME=/var/lib/recorder

# fail TEXT: one clear line, and out.
fail() {
    printf '%s: %s\n' "$PROGRAM" "$1" >&2
    exit 1
}

# unavailable FOLDER TEXT: ends this script; tests that need what was to be in the folder are
# skipped, and say why.
unavailable() {
    printf '%s: %s\n' "$PROGRAM" "$2" >&2
    printf '%s\n' "$2" >"$1/unavailable"
    exit 0
}

# need_value OPTION COUNT: fails when an option that takes a value stands last.
need_value() {
    (($2 >= 2)) || fail "$1 needs a value; see --help"
}

# Who asked for all this, also when sudo stands between; and that user's home.
# shellcheck disable=SC2034
INVOKER=$EUID
if ((EUID == 0)); then INVOKER=${SUDO_UID:-0}; fi

# home_of USER ID: where that user's own files are.
home_of() {
    local home
    home=$(getent passwd "$1" | cut -d: -f6)
    echo "${home:-${HOME:-/}}"
}

# hands_of USER-ID GROUP-ID: words that, before a command, have root run it as that user. Anybody
# else is nobody but himself.
hands_of() {
    ((EUID == 0 && $1 != 0)) || return 0
    printf '%s\n' setpriv "--reuid=$1" "--regid=$2" --clear-groups -- env "HOME=$(home_of "$1")"
}

# Root leaves nothing of its own in somebody else's source tree, or in the home of whoever called
# sudo.
# shellcheck disable=SC2034
mapfile -t AS_INVOKER < <(hands_of "$INVOKER" "${SUDO_GID:-0}")
mapfile -t AS_BUILDER < <(hands_of "$(stat -c %u "$SOURCE_DIR")" "$(stat -c %g "$SOURCE_DIR")")

# require_root: fails now rather than later when this user cannot become root.
require_root() {
    local words
    ((EUID != 0)) || return 0
    command -v sudo >/dev/null || fail "needs root: run it as root, or install sudo"
    words=$(sudo -- true 2>&1) || fail "needs root, and sudo says: ${words##*$'\n'}"
}

# require_room FOLDER MIB COMMAND...: makes the folder and a file in it, as AS_BUILDER for example;
# fails with the system's words when it cannot, or when there is less room than that.
require_room() {
    local folder=$1 needed=$2 free words
    shift 2
    words=$("$@" mkdir -p -- "$folder" 2>&1) || fail "cannot make $folder: ${words##*: }"
    words=$(LC_ALL=C "$@" dd if=/dev/zero of="$folder/.room" bs=64K count=1 status=none 2>&1) || {
        "$@" rm -f -- "$folder/.room" 2>/dev/null || true
        fail "cannot write to $folder: ${words##*: }"
    }
    "$@" rm -f -- "$folder/.room"
    free=$(df --output=avail -B1M -- "$folder" | tail -n 1)
    ((free >= needed)) || fail "$folder has $((free)) MiB free, and $needed MiB are needed"
}

# as_root COMMAND...: runs it as root. The variables named here are the only ones that sudo passes.
as_root() {
    if ((EUID == 0)); then
        "$@"
    else
        command -v sudo >/dev/null || fail "needs root: run it as root, or install sudo"
        sudo --preserve-env=RECORDER_BUILD,RECORDER_SOURCE,RECORDER_IN_PLACE -- "$@"
    fi
}

# as_root_instead COMMAND...: the same in place of this process. When sudo is killed outright, the
# command goes with it.
as_root_instead() {
    if ((EUID == 0)); then
        exec "$@"
    fi
    command -v sudo >/dev/null || fail "needs root: run it as root, or install sudo"
    exec sudo -- setpriv --pdeathsig KILL -- "$@"
}

# plain_source: the source tree by a name that CMake and ninja understand. In their files quotes, &
# and the like have meanings of their own; such a tree gets a link in the builder's cache.
plain_source() {
    local link
    if [[ $SOURCE_DIR != *["\"'&;\\|<>*?\`^(){}"]* ]]; then
        echo "$SOURCE_DIR"
        return
    fi
    link=$(home_of "$(stat -c %u "$SOURCE_DIR")")/.cache/recorder-source-$(
        sha256sum <<<"$SOURCE_DIR" | head -c 16)
    "${AS_BUILDER[@]}" mkdir -p "${link%/*}"
    "${AS_BUILDER[@]}" ln -sfnT "$SOURCE_DIR" "$link"
    echo "$link"
}

# is_configured NAME: build/NAME was made for the tree where it now is, and of these presets. What
# else changes, ninja notices.
is_configured() {
    local folder=$SOURCE_DIR/build/$1
    [[ $folder/build.ninja -nt $SOURCE_DIR/CMakePresets.json ]] &&
        grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$(plain_source)" "$folder/CMakeCache.txt"
}

# configure_preset NAME [CMAKE OPTION...]: makes build/NAME ready to build.
configure_preset() {
    local log=$SOURCE_DIR/build/$1.configure.log fresh=()
    "${AS_BUILDER[@]}" mkdir -p "$SOURCE_DIR/build"
    if command -v ccache >/dev/null; then export CMAKE_CXX_COMPILER_LAUNCHER=ccache; fi
    is_configured "$1" || fresh=(--fresh) # a tree that was moved or copied
    "${AS_BUILDER[@]}" cmake -S "$(plain_source)" "${fresh[@]}" --preset "$@" 2>&1 |
        "${AS_BUILDER[@]}" tee "$log" >/dev/null || {
        cat "$log" >&2
        fail "configuring $1 failed; what cmake says stands above"
    }
}

# build_folder NAME [TARGET...]: builds these, or everything, in build/NAME.
build_folder() {
    local folder
    folder=$(plain_source)/build/$1
    shift
    run_and_wait terminate "${AS_BUILDER[@]}" cmake --build "$folder" --parallel "$(nproc)" \
        ${1:+--target "$@"} || fail "building ${folder##*/} failed or was interrupted"
}

# build_preset NAME: configures build/NAME and builds everything, tests included.
build_preset() {
    configure_preset "$1" -DBUILD_TESTING=ON
    build_folder "$1"
}

# build_release TARGET...: builds no more than these. A folder that is new asks for no test library;
# one that knows the tests keeps them.
build_release() {
    is_configured release || configure_preset release -DBUILD_TESTING=OFF
    build_folder release "$@"
}

check_port_number() {
    if [[ ! $1 =~ ^[1-9][0-9]{0,4}$ ]] || (($1 > 65535)); then
        fail "$1 is not a port number (1 to 65535)"
    fi
}

# answers PORT: somebody listens on it.
answers() {
    (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null
}

# The ports of the services; their clients know them literally.
SERVICE_PORTS=(10150 10205 10141 10206)

# check_free_ports PORT [SHARE_PORT]: whether the web server's port, the services' and the demo
# share's are free; says so if not.
check_free_ports() {
    local taken other=
    for taken in "$@" "${SERVICE_PORTS[@]}"; do
        answers "$taken" || continue
        [[ $taken != "${2:-}" ]] || other=", or choose another with --share-port"
        [[ $taken != "$1" ]] || other=", or choose another with --port"
        echo "$PROGRAM: port $taken of 127.0.0.1 is taken; stop the program that" \
            "\"ss -ltnp sport = :$taken\" shows$other" >&2
        return 1
    done
}

# run_and_wait STOP COMMAND...: runs the command until it ends and returns its exit status. SIGTERM,
# SIGINT and SIGHUP are answered with `STOP pid`; when this shell is killed outright, the kernel
# kills the command. A shell's background command would ignore Ctrl-C, and so would everything it
# starts; env gives it the signals a terminal would. A signal that comes before the process is known
# is kept for it: the first process of a sandbox would never hear of one that it does not wait for.
run_and_wait() {
    local stop=$1 child= asked= status=0
    shift
    trap 'asked=yes; [[ -z $child ]] || "$stop" "$child"' TERM INT HUP
    env --default-signal=INT,QUIT setpriv --pdeathsig KILL -- "$@" <&0 &
    child=$!
    [[ -z $asked ]] || "$stop" "$child"
    while kill -0 "$child" 2>/dev/null; do
        wait "$child" || true # a signal cuts it short
    done
    wait "$child" || status=$? # the shell still knows how it ended
    trap - TERM INT HUP
    return "$status"
}

# terminate PID, terminate_children PID: ways to stop, for run_and_wait.
terminate() {
    kill -TERM "$1" 2>/dev/null || true
}
terminate_children() {
    pkill -TERM -P "$1" || kill -KILL "$1" 2>/dev/null || true # it has none yet, or none any more
}
