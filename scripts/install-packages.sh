#!/bin/bash
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
# Installs the Debian packages that a purpose needs and that are not there yet.
#
#   scripts/install-packages.sh [build|test|bench]        (default: build)
#
# When nothing is missing it says nothing, needs no rights and takes a few milliseconds.
set -euo pipefail

# To build the daemon, the tools and the libraries.
build=(
  g++ cmake ninja-build pkg-config ccache
  libsystemd-dev libglib2.0-dev nettle-dev libplist-dev libacl1-dev libmount-dev libblkid-dev
  libssl-dev libdw-dev libfmt-dev libcli11-dev nlohmann-json3-dev
  # The service manager's side of an on-demand start, for the demo: systemd-socket-activate, and
  # what makes a signing identity.
  systemd openssl libglib2.0-bin
)

# To run ./test besides.
test=(
  # The second compiler with its sanitizers, and the checks of the text.
  clang clang-tidy clang-format llvm libclang-rt-14-dev shellcheck
  libgtest-dev libgmock-dev
  # Independent ends of the wire.
  dbus dbus-bin python3 python3-dbus python3-gi python3-jeepney
  # What looks at running programs from outside, and the names of the C library's own functions.
  strace gdb procps elfutils libc6-dbg
  # File systems and what is special about their files.
  acl attr bindfs xfsprogs btrfs-progs e2fsprogs dosfstools exfatprogs exfat-fuse ntfs-3g
  util-linux mount
  # A machine that boots, for the units.
  systemd-container
  # What npm compiles with.
  make
)
# Node with npm and the headers. Who has them already may have them from Node's own package, which is
# all three and goes with none of Debian's.
if [ ! -x /usr/bin/npm ] || [ ! -e /usr/include/node/node.h ]; then
  test+=(nodejs npm libnode-dev)
fi

# To run ./bench besides.
bench=(
  libbenchmark-dev
  # The peers.
  libgrpc++-dev protobuf-compiler-grpc libprotobuf-dev capnproto libcapnp-dev libsdbus-c++-dev
  libspdlog-dev libdbus-1-dev dbus sudo pkexec polkitd elfutils gdb
)

case "${1:-build}" in
  build) wanted=("${build[@]}") ;;
  test) wanted=("${build[@]}" "${test[@]}") ;;
  bench) wanted=("${build[@]}" "${bench[@]}") ;;
  *) echo "usage: $0 [build|test|bench]" >&2; exit 2 ;;
esac

missing() {
  # One query for all: the names that are wanted, less those that are installed.
  comm -13 \
    <(dpkg-query --show --showformat '${db:Status-Status} ${Package}\n' "${wanted[@]}" 2>/dev/null |
        sed -n 's/^installed //p' | sort -u) \
    <(printf '%s\n' "${wanted[@]}" | sort -u)
}

mapfile -t packages < <(missing)
[ ${#packages[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "Root is needed to install: ${packages[*]}" >&2
  exit 1
fi

export DEBIAN_FRONTEND=noninteractive
install() {
  apt-get install --yes -qq --no-install-recommends -o Dpkg::Use-Pty=0 \
    -o DPkg::Lock::Timeout=300 "${packages[@]}" </dev/null >/dev/null
}

echo "Installing: ${packages[*]}"
# The lists may be absent or older than the archive: then, and only then, they are fetched.
install || { apt-get update -qq && install; } || {
  echo "Could not install: ${packages[*]}" >&2
  exit 1
}
