#!/usr/bin/env bash
# Checks the installed desktop files with the validators the desktops
# themselves trust, and that the manuals render without a warning:
#   - the launcher with desktop-file-validate;
#   - the AppStream entry with appstream-util validate-relax;
#   - the page type with shared-mime-info and GIO: a page file made by
#     formwiz is application/x-formwiz-page, other HTML stays text/html;
#   - every man page through man/groff with warnings on;
#   - the user unit for formwiz serve with systemd-analyze, where it is.
#
# Usage: check_desktop.sh PREFIX
set -euo pipefail
prefix=$1
share=$prefix/share

fail() { echo "FAIL: $*" >&2; exit 1; }
for tool in desktop-file-validate appstream-util update-mime-database gio groff; do
  command -v $tool >/dev/null || fail "$tool is missing: run scripts/bootstrap"
done

desktop=$share/applications/org.formwiz.Editor.desktop
out=$(desktop-file-validate "$desktop" 2>&1) || fail "$desktop: $out"
[ -z "$out" ] || fail "desktop-file-validate: $out"
grep -qx 'Exec=formwiz-editor %f' "$desktop" || fail "the launcher runs no editor"
[ -f "$share/icons/hicolor/scalable/apps/org.formwiz.Editor.svg" ] ||
  fail "no icon"

appstream-util validate-relax --nonet \
  "$share/metainfo/org.formwiz.Editor.metainfo.xml" || fail "metainfo"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# A MIME database of the system's types and ours alone.
mkdir -p "$work/mime/packages"
cp /usr/share/mime/packages/freedesktop.org.xml "$share/mime/packages/formwiz.xml" \
  "$work/mime/packages/"
XDG_DATA_HOME=$work XDG_DATA_DIRS=$work update-mime-database "$work/mime" 2>&1 | { ! grep .; } || fail "update-mime-database"
"$prefix/bin/formwiz" page new "$work/page.html"
printf '<!DOCTYPE html>\n<html><head><title>x</title></head><body></body></html>\n' \
  > "$work/other.html"
type_of() {
  XDG_DATA_HOME=$work XDG_DATA_DIRS=$work gio info -a standard::content-type "$1" |
    sed -n 's/^ *standard::content-type: //p'
}
[ "$(type_of "$work/page.html")" = application/x-formwiz-page ] ||
  fail "a page file is $(type_of "$work/page.html")"
[ "$(type_of "$work/other.html")" = text/html ] ||
  fail "other HTML is $(type_of "$work/other.html")"

for page in "$share"/man/man1/*.1.gz; do
  warnings=$(zcat "$page" | groff -man -Tutf8 -ww -z 2>&1)
  [ -z "$warnings" ] || fail "$page: $warnings"
  # The page names its program, and nothing the program said on standard
  # error got into it.
  program=$(basename "$page" .1.gz)
  MANWIDTH=80 man -l "$page" 2>/dev/null | grep -A1 '^NAME' | grep -q "^ *$program - " ||
    fail "$page: its NAME is not $program's"
done
zcat "$share/man/man1/formwiz.1.gz" | grep -q '^\.SS "formwiz page insert' ||
  fail "formwiz.1 has no section for page insert"
# The user unit: runs the installed formwiz serve, and systemd takes it.
unit=$prefix/lib/systemd/user/formwiz-serve.service
grep -q '^ExecStart=/.*/bin/formwiz serve ' "$unit" || fail "the unit runs no formwiz serve"
if command -v systemd-analyze >/dev/null; then
  # Checked where it landed: its program as installed under this prefix.
  sed "s|^ExecStart=[^ ]*/bin/formwiz |ExecStart=$prefix/bin/formwiz |" "$unit" \
    > "$work/formwiz-serve.service"
  MANPATH=$share/man systemd-analyze verify "$work/formwiz-serve.service" ||
    fail "systemd-analyze verify $unit"
else
  echo "note: no systemd-analyze here; the unit's syntax is not checked"
fi
echo "desktop files, page type, manuals and the user unit are valid"
