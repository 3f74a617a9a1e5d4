#!/usr/bin/env bash
# Removes what `cmake --install <build>` installed, as listed in <build>/install_manifest.txt,
# and Tally's own documentation directory once it is empty. Shared directories
# (share/applications, the icon theme, ...) stay, even when empty: other programs own them too.
set -euo pipefail
build=${1:?usage: uninstall.sh <build directory>}
manifest=$build/install_manifest.txt
if [ ! -f "$manifest" ]; then
  echo "uninstall: $manifest is missing: nothing was installed from $build" >&2
  exit 1
fi
# CMake ends the manifest without a newline; the last name counts too.
while IFS= read -r file || [ -n "$file" ]; do
  [ -n "$file" ] || continue
  rm -f -- "$file"
  case $file in
    */doc/tally/*) rmdir --ignore-fail-on-non-empty -- "$(dirname -- "$file")" ;;
  esac
done < "$manifest"
