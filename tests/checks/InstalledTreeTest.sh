#!/usr/bin/env bash
# Installs the build into a folder of its own, then builds and runs hosts against what was installed, as a host developer would: with
# pkg-config, with CMake from C, and with CMake from C++. Moves the tree in between, as nothing in it may name the folder it was made for.
#
#     InstalledTreeTest.sh BUILD SOURCE C_COMPILER CXX_COMPILER
set -euo pipefail

build=$1 source=$2 cc=$3 cxx=$4
monitor=/usr/share/color/argyll/ref/sRGB.icm
printer=/usr/share/color/icc/ghostscript/default_cmyk.icc

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "InstalledTreeTest: $1" >&2
    exit 1
}

run() {
    "$@" >"$work/log" 2>&1 || { cat "$work/log"; fail "failed: $*"; }
}

# run_host PROGRAM: matches colours through the installed library and its installed reference profile.
run_host() {
    LD_LIBRARY_PATH=$libdir "$1" "$monitor" "$printer" >"$work/answer" || fail "$1 failed"
    grep -qE '^14135 14135 14135 +32[89][0-9]{2} 32[89][0-9]{2} 32[89][0-9]{2} ' "$work/answer" || { cat "$work/answer"; fail "$1 matched a grey wrongly"; }
}

run cmake --install "$build" --prefix "$work/first"
mv "$work/first" "$work/prefix"
pc=$(find "$work/prefix" -name colourmatch.pc)
[[ -n $pc ]] || fail "no colourmatch.pc"
export PKG_CONFIG_PATH=${pc%/*}
libdir=$(cd "${pc%/*}/.." && pwd)

# Files that hosts and the dynamic loader look for by these names.
for file in libcolourmatch.so libcolourmatch.so.2 libcolourmatch.so.2.5.0 colourmatch-2/MatrixCalRGB.icc colourmatch-2/show-alert; do
    [[ -e $libdir/$file ]] || fail "no $file"
done
[[ $(pkg-config --modversion colourmatch) == 2.5.0 ]] || fail "pkg-config knows another version"

run "$source/tools/check_binaries" "$work/prefix"
if [[ -x $work/prefix/bin/orlo ]]; then run "$source/tools/check_package_lists" "$work/prefix"; fi

echo "pkg-config, C"
example=$(find "$work/prefix" -path '*/examples/match_colour.c')
[[ -n $example ]] || fail "no example was installed"
# shellcheck disable=SC2046 # words are meant to be split
run "$cc" -std=c17 -Wall -Wextra -Werror "$example" $(pkg-config --cflags --libs colourmatch) -o "$work/match_c"
run_host "$work/match_c"
cp "$work/answer" "$work/first_answer"

# A program at a fixed address would link with copies of the library's variables.
# shellcheck disable=SC2046
if "$cc" -std=c17 -fno-pie -fsyntax-only "$source/examples/match_colour.c" $(pkg-config --cflags colourmatch) 2>"$work/log"; then
    fail "a host at a fixed address compiled"
fi
grep -q "stale copies" "$work/log" || { cat "$work/log"; fail "a host at a fixed address was not told why it does not compile"; }

echo "the README's host, by the README's command"
mkdir "$work/readme"
# shellcheck disable=SC2016 # the fences are no commands
sed -n '/^```c$/,/^```$/{/^```/d;p}' "$source/README.md" >"$work/readme/host.c"
command=$(sed -n 's/^    cc host\.c /host.c /p' "$source/README.md")
[[ -s $work/readme/host.c && $(wc -l <<<"$command") == 1 && -n $command ]] || fail "the README shows no host with one command"
cp "$monitor" "$work/readme/monitor.icc"
cp "$printer" "$work/readme/printer.icc"
(cd "$work/readme" && eval "run $cc -std=c17 -Wall -Wextra -Wpedantic -Werror $command")
answer=$(cd "$work/readme" && LD_LIBRARY_PATH=$libdir ./a.out) || fail "the README's host failed: $answer"
grep -qE '^32[89][0-9]{2} 32[89][0-9]{2} 32[89][0-9]{2}$' <<<"$answer" || fail "the README's host answered $answer"

echo "beside the headers of X11"
for header in ColourMatch.h Session.hpp; do
    printf '#include <X11/Intrinsic.h>\n#include <ColourMatch/%s>\n' "$header" >"$work/beside.cpp"
    # shellcheck disable=SC2046
    run "$cxx" -std=c++20 -Wall -Wextra -Werror -fPIE -fsyntax-only "$work/beside.cpp" $(pkg-config --cflags colourmatch)
done

mkdir "$work/consumer"
cat >"$work/consumer/matcher.cpp" <<'CPP'
#include <ColourMatch/Session.hpp>
#include <iostream>
int main(int, char** arguments) try {
    const colourmatch::Matcher matcher({.monitor = arguments[1], .printer = arguments[2]});
    const colourmatch::PackedReference16 grey[] = {{14135, 14135, 14135}};
    colourmatch::PackedRGB16 shown[1];
    matcher.Match(std::span<const colourmatch::PackedReference16>(grey), std::span<colourmatch::PackedRGB16>(shown));
    std::cout << "14135 14135 14135  " << shown[0].red << ' ' << shown[0].green << ' ' << shown[0].blue << " \n";
} catch (const colourmatch::Error& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
CPP
cat >"$work/consumer/lab.cpp" <<'CPP'
#include <ColourMatch/ColourMatch.h>
int main() {
    const bool same = XYZToCIELab(CIELabToXYZ(LabColour(50, 0, 0), D65WhiteColour), D65WhiteColour).a == 0.0f;
    return same && deltaE(LabColour(50, 3, 4), LabColour(50, 0, 0)) == 5.0f ? 0 : 1;
}
CPP
cat >"$work/consumer/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(Consumer LANGUAGES \${CONSUMER_LANGUAGES})
find_package(ColourMatch 2.4 REQUIRED)
add_executable(match "$source/examples/match_colour.c")
target_link_libraries(match PRIVATE ColourMatch::colourmatch)
if(CXX IN_LIST CONSUMER_LANGUAGES)
  add_executable(lab lab.cpp)
  target_link_libraries(lab PRIVATE ColourMatch::colourmatch)
  add_executable(matcher matcher.cpp)
  target_link_libraries(matcher PRIVATE ColourMatch::colourmatch)
endif()
CMAKE

for languages in "C" "C;CXX"; do
    echo "find_package, $languages"
    folder=$work/build-${languages//;/}
    run cmake -G Ninja -S "$work/consumer" -B "$folder" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
        -DCONSUMER_LANGUAGES="$languages"
    run cmake --build "$folder"
    run_host "$folder/match"
    cmp "$work/answer" "$work/first_answer" || fail "two hosts of one library answered differently"
done
run_host "$work/build-CCXX/matcher"
"$work/build-CCXX/lab" || fail "the C++ host got another colour difference"

# The next major version may change any signature: it is not what this host asked for.
sed -i 's/find_package(ColourMatch 2.4/find_package(ColourMatch 3.0/' "$work/consumer/CMakeLists.txt"
if cmake -G Ninja -S "$work/consumer" -B "$work/build-other" -DCMAKE_PREFIX_PATH="$work/prefix" -DCONSUMER_LANGUAGES=C >"$work/log" 2>&1; then
    fail "version 2.5.0 was taken for version 3"
fi
grep -q "ColourMatch" "$work/log" || fail "the refusal of version 3 does not name the package"

if [[ -x $work/prefix/bin/orlo ]]; then
    echo "the installed command"
    env -u LD_LIBRARY_PATH "$work/prefix/bin/orlo" --help >"$work/log" 2>&1 || { cat "$work/log"; fail "orlo --help failed"; }
    for file in man/man1/orlo.1 man/man1/orlo-match.1 bash-completion/completions/orlo zsh/site-functions/_orlo fish/vendor_completions.d/orlo.fish; do
        [[ -s $work/prefix/share/$file ]] || fail "no $file"
    done
    for file in lib/systemd/user/orlo-displays.service etc/xdg/autostart/orlo-displays.desktop; do
        grep -q 'Exec.*=orlo displays keep$' "$work/prefix/$file" || fail "$file does not keep the displays"
    done
fi

package=$work/prefix/lib/python3/dist-packages
if [[ -e $package/colourmatch ]]; then
    echo "the installed Python package"
    [[ -z $(find "$package" -type l) ]] || fail "a link in the Python package"
    shown=$(env -u LD_LIBRARY_PATH PYTHONPATH="$package" /usr/bin/python3 -B -c "
import sys, numpy, colourmatch
print(*colourmatch.Matcher(sys.argv[1], sys.argv[2], plain_curves=True).match(numpy.full((1, 3), 14135, numpy.uint16))[0])" "$monitor" "$printer") ||
        fail "the Python package failed"
    grep -qE "^14135 14135 14135 +$shown " "$work/first_answer" || fail "the Python package answered $shown"
fi
echo "passed"
