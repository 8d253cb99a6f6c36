#!/bin/sh
# Makes sure that the packages of packages.txt are installed; asks apt-get only if one is missing.
# All go in one call: Wine's 32-bit half needs both architectures at equal versions, and the security
# suite has no i386 builds, so a temporary preferences file ranks it below the main suite.
set -eu
here=$(CDPATH= cd -- "$(dirname -- "$0")" && pwd)

fail() {
    echo "setup: $*" >&2
    exit 1
}

as_root() {
    if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

wanted=$(sed 's/#.*//' "$here/packages.txt" | tr -s '[:space:]' ' ')
command -v dpkg-query >/dev/null && command -v apt-get >/dev/null ||
    fail "this is not a Debian system; needed here are:$wanted"
native=$(dpkg --print-architecture)

# Prints the wanted packages that are not installed; "name" means the native architecture.
missing_packages() {
    installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}:${Architecture}\n' |
        sed -n 's/^installed //p')
    for package in $wanted; do
        case $package in
            *:*) forms=$package ;;
            *) forms="$package:$native $package:all" ;;
        esac
        found=no
        for form in $forms; do
            case "
$installed
" in *"
$form
"*) found=yes ;; esac
        done
        [ $found = yes ] || printf '%s ' "$package"
    done
}

missing=$(missing_packages)
[ -n "$missing" ] || exit 0
[ "$native" = amd64 ] || fail "the 32-bit Windows tools need a 64-bit PC (amd64), this is $native"
[ "$(id -u)" = 0 ] || command -v sudo >/dev/null ||
    fail "missing: $missing- run this as root, or install sudo"

work=$(mktemp -d)
denied=no
cleanup() {
    [ $denied = no ] || as_root rm -f /usr/sbin/policy-rc.d
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' HUP INT TERM
log=$work/log
printf 'Package: *\nPin: release l=Debian-Security\nPin-Priority: 90\n' >"$work/preferences"
chmod 755 "$work"

try() {
    as_root env DEBIAN_FRONTEND=noninteractive "$@" >>"$log" 2>&1
}

step() {
    try "$@" && return
    tail -25 "$log" >&2
    fail "'$1 $2' failed; missing: $missing"
}

# install_missing [OPTION...]: the one call.
install_missing() {
    # shellcheck disable=SC2086 # a list of words
    try apt-get "$@" -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 \
        -y --no-install-recommends install $missing
}

echo "Installing what is missing: $missing" >&2
if ! dpkg --print-foreign-architectures | grep -qx i386; then
    step dpkg --add-architecture i386
fi
# Servers are for the tests to start; none is left running, and Postfix gets no configuration.
if [ ! -e /usr/sbin/policy-rc.d ]; then
    printf '#!/bin/sh\nexit 101\n' >"$work/policy"
    step install -m 755 "$work/policy" /usr/sbin/policy-rc.d
    denied=yes
fi
case " $missing" in *" postfix "*)
    echo 'postfix postfix/main_mailer_type select No configuration' >"$work/answers"
    step debconf-set-selections "$work/answers" ;;
esac
# A mirror in mid-update leaves the old lists in place; whether they do shows in the next step.
try apt-get -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 update || true
# A system that already runs the security suite's versions is served without the pin.
install_missing -o "Dir::Etc::Preferences=$work/preferences" || install_missing || {
    tail -25 "$log" >&2
    fail "apt-get could not install: $missing"
}
missing=$(missing_packages)
[ -z "$missing" ] || fail "still missing after the installation: $missing"
