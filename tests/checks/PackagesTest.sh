#!/usr/bin/env bash
# Builds the Debian packages twice, from different folders, at different times and in different places of the world, which must give the same bytes;
# has lintian look at them; installs, uses, upgrades and purges them in a bare tree. Skipped without CM_DEEP.
#
#     PackagesTest.sh SOURCE
set -euo pipefail

[[ -n ${CM_DEEP-} ]] || exit 77
source=$1

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "PackagesTest: $1" >&2
    exit 1
}

# build FOLDER [VARIABLE=VALUE...]: the packages in FOLDER, from a copy of the sources in a folder below it.
build() {
    local folder=$1
    shift
    mkdir -p "$folder/colourmatch"
    (cd "$source" && git ls-files -z --cached --others --exclude-standard | tar --null --files-from=- -c) | tar -x -C "$folder/colourmatch"
    (cd "$folder/colourmatch" && env "$@" dpkg-buildpackage -us -uc -d -b "-j$(nproc)") >"$folder/log" 2>&1 </dev/null || {
        tail -n 60 "$folder/log"
        fail "the packages cannot be built"
    }
}

package() {
    local found=("$work/first/$1"_2.5.0_*.deb)
    [[ ${#found[@]} == 1 && -f ${found[0]} ]] || fail "no package $1"
    echo "${found[0]}"
}

build "$work/first"
build "$work/elsewhere/second" TZ=Asia/Tokyo LC_ALL=C.UTF-8 HOME=/nonexistent
for file in "$work"/first/*.deb; do
    cmp "$file" "$work/elsewhere/second/${file##*/}" || fail "${file##*/} comes out differently in another place"
done
echo "built twice: the same bytes"

lintian --fail-on error,warning "$work"/first/*.changes || fail "lintian has something against them"

names=(libcolourmatch2 libcolourmatch-dev orlo python3-colourmatch colourmatch-doc)
debs=()
for name in "${names[@]}"; do debs+=("$(package "$name")"); done

# Bare trees, from an archive of the packages beside Debian's own.
chmod 755 "$work"
(cd "$work/first" && dpkg-scanpackages . >Packages 2>/dev/null)
archives=$(find /etc/apt -name '*.sources' -o -name '*.list' | head -n 1)
bare() {
    mmdebstrap --quiet --variant=minbase --aptopt='APT::Install-Recommends "false"' "${@:2}" bookworm "$1" "$archives" \
        "deb [trusted=yes] copy:$work/first ./" >"$work/log" 2>&1 </dev/null || {
        tail -n 40 "$work/log"
        fail "no bare tree with ${*:2}"
    }
}
bare "$work/minimal.tar"
bare "$work/library.tar" --include=libcolourmatch2
count() { tar -xOf "$1" ./var/lib/dpkg/status | grep -c '^Status: install ok installed'; }
added=$(($(count "$work/library.tar") - $(count "$work/minimal.tar")))
((added <= 10)) || fail "libcolourmatch2 pulls $added packages into a bare tree, 10 at most are wanted"
echo "libcolourmatch2 pulls $added packages into a bare tree"

# In one tree: a picture is proofed, hosts are compiled, the packages are installed again as an upgrade, removed and purged.
printf -v hook '%s' 'set -e
mkdir "$1/debs" "$1/checks"
cp '"$(printf '%q ' "${debs[@]}")"' "$1/debs"
cp '"$(printf '%q ' "$source"/debian/tests/command "$source"/debian/tests/host "$source"/debian/tests/python)"' "$1/checks"
chroot "$1" sh -ec "
    export AUTOPKGTEST_TMP=/checks
    /checks/command
    /checks/host
    /checks/python
    dpkg -i /debs/*.deb
    orlo --version
    dpkg -r orlo python3-colourmatch libcolourmatch-dev colourmatch-doc libcolourmatch2
    ! command -v orlo
    dpkg -P orlo python3-colourmatch libcolourmatch-dev colourmatch-doc libcolourmatch2
    ! find /usr /etc /var -path /var/lib/dpkg -prune -o -path /var/cache -prune -o \( -iname \"*colourmatch*\" -o -iname \"*orlo*\" \) -print | grep .
"'
includes=$(IFS=,; echo "${names[*]}")
bare "$work/whole.tar" --include="$includes,colord-data,libgs-common,libvips-tools,gcc,g++,pkg-config" --customize-hook="$hook"
echo "installed, used, upgraded, removed and purged"
echo "passed"
