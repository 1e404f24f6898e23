#!/usr/bin/env bash
# Uses what was installed as a user would: run_installed.sh <prefix> <folder with the built examples>
set -euo pipefail
prefix=$1 examples=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

for tool in brx brxview; do
    "$prefix/bin/$tool" --help | grep "$tool" >/dev/null
    "$prefix/bin/$tool" --version | grep -E '[0-9]+\.[0-9]+\.[0-9]+' >/dev/null
done
"$prefix/bin/brx" sample "$scratch/survey.las" --points 20000 --seed 7
"$prefix/bin/brx" build "$scratch/survey.las" -o "$scratch/survey.brx"
"$prefix/bin/brx" verify "$scratch/survey.brx"

# The examples open a window: on a virtual display, for a few frames. The composite one draws on demand: it ends
# because the library asks for frames while the cells come in.
for example in minimal composite; do
    OSG_RUN_FRAME_COUNT=2 timeout 100 xvfb-run -a "$examples/$example/$example" "$scratch/survey.brx"
    if "$examples/$example/$example" "$scratch/missing.brx" 2>"$scratch/message"; then
        echo "the example $example opened a store that is not there" >&2
        exit 1
    fi
    grep -q "missing.brx" "$scratch/message"
done

# A host that picks tells the point in the middle of its first complete picture.
OSG_RUN_FRAME_COUNT=200 timeout 100 xvfb-run -a "$examples/host/host" "$scratch/survey.brx" | tee "$scratch/picked"
grep -qE '^picked [0-9.]+ [0-9.]+ [0-9.]+, class [0-9]+' "$scratch/picked"

# A host with a window of another library's, where that is installed, writes a picture that is not empty.
if [ -e "$examples/glfw_host/glfw_host" ]; then
    timeout 100 xvfb-run -a "$examples/glfw_host/glfw_host" "$scratch/survey.brx" "$scratch/picture.png"
    [ "$(stat -c %s "$scratch/picture.png")" -gt 20000 ]
fi

# A host without a window reads points.
"$examples/read_cell/read_cell" "$scratch/survey.brx" | tee "$scratch/points"
grep -qE '^[1-9][0-9]* of 20000 points' "$scratch/points"

# A host without a window edits two stores as one; both have what it saved.
"$prefix/bin/brx" sample "$scratch/second.las" --points 20000 --seed 8
"$prefix/bin/brx" build "$scratch/second.las" -o "$scratch/second.brx"
"$examples/edit_session/edit_session" "$scratch/survey.brx" "$scratch/second.brx" | tee "$scratch/edits"
[ "$(grep -cE '^(classify|undo classify|redo classify|save): [1-9][0-9]* points' "$scratch/edits")" = 4 ]
for store in survey second; do
    "$prefix/bin/brx" verify "$scratch/$store.brx"
    "$prefix/bin/brx" history "$scratch/$store.brx" | grep "example.*classify" >/dev/null
done

# A host without OpenSceneGraph; the package says what is missing where it was not asked to fail.
"$examples/stores/stores" "$scratch/survey.brx" | grep -q "highest point at [0-9].*, 0 hidden, "
if PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags vel_octree_brx | grep -q OpenThreads; then exit 1; fi
mkdir "$scratch/moved" && cp -r "$prefix" "$scratch/moved/away"
PKG_CONFIG_PATH="$scratch/moved/away/lib/pkgconfig" pkg-config --variable=libdir vel_osgdb_brx | grep -q "^$scratch/moved/away/lib"

# Any OSG program opens a store through the installed plugin.
plugins=$(find "$prefix" -name 'osgdb_brx.so' -printf '%h\n')
OSG_LIBRARY_PATH="$plugins" LD_LIBRARY_PATH="$prefix/lib" OSG_RUN_FRAME_COUNT=5 \
    xvfb-run -a osgviewer --window 0 0 320 240 "$scratch/survey.brx" 2>&1 | tee "$scratch/log"
! grep -qi "could not find\|unable to" "$scratch/log"
echo "installed tools, examples and plugin run"
