#!/usr/bin/env bash
# What a user meets who installs Tessel and builds against it: install_test.sh SOURCE_DIR BUILD_DIR
# RUNTIME_INSIDE, the last being 1 where the library is to bring its C++ runtime along.
set -euo pipefail

source=$1 build=$2 inside=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "Failed: $1" >&2
    exit 1
}

expect() {
    [[ $2 == "$3" ]] || fail "$1: expected '$3', got '$2'"
}

# A package is built from a staged tree: nothing may name the stage, or lie outside of it.
DESTDIR=$work/stage cmake --install "$build" --prefix /opt/tessel >/dev/null
lib=$(basename "$(dirname "$(find "$work/stage" -name pkgconfig)")")
[[ $lib == lib ]] || lib=lib/$lib
for file in bin/tessel-shot bin/tessel-view include/tessel.h include/tessel_host.h "$lib/libtessel.so" \
    "$lib/libtessel.so.1" "$lib/pkgconfig/tessel.pc" "$lib/cmake/tessel/tesselConfig.cmake" share/man/man1/tessel-shot.1 \
    share/man/man1/tessel-view.1 share/man/man3/tessel.3; do
    [[ -e $work/stage/opt/tessel/$file ]] || fail "$file is not installed"
done
if grep -rlF -e "$work" -e "$build" -e "$source" "$work/stage"; then
    fail "the files above name a folder of the build"
fi

# The list of symbols, the headers and the library agree.
listed=$(grep -o '[a-z]*_[A-Za-z]*;' "$source/src/tessel.map" | tr -d ';' | sort)
expect "number of exports" "$(wc -l <<<"$listed")" 25
expect "what the library shows" "$(nm -D --defined-only "$build/libtessel.so" | awk '{print $NF}' | sort)" "$listed"
declared=$(grep -oh '^TESSEL_API .*(' "$source"/include/*.h | tr -d '(*' | awk '{print $NF}' | sort)
expect "what the headers declare" "$declared" "$listed"
if [[ $inside == 1 ]]; then
    expect "C++ runtimes asked for" "$(readelf -d "$build/libtessel.so" | grep -cE 'NEEDED.*(stdc\+\+|gcc_s)' || true)" 0
fi
readelf -d "$build/libtessel.so" | grep -q 'SONAME.*\[libtessel.so.1\]' || fail "another SONAME"

# Installed for real, and moved: everything finds the rest from where it lies.
cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix"
prefix=$work/prefix
export PKG_CONFIG_PATH=$prefix/$lib/pkgconfig LD_LIBRARY_PATH=$prefix/$lib
config=(pkg-config "--define-variable=prefix=$prefix")
expect "version for pkg-config" "$("${config[@]}" --modversion tessel)" 1.0.0
expect "tessel-shot without the library's path" "$(LD_LIBRARY_PATH='' "$prefix/bin/tessel-shot" --version)" "tessel-shot 1.0.0"

cd "$source/examples/pages"
"$prefix/bin/tessel-shot" --quiet --out "$work/shot.png" index.html

# In C, through pkg-config: the examples, as strictly as a careful user compiles.
strict=(-std=c11 -D_XOPEN_SOURCE=700 -Wall -Wextra -Wpedantic -Werror)
flags=$("${config[@]}" --cflags --libs tessel)
# shellcheck disable=SC2086 # flags are words
for header in tessel.h tessel_host.h; do
    cc "${strict[@]}" -fsyntax-only -xc $flags - <<<"#include <$header>"
    c++ -Wall -Wextra -Wpedantic -Werror -fsyntax-only -xc++ $flags - <<<"#include <$header>"
done
# shellcheck disable=SC2086
cc "${strict[@]}" "$source/examples/first.c" -o "$work/first" $flags
"$work/first" index.html >"$work/first.ppm"
expect "head of the picture" "$(head -n 1 "$work/first.ppm")" "P6 800 600 255"
expect "size of the picture" "$(wc -c <"$work/first.ppm")" $((15 + 3 * 800 * 600))
code=0
"$work/first" missing.html >/dev/null || code=$?
expect "a page that is not there" "$code" 2
# shellcheck disable=SC2086
cc "${strict[@]}" "$source/examples/sdl.c" -o "$work/sdl" $flags $(pkg-config --cflags --libs sdl2)

# In Python, which finds the same pixels.
python3 "$source/examples/ctypes_shot.py" index.html "$work/python.png" "$prefix/$lib/libtessel.so.1"
for picture in shot python; do
    pngtopnm "$work/$picture.png" | tail -c $((3 * 800 * 600)) | cmp - <(tail -c $((3 * 800 * 600)) "$work/first.ppm") ||
        fail "$picture.png is another picture"
done

# In C++, through find_package.
cmake -G Ninja -S "$source/tests/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
cd "$work"
echo '<TITLE>One</TITLE><A HREF=two.html>on</A>' >one.html
echo '<TITLE>Two</TITLE>' >two.html
expect "titles" "$(consumer/consumer one.html | tr '\n' '|')" "One|Two|"
