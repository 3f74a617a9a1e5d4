#!/bin/bash
# Runs the keychain tests against a real Secret Service that is never the user's own: a
# private D-Bus session (dbus-run-session) with a fresh gnome-keyring in a temporary home,
# unlocked with a throw-away password. Works headless and as root (CI).
#
#   tests/accounts/private_keyring.sh build/c/tests/accounts_keychain_test [gtest flags]
#
# Three runs of the binary, each told by TALLY_KEYCHAIN_TEST which suite is its own:
#   no-bus   the session bus address points at nothing
#   private  an unlocked keyring
#   locked   the same keyring after a restart without the password
set -euo pipefail

wait_for_secret_service() {
    for _ in $(seq 100); do
        if dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
            org.freedesktop.DBus.NameHasOwner string:org.freedesktop.secrets 2>/dev/null |
            grep -q 'boolean true'; then
            return 0
        fi
        sleep 0.05
    done
    echo "private_keyring.sh: gnome-keyring did not come up" >&2
    return 1
}

stop_daemon() {
    kill "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}

if [ "${1:-}" = "--inside-session" ]; then
    shift
    binary=$1
    shift
    status=0

    printf '%s' "throw-away-password" |
        gnome-keyring-daemon --foreground --components=secrets --unlock >/dev/null 2>&1 &
    daemon=$!
    wait_for_secret_service
    TALLY_KEYCHAIN_TEST=private "$binary" --gtest_filter='PrivateKeyring.*' "$@" || status=$?

    # An item to find behind the lock, then a restart that leaves the keyring locked.
    printf '%s' "stored-before-the-lock" |
        secret-tool store --label="Tally: locked-probe" service app.tally.Tally account locked-probe
    stop_daemon "$daemon"
    gnome-keyring-daemon --foreground --components=secrets >/dev/null 2>&1 &
    daemon=$!
    wait_for_secret_service
    TALLY_KEYCHAIN_TEST=locked "$binary" --gtest_filter='LockedKeyring.*' "$@" || status=$?
    stop_daemon "$daemon"
    exit "$status"
fi

binary=$(realpath "$1")
shift
scratch=$(mktemp -d "${TMPDIR:-/tmp}/tally-keyring.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch/home" "$scratch/data" "$scratch/config" "$scratch/runtime"
chmod 700 "$scratch/runtime"
export HOME="$scratch/home" XDG_DATA_HOME="$scratch/data" XDG_CONFIG_HOME="$scratch/config"
export XDG_RUNTIME_DIR="$scratch/runtime"
unset DISPLAY WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS GNOME_KEYRING_CONTROL SSH_AUTH_SOCK

status=0
DBUS_SESSION_BUS_ADDRESS="unix:path=$scratch/no-bus" TALLY_KEYCHAIN_TEST=no-bus \
    "$binary" --gtest_filter='NoSecretService.*' "$@" || status=$?
dbus-run-session -- "$(realpath "$0")" --inside-session "$binary" "$@" || status=$?
exit "$status"
