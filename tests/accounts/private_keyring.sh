#!/bin/bash
# Runs the keychain tests against Secret Services that are never the user's own, in a
# throw-away home; works headless and as root (CI):
#   tests/accounts/private_keyring.sh build/f/tests/accounts_keychain_test [gtest flags]
# Three runs, each told by TALLY_KEYCHAIN_TEST which suite is its own:
#   NoSecretService  the session bus address points at nothing
#   PrivateKeyring   a fresh gnome-keyring in a private D-Bus session, unlocked
#   LockedKeyring    the same keyring restarted without its password
set -euo pipefail

run() {  # suite, binary, gtest flags
    TALLY_KEYCHAIN_TEST=$1 "$2" --gtest_filter="$1.*" "${@:3}" || status=$?
}

start_keyring() {  # the password; none leaves the keyring locked
    printf '%s' "$1" |
        gnome-keyring-daemon --foreground --components=secrets ${1:+--unlock} >/dev/null 2>&1 &
    daemon=$!
    for _ in $(seq 100); do
        dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
            org.freedesktop.DBus.NameHasOwner string:org.freedesktop.secrets 2>/dev/null |
            grep -q 'boolean true' && return 0
        sleep 0.05
    done
    echo "private_keyring.sh: gnome-keyring did not come up" >&2
    return 1
}

stop_keyring() {
    kill "$daemon" 2>/dev/null || true
    wait "$daemon" 2>/dev/null || true
}

status=0
if [ "${1:-}" = "--inside-session" ]; then
    start_keyring throw-away-password
    run PrivateKeyring "${@:2}"
    # An item to find behind the lock, then a restart that leaves the keyring locked.
    printf '%s' "stored-before-the-lock" |
        secret-tool store --label="Tally: locked-probe" service app.tally.Tally account locked-probe
    stop_keyring
    start_keyring ""
    run LockedKeyring "${@:2}"
    stop_keyring
    exit "$status"
fi

binary=$(realpath "$1")
scratch=$(mktemp -d "${TMPDIR:-/tmp}/tally-keyring.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch/home" "$scratch/data" "$scratch/config" "$scratch/runtime"
chmod 700 "$scratch/runtime"
export HOME="$scratch/home" XDG_DATA_HOME="$scratch/data" XDG_CONFIG_HOME="$scratch/config"
export XDG_RUNTIME_DIR="$scratch/runtime"
unset DISPLAY WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS GNOME_KEYRING_CONTROL SSH_AUTH_SOCK
DBUS_SESSION_BUS_ADDRESS="unix:path=$scratch/no-bus" run NoSecretService "$binary" "${@:2}"
dbus-run-session -- "$(realpath "$0")" --inside-session "$binary" "${@:2}" || status=$?
exit "$status"
