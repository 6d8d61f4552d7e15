#!/usr/bin/env bash
# Makes the Debian packages from the finished build (cpack only), has
# lintian check them (no error allowed; its warnings are printed), unpacks
# them into a throw-away root and runs what they installed there, as
# check_installed.sh does, and the host example built against them. Skips (status 77) where dpkg-deb or
# lintian are missing.
#
# Usage: check_deb.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1 source_dir=$2
here=$(cd "$(dirname "$0")" && pwd)

for tool in cpack dpkg-deb dpkg-shlibdeps lintian; do
  command -v $tool >/dev/null || { echo "SKIP: $tool is missing"; exit 77; }
done
fail() { echo "FAIL: $*" >&2; exit 1; }

out=$build/packaging-test/deb
rm -rf "$out"
mkdir -p "$out"
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$out" > "$out/cpack.log" 2>&1 ||
  { cat "$out/cpack.log"; fail "cpack"; }
version=$(sed -n 's/^set(CPACK_PACKAGE_VERSION "\(.*\)")$/\1/p' "$build/CPackConfig.cmake")
arch=$(dpkg --print-architecture)
deb=$out/formwiz_${version}_${arch}.deb
[ -f "$deb" ] || { ls "$out"; fail "no $deb"; }

# Dependencies from dpkg-shlibdeps: the C library and the libraries linked.
depends=$(dpkg-deb -f "$deb" Depends)
for lib in libc6 libexpat1 libqt6widgets6 libsqlite3-0 libgmime-3.0-0; do
  [[ "$depends" == *"$lib "* || "$depends" == *"$lib," ]] ||
    fail "Depends lacks $lib: $depends"
done

# lintian: errors fail, warnings are shown. Running as root needs a flag.
lintian_flags=(--tag-display-limit 0)
[ "$(id -u)" -ne 0 ] || lintian_flags+=(--allow-root)
lintian "${lintian_flags[@]}" "$out"/*.deb > "$out/lintian.log" 2>&1 || true
cat "$out/lintian.log"
if grep -q '^E: ' "$out/lintian.log"; then fail "lintian reported errors"; fi

root=$out/root
for package in "$out"/*.deb; do dpkg-deb -x "$package" "$root"; done
"$here/check_installed.sh" "$root/usr" "$source_dir" "$build"

# formwiz-dev and libformwiz0 as unpacked: the host example finds the
# library through the CMake package alone, and runs.
cmake -S "$source_dir/examples/host" -B "$out/host" -G Ninja \
  -DCMAKE_PREFIX_PATH="$root/usr" > "$out/host.log" 2>&1 &&
  cmake --build "$out/host" >> "$out/host.log" 2>&1 ||
  { cat "$out/host.log"; fail "the host example against the packages"; }
"$out/host/formwiz-host-example" > /dev/null || fail "the host example exited $?"
echo "the packages install and work: $(cd "$out" && ls ./*.deb)"
