#!/bin/sh
# SPDX-License-Identifier: MIT
# Compares what a library takes of the host's libraries with the list of what it may take, as a host may bring its own
# with just these: imports.sh LIBRARY LIST EXPORTED...
set -eu

library=$1
list=$2
shift 2
nm --dynamic --undefined-only --demangle "$library" | sed 's/^ *. //' | LC_ALL=C sort -u |
    grep -Fx "$(cat "$@")" | diff -u "$list" - || {
    echo "The library takes something else of its host. Is it meant?" >&2
    exit 1
}
