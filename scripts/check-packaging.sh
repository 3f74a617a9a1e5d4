#!/usr/bin/env bash
# What a packager checks before shipping Tally, on an already built tree (default
# build/test): the desktop entry and the AppStream metadata validate, the manual page
# renders without a warning, the completions parse, the executable, the AppStream releases
# and the Debian changelog name the same version, and an install into an empty prefix holds
# exactly the files in scripts/installed-files.txt and leaves none behind once uninstalled.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/test}
failed=0
fail() { echo "check-packaging: $*" >&2; failed=1; }

desktop-file-validate data/app.tally.Tally.desktop || fail "the desktop entry does not validate"
appstreamcli validate --no-net --no-color data/app.tally.Tally.metainfo.xml >/dev/null ||
  fail "the AppStream metadata does not validate"

# man(1) and groff print warnings on standard error and still succeed.
warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l "$build/data/tally.1" 2>&1 >/dev/null)
[ -z "$warnings" ] || fail "the manual page renders with warnings: $warnings"

bash -n data/completions/tally.bash || fail "the bash completion does not parse"
zsh -n data/completions/_tally || fail "the zsh completion does not parse"

version=$("$build/Tally/tally" --version | cut -d' ' -f2)
released=$(grep -o -m1 '<release version="[^"]*"' data/app.tally.Tally.metainfo.xml | cut -d'"' -f2)
changelog=$(head -1 data/debian/changelog | sed -n 's/^tally (\([^)]*\)).*/\1/p')
[ "$version" = "$released" ] ||
  fail "tally is $version but the newest AppStream release is $released"
[ "$version" = "$changelog" ] ||
  fail "tally is $version but the Debian changelog starts at $changelog"

# --prefix reroutes the whole install. The manifest of a real install from this tree
# (`make install`) is kept aside meanwhile, so that `make uninstall` still finds it.
prefix=$(mktemp -d)
manifest=$build/install_manifest.txt
[ -f "$manifest" ] && mv "$manifest" "$prefix.manifest"
trap 'rm -rf "$prefix"; [ -f "$prefix.manifest" ] && mv "$prefix.manifest" "$manifest"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
if ! diff -u scripts/installed-files.txt <(cd "$prefix" && find . ! -type d | sed 's|^\./||' | sort); then
  fail "the install differs from scripts/installed-files.txt (- expected, + installed)"
fi
bash scripts/uninstall.sh "$build"
left=$(find "$prefix" ! -type d)
[ -z "$left" ] || fail "uninstalling left files behind: $left"

[ $failed -eq 0 ] && echo "check-packaging: all clean"
exit $failed
