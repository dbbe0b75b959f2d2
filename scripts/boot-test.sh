#!/bin/bash
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
# Installs a build into a throw-away machine, boots it, and runs tests/packaging/booted.py inside.
#
#   scripts/boot-test.sh [BUILD]        (default: build/release)
#
# The machine is this one: its root file system under an overlay in memory, so nothing is fetched and
# nothing stays. It has its own service manager, processes, network and temporary files, and boots in
# half a second. Ends 77, with the reason as its last line, where no machine can be booted.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

skip() {
  echo "no machine can be booted here: $*"
  exit 77
}

build=$(realpath "${1:-build/release}")
[ "$(id -u)" -eq 0 ] || skip "root is needed"
# What is mounted from here on is seen by this script alone and gone when it ends.
if [ -z "${HOIST_BOOT_TEST_INSIDE:-}" ]; then
  unshare --mount true || skip "this root may not mount"
  HOIST_BOOT_TEST_INSIDE=1 exec unshare --mount --propagation private "$0" "$build"
fi

scratch=$(mktemp -d /tmp/hoist-boot.XXXXXX)
root=$scratch/root
# shellcheck disable=SC2317 # called at the end
finish() {
  umount --recursive --lazy --quiet "$scratch" || true
  rmdir "$scratch"
}
trap finish EXIT
mount -t tmpfs -o mode=0755 hoist-boot "$scratch"
mkdir "$scratch"/{upper,work,root}
mount -t overlay hoist-boot \
  -o "lowerdir=/,upperdir=$scratch/upper,workdir=$scratch/work" "$root" ||
  skip "the root file system takes no overlay"

# machine LIMIT ARGUMENT...: systemd-nspawn on that root, for so many seconds at most.
machine() {
  local limit=$1
  shift
  timeout --kill-after=10 "$limit" systemd-nspawn --quiet --register=no --keep-unit --private-network \
    --directory="$root" --machine="hoist-boot-$$" --console=pipe "$@" </dev/null
}

# A machine of its own name, that starts nothing but what is tested here.
systemd-id128 new >"$root/etc/machine-id"
rm -rf "$root"/etc/systemd/system/{multi-user,timers,sockets,sysinit}.target.wants
machine 30 --as-pid2 true >"$scratch/console" 2>&1 || skip "$(tail -n 1 "$scratch/console")"

DESTDIR=$root cmake --install "$build" --component daemon >"$scratch/install.log" ||
  { cat "$scratch/install.log"; exit 1; }
systemctl --quiet --root="$root" enable com.kelvo.hoist.socket
mkdir -p "$root/tests"
cp tests/packaging/booted.py "$root/tests/"
# A helper that root trusts and an ordinary user owns.
examples/signing/install-helper "$root/tests/helper" "$build/bin" "$build/bin/KelvoHelper" nobody \
  "$root/etc/kelvo/trust.d" >/dev/null
cat >"$root/etc/systemd/system/booted.service" <<'UNIT'
[Unit]
Requires=basic.target
After=basic.target
# The machine ends with the tests, with their status.
SuccessAction=exit
FailureAction=exit

[Service]
Type=oneshot
ExecStart=/usr/bin/python3 /tests/booted.py --verbose
StandardOutput=append:/tests/output
StandardError=append:/tests/output
TimeoutStartSec=150
UNIT

status=0
machine 180 --boot systemd.unit=booted.service >"$scratch/console" 2>&1 || status=$?
cat "$root/tests/output" 2>/dev/null || cat "$scratch/console"
exit "$status"
