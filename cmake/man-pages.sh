#!/bin/sh
# SPDX-License-Identifier: MIT
# Makes a manual page of what each program and each of flightdesk's commands says of itself: man-pages.sh BIN OUT
set -eu

bin=$1 out=$2
rm -rf "$out"
mkdir -p "$out"
PATH=$bin:$PATH # so that a page shows the name without its folder
export QT_QPA_PLATFORM=offscreen
version=$(flightdesk --version)
version=${version#* }

# page NAME COMMAND...: its second line of help says what it is for
page() {
    name=$1
    shift
    does=$("$@" --help | sed -n '2{s/\.$//;s/; .*//;p}')
    help2man --no-info --section=1 --source="$version" --version-string="$name $version" --name="$does" \
        --output="$out/$name.1" "$*"
    # The title is the page's name, not that of a program with an argument.
    sed -i "s/^\.TH [^ ]*\( [A-Z]*\)* \"1\"/.TH $(echo "$name" | tr '[:lower:]-' '[:upper:]-') \"1\"/" "$out/$name.1"
    gzip -9n "$out/$name.1"
}

page flightserver flightserver
page flightdesk flightdesk
flightdesk --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p' | while read -r command; do
    page "flightdesk-$command" flightdesk "$command"
done
