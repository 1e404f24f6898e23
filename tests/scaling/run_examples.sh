#!/usr/bin/env bash
# Runs the examples of docs/scaling-out.md on twenty tiles, one of which fails at first:
# run_examples.sh parallel|slurm SOURCE_FOLDER BUILD_FOLDER
set -euo pipefail
way=$1 source=$2 build=$3
export PATH=$build/tools:$build/viewer:$PATH
scratch=$(mktemp -d)
slurm_processes=()
. "$source/tests/scaling/slurm_here.sh"
trap 'stop_slurm; rm -rf "$scratch"' EXIT
cd "$scratch"

# Each block of the page begins with the name of its file.
awk '/^```bash$/ { getline; file = $2; print "#!/bin/bash" >file; next } /^```$/ { file = "" } file { print >file }' \
    "$source/docs/scaling-out.md"
chmod +x ./*.sh

if [ "$way" = slurm ]; then
    start_slurm || exit $?
fi
mkdir tiles
for tile in $(seq -w 20); do
    brx sample "tiles/tile_$tile.las" --points 2000 --seed "1$tile" --quiet
done
mv tiles/tile_07.las good.las
echo "no tile" >tiles/tile_07.las

if ./build-by-$way.sh; then echo "nobody tells that a tile failed" >&2; exit 1; fi
[ "$(ls stores/*.brx | wc -l)" = 19 ]
touch -d yesterday stores/*.brx
mv good.las tiles/tile_07.las
./build-by-$way.sh
[ "$(ls stores/*.brx | wc -l)" = 20 ]
[ "$(find stores -name '*.brx' -mmin -60)" = stores/tile_07.brx ] # the others were not built again
for store in stores/*.brx; do brx verify "$store"; done
./look.sh | grep -q "^points 40000$"
