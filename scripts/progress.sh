# For scripts that people watch: a line of progress for each step, and a log of what is said.
# shellcheck shell=bash

# Of a step that failed so many lines are shown.
progress_end=15

# begin_log FILE COMMAND...: what the steps say goes there; the file is made by AS_BUILDER's words,
# for example.
begin_log() {
    progress_log=$1
    shift
    "$@" rm -f -- "$progress_log"
    "$@" touch -- "$progress_log"
}

# ends_a_quarter N M: N is a quarter of M, two or three, and M large enough for that to matter.
ends_a_quarter() {
    local quarter=$(($2 / 4))
    ((quarter >= 10 && $1 % quarter == 0 && $1 / quarter < 4))
}

# follow TITLE: logs its input, and shows on a terminal how far it is: by ninja's "[N/M] ...", by
# ctest's "N/M Test ...", or by the line itself. Elsewhere each quarter of what takes long is told.
follow() {
    local title=$1 line shown counted
    trap '' INT # Ctrl-C ends whoever writes, and that ends this
    while IFS= read -r line || [[ -n $line ]]; do
        printf '%s\n' "$line"
        [[ -n $line ]] || continue
        shown=${line##*$'\r'} # which others write to overwrite themselves
        counted=
        if [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]]; then
            counted=files
        elif [[ $line =~ ^\ *([0-9]+)/([0-9]+)\ Test ]]; then
            counted=tests
        fi
        if [[ $counted ]]; then shown="${BASH_REMATCH[1]} of ${BASH_REMATCH[2]} $counted"; fi
        if [[ -t 2 ]]; then
            printf '\r\e[K%.*s' "$((${COLUMNS:-80} - 1))" "$title: $shown" >&2
        elif [[ $counted ]] && ends_a_quarter "${BASH_REMATCH[@]:1}"; then
            echo "$title: $shown" >&2
        fi
    done >>"$progress_log"
    [[ ! -t 2 ]] || printf '\r\e[K' >&2
}

# step TITLE COMMAND...: the command's output is followed. When it fails, so does this script, with
# the end of what was said.
step() {
    local title=$1 follower status=0
    shift
    exec {said}> >(follow "$title")
    follower=$!
    run_and_wait terminate "$@" >&"$said" 2>&1 {said}>&- || status=$?
    exec {said}>&-
    wait "$follower" || true
    ((status == 0)) || step_failed "$title"
}

step_failed() {
    tail -n "$progress_end" -- "$progress_log" >&2
    fail "$1: failed or was interrupted; all of what was said is in $progress_log"
}
