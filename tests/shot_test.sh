#!/usr/bin/env bash
# Runs tessel-shot as a user would, by the lines of cases/shot.txt: shot_test.sh PROGRAM
set -u

program=$1
cases=$(dirname "$(readlink -f "$0")")/cases/shot.txt
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

shot() { "$program" "$@"; }

# The size of a picture, and its colours with their numbers of pixels: 3x2 336699:6
colours() {
    pngtopnm >"$work/pnm" && sed -n '2{s/ /x/p;q}' "$work/pnm" | tr '\n' ' ' &&
        ppmhist -noheader "$work/pnm" | awk '{printf "%02X%02X%02X:%d ", $1, $2, $3, $NF}'
}

# A line of the shell, in a new folder with pages in it.
run() {
    rm -rf here && mkdir -p here/out && cd here && ln ../long.html . && mkfifo fifo && ln -s old.png link.png || return 99
    echo '<BODY BGCOLOR=#336699>' >blue.html
    echo '<IMG SRC=dot.tga><IMG SRC=none.tga>' >pictures.html
    printf '<A HREF=blue.html>%060d</A>' 0 >link.html
    printf '\0\0\2\0\0\0\0\0\0\0\0\0\1\0\1\0\20\0\xFF\x7F' >dot.tga
    echo old >old.png && chmod 640 old.png
    (eval "$1")
}

# A page that takes the library far longer than it takes the program to look whether it is there.
cd "$work" && { echo '<BODY BGCOLOR=#336699><!' && head -c 32M /dev/zero | tr '\0' x && echo '>'; } >long.html
failed=0 number=0
while IFS= read -r row; do
    [[ $row == *' ==> '* ]] || continue
    line=${row% ==> *}
    read -r code says <<<"${row##* ==> }"
    # None of this may be found out by waiting until the time is up.
    SECONDS=0
    got=$(run "$line" >said 2>err; echo $?)
    problem=
    [[ $got == "$code" && $SECONDS -lt 20 ]] || problem="exit code $got after $SECONDS s"
    [[ $(cat said err | tr '\n' '~') == *"$says"* ]] || problem+=" not said: $says"
    [[ $code == 0 ]] || rmdir here/out || problem+=" a picture is left"
    if [[ $code == 1 ]]; then
        [[ ! -e here/page.png && ! -s said && $(grep -c 'try --help' err) == "$(wc -l <err)" ]] || problem+=" not refused"
    fi
    [[ -z $problem ]] || { echo "Failed: $line: $problem" && head -n 3 said err && failed=1; }
    number=$((number + 1))
done <"$cases"
exit $((number < 50 || failed))
