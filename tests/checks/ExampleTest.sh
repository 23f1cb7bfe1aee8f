#!/usr/bin/env bash
# Runs the example host with profiles of the system, and with a file that is not there.
#
#     ExampleTest.sh PROGRAM
set -euo pipefail

program=$1
printer=/usr/share/color/icc/ghostscript/default_cmyk.icc

fail() {
    echo "ExampleTest: $1" >&2
    exit 1
}

answer=$("$program" /usr/share/color/argyll/ref/sRGB.icm "$printer") || fail "the example failed"
[[ $(wc -l <<<"$answer") == 7 ]] || fail "not a line for each of six colours: $answer"
rows=$(tail -n +2 <<<"$answer")
grep -qE '^14135 14135 14135 +32[89][0-9]{2} 32[89][0-9]{2} 32[89][0-9]{2} ' <<<"$rows" || fail "a middle grey is not one on the monitor: $answer"
grep -qE '^65535 +0 +0 .* monitor' <<<"$rows" || fail "the reference's pure red is not outside the monitor: $answer"
grep -qE '^14135 14135 14135 .*[0-9] +$' <<<"$rows" || fail "a middle grey is not inside both devices: $answer"
grep -qE '^    0     0     0 .* printer$' <<<"$rows" || fail "black on paper is as dark as black: $answer"

status=0
complaint=$("$program" "$printer.missing" "$printer" 2>&1) || status=$?
[[ $status == 1 && $complaint == "match_colour: $printer.missing: the file is not there; the file of a profile is needed (status -43)" ]] || fail "a missing file gave $status: $complaint"
echo "passed"
