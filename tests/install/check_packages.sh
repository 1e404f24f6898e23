#!/usr/bin/env bash
# check_packages.sh <folder with .deb files> <mirror>: installs them in a clean Debian 12 root, uses them as a new user would,
# takes them away and sees that nothing is left. Needs root.
set -euo pipefail
folder=$(realpath "$1") mirror=$2
source=$(realpath "$(dirname "$0")/../..")
[ "$(id -u)" -eq 0 ] || { echo "package: the clean root needs root's rights; run it as root" >&2; exit 1; }

base=${XDG_CACHE_HOME:-$HOME/.cache}/velbrx/bookworm
root=$(mktemp -d)
leave() {
    umount "$root/proc" 2>/dev/null || true
    rm -rf --one-file-system "$root"
}
trap leave EXIT
if [ ! -e "$base.tar" ]; then
    mkdir -p "$(dirname "$base")"
    debootstrap --variant=minbase bookworm "$root" "$mirror" >&2
    tar -C "$root" -cf "$base.tar.part" . && mv "$base.tar.part" "$base.tar"
else
    tar -C "$root" -xf "$base.tar"
fi
chmod 755 "$root" # users other than root enter it too: apt's and man's
mount -t proc proc "$root/proc"
cp /etc/resolv.conf "$root/etc/"
mkdir "$root/packages"
cp "$folder"/*.deb "$root/packages/"
cp -r "$source/examples" "$root/examples"

inside() { chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 "$@"; }
list() { inside find /usr /etc /opt -not -type d | sort; }
step() { echo "package: $*" >&2; }

inside apt-get update -qq
step "a library without OpenSceneGraph"
inside apt-get install -y -qq --no-install-recommends cmake g++ make pkg-config man-db >/dev/null
list >"$root/before"
inside apt-get install -y -qq --no-install-recommends $(cd "$root" && ls packages/libvelbrx[0-9]*.deb packages/libvelbrx-dev*.deb | sed 's|^|./|') >/dev/null
inside sh -ec 'cmake -S /examples/stores -B /tmp/stores >/dev/null; cmake --build /tmp/stores >/dev/null'
inside sh -ec 'c++ -std=c++17 /examples/stores/main.cpp -o /tmp/by-pkg-config $(pkg-config --cflags --libs vel_octree_brx)'
inside sh -ec 'cmake -S /examples/minimal -B /tmp/minimal 2>/tmp/message && exit 1; grep -q "libopenscenegraph-dev" /tmp/message'

step "programs, plugin and pages"
inside sh -c 'apt-get install -y -qq ./packages/*.deb libopenscenegraph-dev libgl-dev' >/dev/null
inside sh -ec 'cd /tmp
    brx --version; brxview --version
    brx sample survey.las --points 100000 --seed 1
    brx build survey.las -o survey.brx
    brx verify survey.brx
    /tmp/stores/stores survey.brx; /tmp/by-pkg-config survey.brx
    brx export survey.brx again.laz
    brxview survey.brx --render picture.png --size 320x240
    man brx-build | grep -q -- --memory; man brxview | grep -q -- --render
    bash -c ". /usr/share/bash-completion/completions/brx; COMP_WORDS=(brx bu); COMP_CWORD=1; _velbrx brx; [ \"\${COMPREPLY[*]}\" = build ]"
    ls /usr/lib/*/osgPlugins-*/osgdb_brx.so
    cmake -S /examples/minimal -B /tmp/minimal >/dev/null; cmake --build /tmp/minimal >/dev/null' >&2

step "gone without a trace"
inside apt-get purge -y -qq velbrx velbrx-doc openscenegraph-plugin-velbrx libvelbrx-dev 'libvelbrx[0-9]*' >/dev/null
left=$(list | comm -13 "$root/before" - | grep -iE 'velbrx|vel_o|brx' || true)
[ -z "$left" ] || { echo "package: left behind: $left" >&2; exit 1; }
echo "packages install, run and leave again"
