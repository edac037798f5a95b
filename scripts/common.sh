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

# need_value OPTION COUNT: fails when an option that takes a value stands last.
need_value() {
    (($2 >= 2)) || fail "$1 needs a value; see --help"
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

# configure_preset NAME [CMAKE OPTION...]: makes build/NAME ready to build.
configure_preset() {
    local log=$SOURCE_DIR/build/$1.configure.log
    mkdir -p "$SOURCE_DIR/build"
    if command -v ccache >/dev/null; then export CMAKE_CXX_COMPILER_LAUNCHER=ccache; fi
    cmake -S "$SOURCE_DIR" --preset "$@" >"$log" 2>&1 || {
        cat "$log" >&2
        fail "configuring $1 failed; what cmake says stands above"
    }
}

# build_folder NAME [TARGET...]: builds these, or everything, in build/NAME.
build_folder() {
    local folder=$SOURCE_DIR/build/$1
    shift
    run_and_wait terminate cmake --build "$folder" --parallel "$(nproc)" ${1:+--target "$@"} ||
        fail "building ${folder##*/} failed or was interrupted"
}

# build_preset NAME: configures build/NAME and builds everything, tests included.
build_preset() {
    configure_preset "$1" -DBUILD_TESTING=ON
    build_folder "$1"
}

# build_release TARGET...: builds no more than these. A folder that is new asks for no test library;
# one that knows the tests keeps them.
build_release() {
    if [[ -e $SOURCE_DIR/build/release/CMakeCache.txt ]]; then
        configure_preset release
    else
        configure_preset release -DBUILD_TESTING=OFF
    fi
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
SERVICE_PORTS=(10150 10205 10141)

# check_free_ports PORT: whether the web server's port and the services' are free; says so if not.
check_free_ports() {
    local taken other
    for taken in "$1" "${SERVICE_PORTS[@]}"; do
        if answers "$taken"; then
            [[ $taken != "$1" ]] || other=", or choose another with --port"
            echo "$PROGRAM: port $taken of 127.0.0.1 is taken; stop the program that" \
                "\"ss -ltnp sport = :$taken\" shows${other:-}" >&2
            return 1
        fi
    done
}

# run_and_wait STOP COMMAND...: runs the command until it ends and returns its exit status. SIGTERM,
# SIGINT and SIGHUP are answered with `STOP pid`; when this shell is killed outright, the kernel
# kills the command. A shell's background command would ignore Ctrl-C, and so would everything it
# starts; env gives it the signals a terminal would.
run_and_wait() {
    local stop=$1 child status=0
    shift
    env --default-signal=INT,QUIT setpriv --pdeathsig KILL -- "$@" <&0 &
    child=$!
    # shellcheck disable=SC2064 # the process is known now
    trap "$stop $child" TERM INT HUP
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
    pkill -TERM -P "$1" || true
}
