#!/bin/sh
# wine.sh [--64] PROGRAM...: runs a Windows program, 32-bit unless told, under Wine in a prefix of the
# build folder's own. WINE_PREFIX_DIR and WINE64_PREFIX_DIR name other places for the prefixes; DISPLAY
# is set by ./run when windows are tested.
here=$(CDPATH= cd -- "$(dirname -- "$0")/.." && pwd)
export WINEDEBUG="${WINEDEBUG:--all}" WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
if [ "$1" = --64 ]; then
    shift
    export WINEPREFIX="${WINE64_PREFIX_DIR:-$here/build/wine64}" WINEARCH=win64
    # Debian puts the 64-bit loader out of the way.
    PATH=$PATH:/usr/lib/wine
    exec wine64 "$@"
fi
export WINEPREFIX="${WINE_PREFIX_DIR:-$here/build/wine}" WINEARCH=win32
exec wine "$@"
