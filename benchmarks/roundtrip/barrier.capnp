# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
@0xd3a1f0c25b9e4d17;

interface Barrier {
  call @0 () -> ();
}
