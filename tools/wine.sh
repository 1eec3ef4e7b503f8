#!/usr/bin/env bash
# wine.sh PROGRAM ARGUMENTS...: runs a program for Windows. Its libraries are those beside it and the compiler's.
set -euo pipefail
export WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES=mscoree,mshtml= WINEARCH=win64
compiler=/usr/lib/gcc/x86_64-w64-mingw32
paths=
for folder in "$compiler"/*-posix /usr/x86_64-w64-mingw32/lib /usr/x86_64-w64-mingw32/bin; do
    [[ ! -d $folder ]] || paths+="Z:${folder//\//\\};"
done
export WINEPATH=${paths%;}
wine=$(command -v wine64 || echo /usr/lib/wine/wine64)
exec "$wine" "$@"
