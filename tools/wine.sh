#!/usr/bin/env bash
# wine.sh BITS PROGRAM ARGUMENT...: runs a program for Windows of 32 or 64 bits. Its libraries are those beside it and
# the compiler's, and GNU libiconv where that is. What need_wine of tools/setup.sh sets up is used.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bits=$1
shift
export WINEPREFIX=$root/build/wine/$bits WINEARCH=win$bits WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES=mscoree,mshtml=
mkdir -p "$root/build/wine"

processor=x86_64
[[ $bits -eq 64 ]] || processor=i686
paths=
for folder in /usr/lib/gcc/$processor-w64-mingw32/*-posix /usr/$processor-w64-mingw32/{lib,bin}; do
    [[ ! -d $folder ]] || paths+="Z:${folder//\//\\};"
done
libiconv=$root/build/foreign/libiconv/bin
[[ ! -d $libiconv ]] || paths+="Z:${libiconv//\//\\};"
export WINEPATH=$paths${WINEPATH:-}

unpacked=$root/build/foreign/i386/usr/lib
if [[ $bits -eq 64 ]]; then
    wine=$(command -v wine64 || echo /usr/lib/wine/wine64)
elif [[ -e $unpacked/wine/wine ]]; then
    libraries=$unpacked/i386-linux-gnu
    export LD_LIBRARY_PATH=$libraries:$libraries/wine WINEDLLPATH=$libraries/wine
    export WINESERVER=$unpacked/wine/wineserver32 WINELOADER=$unpacked/wine/wine
    wine=$WINELOADER
else
    wine=$(command -v wine || echo /usr/lib/wine/wine)
fi
# Wine's server ends some seconds after its last program, and resets the connection of one that starts just then: it is
# told to wait longer. With it come programs of the system's, which keep the first one's output open as long as they run:
# that is one whose output nobody waits for.
server=${WINESERVER:-/usr/lib/wine/wineserver$bits}
[[ -x $server ]] || server=$(command -v wineserver || true)
if [[ -n $server ]]; then
    exec 9>"$root/build/wine/$bits.lock"
    flock 9
    if "$server" -p120 9>&- </dev/null >/dev/null 2>&1; then # it was not there
        timeout 120 "$wine" wineboot 9>&- </dev/null >/dev/null 2>&1 || true
    fi
    exec 9>&-
fi
exec "$wine" "$@"
