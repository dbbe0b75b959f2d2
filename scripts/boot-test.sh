#!/bin/bash
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
# Installs a build into a throw-away machine, boots it, and runs tests/packaging/booted.py inside.
#
#   scripts/boot-test.sh [BUILD]        (default: build/release)
#
# The machine is this one: its root file system under an overlay in memory, so nothing is fetched and
# nothing stays. It has its own service manager, processes, network and temporary files. It boots in
# half a second.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

build=$(realpath "${1:-build/release}")
if [ "$(id -u)" -ne 0 ]; then
  echo "Root is needed to boot a machine." >&2
  exit 77
fi
# What is mounted from here on is seen by this script alone and gone when it ends.
if [ -z "${HOIST_BOOT_TEST_INSIDE:-}" ]; then
  HOIST_BOOT_TEST_INSIDE=1 exec unshare --mount --propagation private "$0" "$build"
fi

scratch=$(mktemp -d /tmp/hoist-boot.XXXXXX)
trap 'rm -rf --one-file-system "$scratch"' EXIT
mount -t tmpfs -o mode=0755 hoist-boot "$scratch"
mkdir "$scratch"/{upper,work,root}
mount -t overlay hoist-boot \
  -o "lowerdir=/,upperdir=$scratch/upper,workdir=$scratch/work" "$scratch/root"
root=$scratch/root

DESTDIR=$root cmake --install "$build" --component daemon >"$scratch/install.log" ||
  { cat "$scratch/install.log"; exit 1; }

# A machine of its own name, that starts nothing but what is tested here.
systemd-id128 new >"$root/etc/machine-id"
rm -rf "$root"/etc/systemd/system/{multi-user,timers,sockets,sysinit}.target.wants
systemctl --quiet --root="$root" enable com.kelvo.hoist.socket
mkdir -p "$root/tests"
cp tests/packaging/booted.py "$root/tests/"
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
TimeoutStartSec=120
UNIT

status=0
timeout --kill-after=10 180 systemd-nspawn --quiet --register=no --keep-unit --private-network \
  --directory="$root" --machine="hoist-boot-$$" --boot --console=pipe \
  systemd.unit=booted.service </dev/null >"$scratch/console" 2>&1 || status=$?
cat "$root/tests/output" 2>/dev/null || cat "$scratch/console"
exit "$status"
