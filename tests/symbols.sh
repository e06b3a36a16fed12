#!/bin/sh
# SPDX-License-Identifier: MIT
# Compares what a library exports with the list of what it is meant to export: symbols.sh LIBRARY LIST
set -eu

# Weak instances of templates and inline functions of Qt and the standard library come and go with the compiler's
# mood; names that begin with an underscore are the compiler's own.
exported() {
    nm --dynamic --defined-only --demangle "$1" | cut -d ' ' -f 2- |
        sed 's/QList<QString>/QStringList/g' | # as Qt 5 has it
        awk '/^[VWu] / && /std::|Q[A-Z]/ && !/Kv/ { next } /^. _/ { next } { print substr($0, 3) }' | LC_ALL=C sort -u
}

if ! exported "$1" | diff -u "$2" -; then
    echo "The interface changed. Is it meant? Then renew the list from the lines above (diff | patch)." >&2
    exit 1
fi
