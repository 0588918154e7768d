#!/usr/bin/env bash
# The package as a Python user installs it: the README's pip commands, run
# in a clean copy of the tree, install it into a fresh venv; python -m build
# makes a wheel of it, which installs into a second venv. From a directory
# outside the tree, with no PYTHONPATH and no DOVRA_JSON_BUILTINS, each venv
# imports it, decodes, encodes, reports the CMake project's version, loads
# the libraries from the package itself, and passes mypy --strict with the
# installed stubs. Usage: test_pip_install.sh SOURCE_DIR VERSION
set -euo pipefail
src=$1 version=$2
work=$(mktemp -d /tmp/dovra-pip-test-XXXXXX)
trap 'rm -rf "$work"' EXIT
unset PYTHONPATH DOVRA_JSON_BUILTINS
python=/usr/bin/python3
fail() { echo "$*" >&2; exit 1; }

# The tree as a fresh checkout has it (with uncommitted changes), without
# build directories and whatever git ignores.
tree=$work/tree
mkdir "$tree"
if git -C "$src" rev-parse --git-dir >/dev/null 2>&1; then
  (cd "$src" && git ls-files -z --cached --others --exclude-standard | tar --null -T - --ignore-failed-read -cf - 2>/dev/null) |
    tar -C "$tree" -xf -
else
  tar -C "$src" --exclude='./build*' --exclude=./.git -cf - . | tar -C "$tree" -xf -
fi

# The README's pip commands, as written; one CMake build, of the package's
# three binaries only.
awk '/^pip installs it/ {s=1} s && /^```sh$/ {c=1; next} c && /^```$/ {exit} c' "$src/README.md" >"$work/readme.sh"
grep -q "pip install" "$work/readme.sh" || fail "no pip commands in the README"
(cd "$tree" && CMAKE_BUILD_PARALLEL_LEVEL=2 bash -e "$work/readme.sh") >"$work/pip.log" 2>&1 || {
  tail -40 "$work/pip.log"; fail "the README's pip commands failed"; }
[[ $(tail -1 "$work/pip.log") == *" $version" ]] || fail "the README's check printed: $(tail -1 "$work/pip.log")"

# The same interpreter finds the build it already made: the wheel needs no
# second compilation.
(cd "$tree" && venv/bin/python -m build --wheel --no-isolation --outdir "$work/dist") >"$work/build.log" 2>&1 || {
  tail -40 "$work/build.log"; fail "python -m build failed"; }
tag=$($python -c 'import sys, sysconfig; v = "cp%d%d" % sys.version_info[:2]; print(f"{v}-{v}-" + sysconfig.get_platform().replace("-", "_").replace(".", "_"))')
wheel=$work/dist/dovra_json-$version-$tag.whl
[ -f "$wheel" ] || fail "expected $(basename "$wheel"), made: $(ls "$work/dist")"
[[ $tag == *-linux_* ]] || fail "the wheel claims a platform it was not built for: $tag"

# Exactly the package, and its binaries find each other through $ORIGIN.
mkdir "$work/unpacked"
$python - "$wheel" "$work/unpacked" <<'EOF'
import sys, sysconfig, zipfile
with zipfile.ZipFile(sys.argv[1]) as wheel:
    names = {n for n in wheel.namelist() if ".dist-info/" not in n}
    wheel.extractall(sys.argv[2])
expected = {"dovra_json/" + n for n in ("__init__.py", "__init__.pyi", "py.typed", "_version.py",
            "_native" + sysconfig.get_config_var("EXT_SUFFIX"), "libixtal.so", "libdovra_json_builtins.so")}
assert names == expected, sorted(names ^ expected)
EOF
for lib in "$work"/unpacked/dovra_json/*.so; do
  runpath=$(readelf -d "$lib" | sed -n 's/.*Library r[a-z]*path: \[\(.*\)\]/\1/p')
  case $(basename "$lib") in
    libixtal.so) [ -z "$runpath" ] || fail "libixtal.so has a RUNPATH: $runpath" ;;
    *) [ "$runpath" = '$ORIGIN' ] || fail "$(basename "$lib") has RUNPATH [$runpath], not [\$ORIGIN]" ;;
  esac
done

$python -m venv --system-site-packages "$work/venv2"
"$work/venv2/bin/python" -m pip install --no-index --quiet "$wheel" >"$work/wheel.log" 2>&1 || {
  cat "$work/wheel.log"; fail "pip could not install the wheel"; }

mkdir "$work/elsewhere"
cp "$tree/python/tests/typed_client.py" "$work/elsewhere/"
cd "$work/elsewhere"
for venv in "$tree/venv" "$work/venv2"; do
  "$venv/bin/python" - "$version" <<'EOF' || fail "the package installed in $venv does not work"
import importlib.metadata, os, sys
import dovra_json
package = os.path.dirname(os.path.realpath(dovra_json.__file__))
assert package.startswith(os.path.realpath(sys.prefix)), (package, sys.prefix)
assert dovra_json.__version__ == sys.argv[1] == importlib.metadata.version("dovra-json"), dovra_json.__version__
value = dovra_json.decode('{"tntype": "int16", "tnsize": [1, 2], "tndata": [3, 4]}')
assert value.dtype.name == "int16" and value.tolist() == [[3, 4]], value
assert dovra_json.encode(value) == '{"tndata":[3,4],"tnsize":[1,2],"tntype":"int16"}', dovra_json.encode(value)
assert dovra_json.decode_response('{"lhs": ["a"]}') == ["a"]
try:
    dovra_json.decode("[1, 2,")
except dovra_json.Error as error:
    assert error.identifier == "DOVRA:IXTAL:JSON:DecodeIncomplete", error.identifier
# Nothing came from the build tree or the system: all three from the package.
maps = open("/proc/self/maps").read()
for name in ("/_native.", "/libixtal.so", "/libdovra_json_builtins.so"):
    paths = {line.split()[-1] for line in maps.splitlines() if name in line}
    assert paths and all(os.path.dirname(p) == package for p in paths), (name, paths)
EOF
done
"$tree/venv/bin/python" -m mypy --strict --no-error-summary --cache-dir "$work/mypy-cache" typed_client.py ||
  fail "mypy --strict rejects a typed client of the installed package"
echo "pip install, wheel $(basename "$wheel"): ok"
