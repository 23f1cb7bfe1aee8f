#!/usr/bin/env bash
# Makes the Debian packages, checks what they hold and what they depend on, and runs a host against the unpacked files.
#
#     PackagesTest.sh BUILD SOURCE C_COMPILER
set -euo pipefail

build=$1 source=$2 cc=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "PackagesTest: $1" >&2
    exit 1
}

(cd "$work" && cpack --config "$build/CPackConfig.cmake" -B "$work/packages" >"$work/log" 2>&1) || { cat "$work/log"; fail "cpack failed"; }

package() {
    local found=("$work"/packages/"$1"_2.5.0_*.deb)
    [[ ${#found[@]} == 1 && -f ${found[0]} ]] || fail "no package $1"
    echo "${found[0]}"
}

# holds PACKAGE PATTERN...: each pattern is the end of exactly one path in the package, which no other package has.
holds() {
    local name=$1 pattern
    shift
    dpkg-deb -c "$(package "$name")" | awk '{print $6}' | grep -v '/$' >"$work/$name.files"
    for pattern in "$@"; do
        [[ $(grep -cE "$pattern\$" "$work/$name.files") == 1 ]] || { cat "$work/$name.files"; fail "$name: not one $pattern"; }
    done
}

holds libcolourmatch2 /lib/libcolourmatch.so.2 /lib/libcolourmatch.so.2.5.0 /lib/colourmatch-2/MatrixCalRGB.icc /lib/colourmatch-2/show-alert /LICENSE
holds libcolourmatch-dev /lib/libcolourmatch.so /lib/pkgconfig/colourmatch.pc /lib/cmake/ColourMatch/ColourMatchConfig.cmake \
    /include/colourmatch-2/ColourMatch/ColourMatch.h /include/colourmatch-2/session/ColourOperations.h
holds orlo ./usr/lib/systemd/user/orlo-displays.service ./etc/xdg/autostart/orlo-displays.desktop /bin/orlo /lib/colourmatch-2/orlo-images.so /man/man1/orlo.1 /man/man1/orlo-proof.1 /completions/orlo /_orlo /orlo.fish
twice=$(sort "$work"/*.files | uniq -d)
[[ -z $twice ]] || fail "in two packages: $twice"
# Development files only in the development package, and no header that hosts must not see.
if grep -E '\.(h|pc|cmake)$' "$work/libcolourmatch2.files" "$work/orlo.files"; then fail "development files outside libcolourmatch-dev"; fi
if grep -E 'platform/linux/|Owned\.h|CurveTag\.h' "$work/libcolourmatch-dev.files"; then fail "headers that are not for hosts"; fi

depends() { dpkg-deb -f "$(package "$1")" Depends; }
for needed in liblcms2-2 libglib2.0-0 libc6; do
    depends libcolourmatch2 | grep -q "$needed" || fail "libcolourmatch2 does not depend on $needed: $(depends libcolourmatch2)"
done
for name in libcolourmatch-dev orlo; do
    depends "$name" | grep -qF 'libcolourmatch2 (= 2.5.0)' || fail "$name does not depend on libcolourmatch2: $(depends "$name")"
done
depends orlo | grep -q libvips || fail "orlo does not depend on libvips: $(depends orlo)"

mkdir "$work/unpacked"
for name in libcolourmatch2 libcolourmatch-dev orlo; do dpkg-deb -x "$(package "$name")" "$work/unpacked"; done
"$cc" -std=c17 "$source/examples/match_colour.c" -I"$work/unpacked/usr/include/colourmatch-2" -L"$work/unpacked/usr/lib" -lcolourmatch -o "$work/match"
LD_LIBRARY_PATH=$work/unpacked/usr/lib "$work/match" /usr/share/color/argyll/ref/sRGB.icm /usr/share/color/icc/ghostscript/default_cmyk.icc >"$work/answer" ||
    fail "a host of the unpacked library failed"
[[ $(wc -l <"$work/answer") -ge 7 ]] || fail "a host of the unpacked library answered too little"
"$work/unpacked/usr/bin/orlo" --help >/dev/null || fail "the unpacked command does not start"
echo "passed"
