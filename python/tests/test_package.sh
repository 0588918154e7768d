#!/usr/bin/env bash
# Builds the Debian package, unpacks it into a scratch root with dpkg -x and
# runs what it installed from there: the command, its manual page and the
# Python module. Usage: test_package.sh <build dir> <source dir>
set -euo pipefail
build=$1 src=$2
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
(cd "$build" && cpack -G DEB -B "$root/out" >/dev/null)
deb=$(ls "$root"/out/*.deb)
dpkg -x "$deb" "$root/fs"
export -n DOVRA_JSON_BUILTINS
unset DOVRA_JSON_BUILTINS
for f in usr/bin/dovra-json usr/share/man/man1/dovra-json.1 usr/include/ixtal/host.hpp \
         usr/lib/python3/dist-packages/dovra_json/__init__.py; do
  [ -e "$root/fs/$f" ] || { echo "missing in the package: $f"; exit 1; }
done
for name in libdovra_json_builtins.so libixtal.so ixtalConfig.cmake; do
  [ -n "$(find "$root/fs/usr/lib" -name "$name")" ] || { echo "missing in the package: $name"; exit 1; }
done
# Relocated: only $ORIGIN-relative RPATHs can find the libraries.
out=$("$root/fs/usr/bin/dovra-json" decode --text '[1,2]')
[[ $out == "2x1 double"* ]] || { echo "dovra-json said: $out"; exit 1; }
# From the scratch root: -c puts the working directory first on the path.
cd "$root"
PYTHONPATH="$root/fs/usr/lib/python3/dist-packages" /usr/bin/python3 -c '
import sys, dovra_json
assert dovra_json.__file__.startswith(sys.argv[1]), dovra_json.__file__
value = dovra_json.decode(open(sys.argv[2]).read())
assert value.shape == (1, 2) and value[0, 1]["name"] == "Harbour Gate", value
' "$root/fs" "$src/examples/stations.json"
man -l "$root/fs/usr/share/man/man1/dovra-json.1" >/dev/null 2>&1 || groff -man -Tutf8 "$root/fs/usr/share/man/man1/dovra-json.1" >/dev/null
echo "package ok: $(basename "$deb")"
