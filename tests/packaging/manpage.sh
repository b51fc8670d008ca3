#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# temhostd(8) is clean for mandoc's linter and man's warnings, its NAME line
# parses for the whatis database, and it documents every option of the
# daemon's usage text and every fixed exit status.
#
# Usage: tests/packaging/manpage.sh MAN_PAGE DAEMON
set -eu
page=$1
daemon=$2
rc=0
complain() {
    echo "manpage: $*"
    rc=1
}

out=$(mandoc -T lint -W warning "$page" 2>&1) || complain "mandoc -T lint: $out"
out=$(MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null) || complain "man failed"
[ -z "$out" ] || complain "man --warnings: $out"
lexgrog "$page" | grep -q '"temhostd - ' || complain "lexgrog cannot parse NAME: $(lexgrog "$page")"

rendered=$(MANWIDTH=200 man -l "$page" 2>/dev/null | col -b)
section() {
    printf '%s\n' "$rendered" | awk -v s="$1" '/^[A-Z]/ { on = ($0 == s) } on'
}
options=$(section OPTIONS)
# Each option the usage text lists, and the library's -d and -D.
for opt in $("$daemon" -h | sed -n 's/^ *\(-[A-Za-z]\).*/\1/p') -d -D; do
    printf '%s\n' "$options" | grep -Eq "^ {7}$opt( |$)" || complain "OPTIONS lacks $opt"
done
statuses=$(section 'EXIT STATUS')
for st in 0 1 2 3; do
    printf '%s\n' "$statuses" | grep -Eq "^ {7}$st( |$)" || complain "EXIT STATUS lacks $st"
done
printf '%s\n' "$statuses" | grep -q ' 255 ' || complain "EXIT STATUS lacks the status after a stop"
for s in NAME SYNOPSIS DESCRIPTION OPTIONS 'EXIT STATUS' SIGNALS FILES 'SEE ALSO'; do
    [ -n "$(section "$s")" ] || complain "no section $s"
done
section 'SEE ALSO' | grep -q 'snmpd(8), snmpd.conf(5), snmpcmd(1)' || complain "SEE ALSO incomplete"
[ $rc -ne 0 ] || echo "manpage: ok"
exit $rc
