#!/bin/sh
# Prints the manual page of the configuration with the keys that the program itself tells.
# configpage.sh ZEL PAGE
set -e
keys=$("$1" config show)
[ -n "$keys" ]
printf '%s\n' "$keys" | awk '
function shown(text) {
    gsub(/\\/, "\\e", text)
    gsub(/-/, "\\-", text)
    return text
}
FNR == NR {
    if (/^\[/)
        told = told ".SS \"" shown($0) "\"\n"
    else if (/^# /)
        meaning = meaning shown(substr($0, 3)) "\n"
    else if (NF) {
        told = told ".TP\n.B \"" shown($1) "\"\n" meaning "By default \\&" shown(substr($0, length($1) + 4)) ".\n"
        meaning = ""
    }
    next
}
/^\.\\" KEYS$/ { printf "%s", told; next }
{ print }
' - "$2"
