#!/bin/sh
# Runs a 32-bit Windows program under Wine in a prefix of the build folder's own.
# WINE_PREFIX_DIR names another place for the prefix; DISPLAY is set by ./run when windows are tested.
here=$(CDPATH= cd -- "$(dirname -- "$0")/.." && pwd)
export WINEPREFIX="${WINE_PREFIX_DIR:-$here/build/wine}" WINEARCH=win32 WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
exec wine "$@"
