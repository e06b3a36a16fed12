#!/bin/sh
# SPDX-License-Identifier: MIT
# Builds the example and the programs that the pages show outside the tree against an installed copy, with CMake, the
# example with pkg-config as well, and lets them upload to the installed server: install.sh SOURCES BUILD CXX_FLAGS QT, which is 5 or 6
set -eu

sources=$1 build=$2 flags=$3 qt=$4
suffix=""
[ "$qt" = 5 ] || suffix=Qt$qt
folder=$(mktemp -d)
server=""
clean_up() {
    [ -z "$server" ] || kill "$server"
    rm -rf "$folder"
}
trap clean_up EXIT

# Moved after it was installed: nothing in it may remember a place.
DESTDIR=$folder/root cmake --install "$build" --prefix /opt/kv >/dev/null
prefix=$folder/elsewhere
mv "$folder/root/opt/kv" "$prefix"
[ -z "$(find "$folder/root" -type f)" ]
test -x "$prefix/Talverinde/grabdownloader.exe"
if grep -rF -e "$folder" -e "$sources" -e /opt/kv "$prefix/include" "$prefix"/lib*/cmake "$prefix"/lib*/pkgconfig; then
    echo "install.sh: the installed files name a place" >&2
    exit 1
fi

# build NAME: the program in $folder/NAME, into $folder/NAME/build
build() {
    # What a host changes that moves to another Qt.
    sed -i "s/find_package(KvProjectDbOperator /find_package(KvProjectDbOperator$suffix /" "$folder/$1/CMakeLists.txt"
    cmake -G Ninja -S "$folder/$1" -B "$folder/$1/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags" >/dev/null
    cmake --build "$folder/$1/build" >/dev/null
    programs="$programs $1"
}

cp -R "$sources/examples/minimal-host" "$folder/source"
programs=""
build source

# Every listing of a page is a whole program, or what builds one.
mkdir "$folder/listings"
for page in "$sources"/README.md "$sources"/docs/*.md; do
    awk -v out="$folder/listings/$(basename "$page" .md)" '
        /^```/ { part = /^```cpp/ ? out "/main.cpp" : /^```cmake/ ? out "/CMakeLists.txt" : "" }
        part && /^```/ { system("mkdir -p " out) }
        part && !/^```/ { print >part }' "$page"
done
for listing in "$folder"/listings/*; do
    name=$(basename "$listing")
    cp -R "$sources/examples/minimal-host" "$folder/$name"
    cp "$listing"/* "$folder/$name"
    build "$name"
done

cd "$folder/source"
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name "KvData$suffix.pc")")
export PKG_CONFIG_PATH
LD_LIBRARY_PATH=$(pkg-config --variable=libdir "KvData$suffix")
tools=$(pkg-config --variable="$([ "$qt" = 5 ] && echo host_bins || echo libexecdir)" "Qt${qt}Core")
"$tools/moc" main.cpp -o main.moc
"$tools/rcc" host.qrc -o host.cpp
# shellcheck disable=SC2046,SC2086 # flags are words
c++ -std=c++17 -fPIC $flags -I. main.cpp host.cpp -o "$folder/by-pkg-config" \
    $(pkg-config --cflags --libs "KvProjectDbOperator$suffix" "KvAlgorthm$suffix" "KvData$suffix" "KvLog$suffix")

mkfifo "$folder/server.out"
"$prefix/bin/flightserver" --token secret --ledger "$folder/ledger.db" >"$folder/server.out" &
server=$!
exec 3<"$folder/server.out" # open as long as the server writes
url=$(sed -n '/^flightserver listening on /{s///p;q;}' <&3)

for name in $programs; do
    "$folder/$name/build/minimal-host" "$folder/project" "$url" secret
done
LD_LIBRARY_PATH=$LD_LIBRARY_PATH "$folder/by-pkg-config" "$folder/project" "$url" secret
kill "$server"
wait "$server" || true
server=""
"$prefix/bin/flightdesk" status --project "$folder/project" --ledger "$folder/ledger.db" | tee "$folder/status"
rows=$((3 * ($(echo "$programs" | wc -w) + 1)))
grep -q "^all $rows rows accepted and marked\$" "$folder/status"
