#!/bin/sh
# Runs one Windows program of the cross build under Wine: the CMAKE_CROSSCOMPILING_EMULATOR of
# mingw-w64-x86_64.cmake, used by CTest and by GoogleTest's test discovery.
#
#   wine-run.sh PROGRAM.exe [ARGUMENT...]
#
# - The Wine prefix is private to the build folder (the nearest folder above the program that
#   holds CMakeCache.txt, then wine-prefix/): the tests write to its registry and its temporary
#   folder and to nobody else's. It is made on first use.
# - The program's output goes to files first, not straight to our caller. Wine's helper processes
#   (wineserver, services, device drivers) started by a call inherit that call's descriptors and
#   outlive it; a caller reading a pipe (CTest, execute_process) would wait for them. The output
#   is then passed on with the Windows line ends (CR LF) turned into LF, which GoogleTest's test
#   discovery needs to read the test names.
# - Arguments are passed unchanged: Wine maps absolute Unix paths through its Z: drive.
set -eu

if [ $# -lt 1 ]; then
    echo "usage: $0 PROGRAM.exe [ARGUMENT...]" >&2
    exit 2
fi

build=$(cd "$(dirname "$1")" && pwd)
while [ ! -f "$build/CMakeCache.txt" ]; do
    if [ "$build" = / ]; then
        echo "wine-run.sh: $1 is not inside a CMake build folder" >&2
        exit 2
    fi
    build=$(dirname "$build")
done

export WINEPREFIX="$build/wine-prefix"
export WINEARCH=win64
export WINEDEBUG=-all
# Never offer to install Mono or Gecko; no test needs .NET or HTML.
export WINEDLLOVERRIDES="mscoree,mshtml="
# No window is ever shown: no display, so that a desktop session is not disturbed either.
unset DISPLAY WAYLAND_DISPLAY

# The prefix is made once, by whichever program comes first when several start at once. The
# marker is ours: a running server writes the registry files only when it stops. flock -o keeps
# the lock away from the Wine processes that outlive wineboot.
ready="$WINEPREFIX/.ostrel-prefix-ready"
if [ ! -f "$ready" ]; then
    mkdir -p "$WINEPREFIX"
    flock -o "$build/wine-prefix.lock" sh -c \
        '[ -f "$1" ] || { wine wineboot --init && touch "$1"; }' sh "$ready" \
        </dev/null >/dev/null 2>&1
fi

output=$(mktemp "${TMPDIR:-/tmp}/wine-run.XXXXXX")
errors=$(mktemp "${TMPDIR:-/tmp}/wine-run.XXXXXX")
trap 'rm -f "$output" "$errors"' EXIT

status=0
wine "$@" </dev/null >"$output" 2>"$errors" || status=$?

sed 's/\r$//' "$output"
sed 's/\r$//' "$errors" >&2
exit "$status"
