#!/usr/bin/env bash
# Runs an installed formwiz as a person would, from an empty folder, with
# nothing of the source or build tree in reach: the programs must find their
# orbs from where they were installed, and none may hold a path of the tree
# they were built in.
#
# Usage: check_installed.sh PREFIX SOURCE_DIR BUILD_DIR
#   PREFIX      where bin/ and share/ were installed (under a DESTDIR, or
#               unpacked from a package)
#   SOURCE_DIR, BUILD_DIR  the paths no installed program may contain;
#               SOURCE_DIR also gives the example script the test replays
set -euo pipefail
prefix=$1 source_dir=$2 build_dir=$3

fail() { echo "FAIL: $*" >&2; exit 1; }

for program in formwiz formwiz-mail formwiz-editor; do
  binary=$prefix/bin/$program
  [ -x "$binary" ] || fail "$binary is not installed"
  if strings -a "$binary" | grep -F -e "$source_dir" -e "$build_dir"; then
    fail "$program holds a path of the tree it was built in (above)"
  fi
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
# Nothing of the build tree on the path or in the environment.
export PATH=/usr/bin:/bin
unset FORMWIZ_BIN FORMWIZ_SOURCE_DIR
export HOME=$work XDG_DATA_HOME=$work/data

fw=$prefix/bin/formwiz
orb=$prefix/share/formwiz/orbs/form/form.qlo
[ -f "$orb" ] || fail "the bundled orb is not at $orb"

"$fw" --version | grep -qx "formwiz [0-9][0-9.]*" || fail "formwiz --version"
"$prefix/bin/formwiz-mail" --version | grep -q "^formwiz-mail " ||
  fail "formwiz-mail --version"

# assemble on the installed orb: a form with the hidden field order.
"$fw" assemble "$orb" > form.html
grep -q 'name="qln_SortOrder"' form.html || fail "assemble made no form"

# A script whose orb is the installed one (the example, pointed there).
sed "s|\"implFile\": \"[^\"]*\"|\"implFile\": \"$orb\"|" \
  "$source_dir/examples/new-form.json" > new-form.json
"$fw" script new-form.json --html > transcript.txt ||
  fail "formwiz script exited $?"
grep -q 'sales@example.org' transcript.txt || fail "the script's form lacks its address"

# page new/insert with the bundled orb by name: found from the program's
# own location, not from any tree.
"$fw" page new page.html
"$fw" page add-text page.html "Ask us for our catalog."
"$fw" page insert page.html --orb form --script new-form.json > /dev/null 2>&1 ||
  fail "page insert of the bundled orb"
"$fw" page list page.html > blocks.txt
grep -q 'object' blocks.txt || fail "the page holds no form: $(cat blocks.txt)"
"$fw" page export page.html > exported.html
grep -q 'qln_EmailTo' exported.html || fail "the exported page has no form"

# The editor, offscreen, on that page: it opens it, lists the installed
# orbs and saves a picture of its window.
QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR=$work \
  "$prefix/bin/formwiz-editor" page.html --grab window.png 2> editor.err ||
  fail "formwiz-editor --grab: $(cat editor.err)"
[ "$(head -c 4 window.png | tail -c 3)" = PNG ] || fail "no PNG from --grab"
echo "installed formwiz works from $prefix"
