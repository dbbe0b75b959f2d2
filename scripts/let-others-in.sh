#!/bin/bash
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
# Runs a command in a mount namespace in which every user can get to a folder, though one above it,
# mostly somebody's home folder, is its owner's alone. Needs root; changes nothing outside. What is
# written beside the folder, below that home folder, is gone afterwards.
#
#   scripts/let-others-in.sh FOLDER COMMAND [ARGUMENT...]
set -euo pipefail

folder=$(realpath -- "$1")
shift

if [ -z "${HOIST_LETS_OTHERS_IN:-}" ]; then
  HOIST_LETS_OTHERS_IN=1 exec unshare --mount "$0" "$folder" "$@"
fi
unset HOIST_LETS_OTHERS_IN

closed=()
for ((above = 1; above < ${#folder}; ++above)); do
  [ "${folder:above:1}" = / ] || continue
  [ $((8#$(stat -c %a -- "${folder:0:above}") & 1)) = 1 ] || closed+=("${folder:0:above}")
done
[ ${#closed[@]} -gt 0 ] || exec "$@"

# A layer of its own, in which the modes can be changed, over the uppermost folder that is closed;
# and in it the real folder again.
cd /
layers=$(mktemp -d)
mount -t tmpfs -o mode=755 tmpfs "$layers"
mkdir "$layers/upper" "$layers/work" "$layers/folder"
mount --bind "$folder" "$layers/folder"
mount -t overlay -o "lowerdir=${closed[0]},upperdir=$layers/upper,workdir=$layers/work" \
  overlay "${closed[0]}"
chmod o+x "${closed[@]}"
mount --bind "$layers/folder" "$folder"
umount "$layers/folder"
umount --lazy "$layers"
rmdir "$layers"
cd "$folder"
exec "$@"
