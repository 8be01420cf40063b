#!/usr/bin/env bash
# Installs what building takes and is missing, from Debian's packages; with --tests also what the tests take, with --demo
# what the server of the demo pages takes, with --fuzz what the fuzzers take. Called by ./run and ./test. Asks nothing of
# apt when everything is there.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config libfreetype-dev libfontconfig-dev libpng-dev libsdl2-dev fonts-liberation)
if [[ ${1-} == --tests ]]; then
    packages+=(libgtest-dev libgmock-dev libbenchmark-dev binutils libjpeg-turbo-progs libjpeg62-turbo-dev netpbm nginx-light
        python3 xvfb xdotool xclip procps clang-tidy cppcheck)
elif [[ ${1-} == --fuzz ]]; then
    packages+=(clang libclang-rt-14-dev libjpeg62-turbo-dev)
elif [[ ${1-} == --demo ]] && ! type -P python3 >/dev/null; then
    packages+=(python3)
fi

# Without Debian's tools nothing is known about what is there: the build will say what it does not find.
if ! type -P dpkg-query apt-get >/dev/null; then
    echo "This is no Debian system; what these packages hold has to be there: ${packages[*]}" >&2
    exit 0
fi

# dpkg-query fails when it does not know a package; what it says about the others still counts.
installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${packages[@]}" 2>/dev/null || true)
missing=()
for package in "${packages[@]}"; do
    grep -qxF "installed $package" <<<"$installed" || missing+=("$package")
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

echo "Installing ${missing[*]}"
as_root=()
if [[ $EUID -ne 0 ]]; then
    if ! type -P sudo >/dev/null; then
        echo "This takes root or sudo. As root: apt-get install --no-install-recommends ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
    [[ -t 0 ]] || as_root+=(-n) # nobody is there to type a password
fi

log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -y -o Acquire::Retries=3 \
        -o DPkg::Lock::Timeout=300 "$@" </dev/null >"$log" 2>&1 && return
    cat "$log" >&2
    echo "Could not install ${missing[*]}: 'apt-get $*' failed, see above." >&2
    exit 1
}
apt update
# A web server among the packages is for the tests to start: it is to run neither now nor after the next start.
policy=/usr/sbin/policy-rc.d
if [[ " ${missing[*]} " == *" nginx-light "* && ! -e $policy ]]; then
    "${as_root[@]}" install -m 755 /dev/stdin "$policy" <<<$'#!/bin/sh\nexit 101'
    trap 'rm -f "$log"; "${as_root[@]}" rm -f "$policy"; "${as_root[@]}" update-rc.d nginx disable >/dev/null 2>&1 || true' EXIT
fi
# What apt does not know, it takes for a pattern: "g++" alone would then fit every name with a g in it.
apt install --no-install-recommends "${missing[@]/#g++/^g\\+\\+$}"
