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

# follow TITLE: logs its input, and shows on a terminal how far it is: by ninja's "[N/M] ...", by
# ctest's "N/M Test ...", or by the line itself.
follow() {
    local title=$1 line shown
    trap '' INT # Ctrl-C ends whoever writes, and that ends this
    while IFS= read -r line || [[ -n $line ]]; do
        printf '%s\n' "$line"
        [[ -t 2 && -n $line ]] || continue
        shown=${line##*$'\r'} # which others write to overwrite themselves
        if [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]]; then
            shown="${BASH_REMATCH[1]} of ${BASH_REMATCH[2]} files"
        elif [[ $line =~ ^\ *([0-9]+)/([0-9]+)\ Test ]]; then
            shown="${BASH_REMATCH[1]} of ${BASH_REMATCH[2]}"
        fi
        printf '\r\e[K%.*s' "$((${COLUMNS:-80} - 1))" "$title: $shown" >&2
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
