#!/usr/bin/env bash
# The installed library as another project consumes it, from `cmake --install` into a scratch prefix
# and from the Debian package unpacked into a scratch root: a consumer built with find_package and
# one built with pkg-config read the sample BMC. The package's files and its dependencies are
# checked too. Runs as any user and changes nothing outside its own scratch directory: the package
# is unpacked with dpkg-deb, never installed, and the package database is only read.
#   check-install.sh BUILD_DIR SOURCE_DIR SAMPLE_BMC
set -euo pipefail
build=$1
source=$2
sample_bmc=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# consume PREFIX NAME: builds the consumer against the library installed under PREFIX, both ways,
# and runs each against the sample BMC.
consume() {
    local prefix=$1 name=$2 libdir
    libdir=$(dirname "$(find "$prefix" -name 'libipmi_event_log.so' | head -n 1)")
    # A prefix outside the loader's paths, as for any library installed there: the linker and the
    # loader find the framework library it needs through LD_LIBRARY_PATH.
    local -x LD_LIBRARY_PATH="$libdir"
    echo "== $name: find_package"
    cmake -S "$source/tests/package/consumer" -B "$work/$name-consumer" -G Ninja \
        -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
    cmake --build "$work/$name-consumer" >/dev/null
    "$sample_bmc" "$work/$name-consumer/consumer"

    echo "== $name: pkg-config"
    # shellcheck disable=SC2046
    g++ -std=c++17 "$source/tests/package/consumer/consumer.cpp" -o "$work/$name-consumer-pc" \
        $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs ipmi_event_log)
    "$sample_bmc" "$work/$name-consumer-pc"
}

# satisfied DEPENDENCY: whether one entry of a Depends field ("name (>= version)", or alternatives
# joined by "|") is installed on this machine at a version that meets it.
satisfied() {
    local alternative name relation version installed
    IFS='|' read -ra alternatives <<<"$1"
    for alternative in "${alternatives[@]}"; do
        read -r name relation version <<<"$(sed -E 's/^ *([^ (]+) *(\(([<>=]+) *([^)]+)\))? *$/\1 \3 \4/' <<<"$alternative")"
        installed=$(dpkg-query -W -f='${Status} ${Version}' "$name" 2>/dev/null |
            sed -n 's/^install ok installed //p')
        [ -n "$installed" ] || continue
        [ -z "$relation" ] || dpkg --compare-versions "$installed" "$relation" "$version" || continue
        return 0
    done
    return 1
}

cmake --install "$build" --prefix "$work/prefix" >/dev/null
consume "$work/prefix" installed-tree

echo "== Debian package"
(cd "$build" && cpack -G DEB -B "$work/deb" >/dev/null)
package=$(find "$work/deb" -maxdepth 1 -name '*.deb' | head -n 1)
dpkg-deb --info "$package" | grep -E '^ (Package|Version|Depends):'
dpkg-deb --contents "$package" | awk '{print $6 ($7 ? " " $7 " " $8 : "")}' >"$work/files"
for file in lib/libipmi_event_log.so.0.1.0 "lib/libipmi_event_log.so.0 -> libipmi_event_log.so.0.1.0" \
    lib/libtolmar_framework.so.0.1.0 include/ipmi_event_log/IpmiEventLog.h \
    include/tolmar_framework/IpmiClient.h lib/cmake/IpmiEventLog/IpmiEventLogConfig.cmake \
    lib/pkgconfig/ipmi_event_log.pc bin/ipmi-event-log share/man/man1/ipmi-event-log.1; do
    if ! grep -q "^\./usr/.*$file\$" "$work/files"; then
        echo "missing from the package: $file"
        failed=1
    fi
done
IFS=',' read -ra dependencies <<<"$(dpkg-deb --field "$package" Depends)"
for dependency in "${dependencies[@]}"; do
    if ! satisfied "$dependency"; then
        echo "dependency not met on this machine:$dependency"
        failed=1
    fi
done

# The package's tree, as dpkg would lay it out under /: the library finds its framework, the tool
# runs, and other projects build against it.
dpkg-deb --extract "$package" "$work/root"
installed=$(find "$work/root" -name 'libipmi_event_log.so.0' | head -n 1)
# Whole outputs are taken before grep looks: grep -q stops reading at its match, and a writer still
# writing would die of the broken pipe, failing the pipeline.
libraries=$(LD_LIBRARY_PATH=$(dirname "$installed") ldd "$installed")
grep -q 'libtolmar_framework.so.0 =>' <<<"$libraries"
usage=$(LD_LIBRARY_PATH=$(dirname "$installed") "$work/root/usr/bin/ipmi-event-log" --help)
grep -q '^usage: ipmi-event-log' <<<"$usage"
consume "$work/root/usr" package
exit $failed
