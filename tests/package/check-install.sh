#!/usr/bin/env bash
# The installed library as another project consumes it, from `cmake --install` into a scratch prefix
# and from the Debian package unpacked into a scratch root: a consumer built with find_package and
# one built with pkg-config read the sample BMC. The package's files and its dependencies are
# checked too, and the services' files: their modes, the units' commands, the conffiles and the
# maintainer scripts. Runs as any user and changes nothing outside its own scratch directory: the
# package is unpacked with dpkg-deb, never installed, and the package database is only read.
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
# The services' files, with their modes: the exporter's configuration names passwords.
dpkg-deb --contents "$package" | awk '{print $1, $6}' >"$work/modes"
for entry in "-rw-r--r-- ./usr/lib/systemd/system/ipmi-event-log-exporter.service" \
    "-rw-r--r-- ./usr/lib/systemd/system/ipmi-event-log-follow.service" \
    "-rw-r----- ./etc/ipmi-event-log/config.yml" "-rw-r--r-- ./etc/default/ipmi-event-log-follow" \
    "-rw-r--r-- ./usr/share/ipmi-event-log/prometheus/ipmi-event-log.rules.yml" \
    "-rw-r--r-- ./usr/share/ipmi-event-log/prometheus/scrape-ipmi.yml" \
    "-rw-r--r-- ./usr/share/ipmi-event-log/prometheus/scrape-ipmi-replicas.yml"; do
    if ! grep -qxF -- "$entry" "$work/modes"; then
        echo "missing from the package, or another mode: $entry"
        failed=1
    fi
done
# Installed as /usr, the units run the packaged tool with the files under /etc.
dpkg-deb --fsys-tarfile "$package" |
    tar -xOf - ./usr/lib/systemd/system/ipmi-event-log-exporter.service \
        ./usr/lib/systemd/system/ipmi-event-log-follow.service |
    grep -E '^(ExecStart|EnvironmentFile)=' >"$work/commands"
# The units' own ${...}, which systemd expands.
# shellcheck disable=SC2016
expected_commands='ExecStart=/usr/bin/ipmi-event-log serve --config /etc/ipmi-event-log/config.yml --listen ${LISTEN_ADDRESS} --state-dir ${STATE_DIRECTORY}
EnvironmentFile=/etc/default/ipmi-event-log-follow
ExecStart=/usr/bin/ipmi-event-log -H ${IPMI_HOSTS} -U ${IPMI_USER} -f ${IPMI_PASSWORD_FILE} --state-dir ${STATE_DIRECTORY} $FOLLOW_OPTIONS follow'
if [ "$(cat "$work/commands")" != "$expected_commands" ]; then
    echo "the packaged units' commands:"
    cat "$work/commands"
    failed=1
fi
# The files under /etc are conffiles, and the maintainer scripts are there, executable.
conffiles=$(dpkg-deb --info "$package" conffiles)
if [ "$conffiles" != $'/etc/ipmi-event-log/config.yml\n/etc/default/ipmi-event-log-follow' ]; then
    echo "the package's conffiles: $conffiles"
    failed=1
fi
dpkg-deb --ctrl-tarfile "$package" | tar -tvf - | awk '{print $1, $6}' >"$work/control"
for script in postinst prerm postrm; do
    if ! grep -qxF -- "-rwxr-xr-x ./$script" "$work/control"; then
        echo "no executable $script in the package"
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
