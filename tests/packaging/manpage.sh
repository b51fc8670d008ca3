#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# A manual page (temhostd(8), check_temhostd(1)) is clean for mandoc's linter
# and man's warnings, its NAME line parses for the whatis database, and it
# documents every option of the program's usage text and every exit status
# (the daemon's 255 after a stop too).
#
# Usage: tests/packaging/manpage.sh MAN_PAGE PROGRAM
set -eu
fail() { echo "manpage: $*" >&2; exit 1; }
out=$(mandoc -T lint -W warning "$1" 2>&1) || fail "mandoc -T lint: $out"
out=$(MANWIDTH=80 man --warnings -l "$1" 2>&1 >/dev/null) && [ -z "$out" ] || fail "man --warnings: $out"
name=$(basename "$1" | sed 's/\.[0-9]$//')
lexgrog "$1" | grep -q "\"$name - " || fail "lexgrog cannot parse NAME: $(lexgrog "$1")"
page=$(MANWIDTH=200 man -l "$1" 2>/dev/null | col -b)
# A section's lines at man's 7-column indent, where list items start.
items() { printf '%s\n' "$page" | awk -v s="$1" '/^[A-Z]/ { on = $0 == s } on && sub(/^       /, "")'; }
for o in $("$2" -h | sed -n 's/^ *\(-[A-Za-z]\).*/\1/p'); do
    items OPTIONS | grep -Eq -- "^$o( |$)" || fail "OPTIONS lacks $o"
done
for s in 0 1 2 3; do items 'EXIT STATUS' | grep -Eq "^$s( |$)" || fail "EXIT STATUS lacks $s"; done
[ "$name" != temhostd ] || items 'EXIT STATUS' | grep -qw 255 || fail "EXIT STATUS lacks 255, the status after a stop"
echo "manpage: ok"
