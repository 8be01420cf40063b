#!/usr/bin/env bash
# tessel-view as its user has it: a window on a display of its own, mouse and keys from outside. view_test.sh PROGRAM
# With the folder SCREENSHOTS set, pictures of the stations are left there.
set -euo pipefail

view=$1
cases=$(dirname "$(readlink -f "$0")")/cases/view.txt
work=$(mktemp -d)
started=()
cleanup() {
    for id in "${started[@]}"; do kill "$id" 2>/dev/null || true; done
    rm -rf "$work"
}
trap cleanup EXIT
export LC_ALL=C.UTF-8 SDL_VIDEODRIVER=x11 LSAN_OPTIONS=detect_leaks=0 # what the display's libraries keep is theirs

fail() {
    echo "Failed: $1" >&2
    exit 1
}

expect() {
    [[ $2 == "$3" ]] || fail "$1: expected '$3', got '$2'"
}

# Waits until a command prints what is expected.
await() {
    local got=
    for _ in {1..200}; do
        got=$("${@:3}" 2>/dev/null || true)
        [[ $got != "$2" ]] || return 0
        sleep 0.05
    done
    fail "$1: expected '$2', got '$got'"
}

# The command line needs no display, a window does.
expect version "$("$view" --version)" "tessel-view 1.0.0"
for arguments in "--size 10x600" "--size 800x600x" "--size" "--colour" "a.html b.html"; do
    code=0
    # shellcheck disable=SC2086 # arguments are words
    "$view" $arguments 2>"$work/said" || code=$?
    expect "exit code of $arguments" "$code $(grep -c 'try --help' "$work/said")" "1 1"
done
code=0
DISPLAY=:65535 "$view" 2>"$work/said" || code=$?
expect "exit code without a display" "$code $(grep -c 'no display' "$work/said")" "2 1"

mkfifo "$work/display"
Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$work/display" >/dev/null 2>&1 &
started+=($!)
read -r number <"$work/display"
export DISPLAY=:$number

cd "$work"
echo '<TITLE>One &copy;</TITLE><A HREF=two.html>a link that is long enough to be hit without aiming</A>' >one.html
echo '<TITLE>Two</TITLE><FORM ACTION=answer METHOD=GET><INPUT NAME=a SIZE=30><INPUT TYPE=SUBMIT VALUE=Send></FORM><A HREF=one.html>back</A>' >two.html
echo '<TITLE>Answer</TITLE>' >'answer?a=heron'
"$view" --size 640x400 one.html &
program=$!
started+=("$program")

has_window() { window=$(xdotool search --onlyvisible --pid "$program" | tail -n 1) && [[ -n $window ]] && echo yes; }
await "a window" yes has_window
has_window >/dev/null
title() { xdotool getwindowname "$window"; }
clipboard() { timeout 2 xclip -o -selection clipboard; }
enter() { xdotool type --delay 30 "$@"; }
press() { xdotool key --delay 30 "$@"; }
click() { xdotool mousemove --window "$window" "$1" "$2" click 1; }
picture() { [[ -z ${SCREENSHOTS-} ]] || import -window root "$SCREENSHOTS/$1.png"; }

await "the first page" "One ©" title
xdotool windowfocus --sync "$window" 2>/dev/null || true
while read -r row; do
    [[ $row == *' ==> '* ]] || continue
    eval "${row% ==> *}" </dev/null
    read -r probe expected <<<"${row##* ==> }"
    await "$row" "$(eval "printf %s $expected")" "$probe"
done <"$cases"

# Nothing happens while nothing happens: below a hundredth of a core.
ticks() { awk '{print $14 + $15}' "/proc/$program/stat"; }
sleep 0.5
before=$(ticks)
sleep 3
(($(ticks) - before <= 3)) || fail "$(($(ticks) - before)) ticks of processor time in 3 s of idleness"

kill -TERM "$program"
code=0
wait "$program" || code=$?
expect "exit code when it was told to end" "$code" 0
