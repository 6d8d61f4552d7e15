#!/usr/bin/env bash
# `cmake --install` of the finished build into a DESTDIR, under a prefix
# of its own (/opt/formwiz), stripped as packages are; then the installed
# programs, desktop files and manuals are checked where they landed.
#
# Usage: install_and_check.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1 source_dir=$2
here=$(cd "$(dirname "$0")" && pwd)

dest=$build/packaging-test/destdir
rm -rf "$dest"
DESTDIR=$dest cmake --install "$build" --prefix /opt/formwiz --strip > /dev/null
"$here/check_installed.sh" "$dest/opt/formwiz" "$source_dir" "$build"
"$here/check_desktop.sh" "$dest/opt/formwiz"
