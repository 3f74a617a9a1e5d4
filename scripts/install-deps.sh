#!/usr/bin/env bash
# Installs every Debian 12 package that Tally's build, tests, benchmark, desktop shell and
# packaging need. Safe to run again: it asks apt only for what is missing, runs
# `apt-get update` at most once, and prints nothing when everything is already there.
set -euo pipefail

packages=(
  # build
  cmake ninja-build g++ make pkg-config git ca-certificates clang-format
  # UsageKit
  libsimdjson-dev libcurl4-openssl-dev libsqlite3-dev libsecret-1-dev libzstd-dev
  # tests and benchmark
  libgtest-dev libgmock-dev libcpp-httplib-dev libbenchmark-dev
  dbus dbus-x11 gnome-keyring libsecret-tools
  # desktop shell and its tests
  qt6-base-dev qt6-charts-dev qt6-svg-dev libqt6svg6 libqt6opengl6-dev libxkbcommon-dev
  qt6-qpa-plugins xvfb xauth libglib2.0-bin fonts-dejavu-core
  # packaging: the .deb's dependencies, and what scripts/check-packaging.sh validates with
  dpkg-dev desktop-file-utils appstream man-db groff-base zsh
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
  sudo=()
elif command -v sudo >/dev/null 2>&1; then
  sudo=(sudo)
else
  echo "install-deps: these packages are missing and there is no sudo: ${missing[*]}" >&2
  exit 1
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
