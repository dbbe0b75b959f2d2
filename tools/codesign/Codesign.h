// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "codesign/Signature.h"
#include "codesign/TrustStore.h"

namespace hoist::codesign {

// The tool's three operations. Each throws Problem when it cannot be done.

// Answers the SHA-256 of the main executable, in hexadecimal digits, as it was found sealed, if the
// bundle is exactly what a trusted signer sealed.
std::string verifyBundle(const std::string& path, const TrustStore& trust);

// Seals the bundle as it stands. An earlier seal is replaced; nothing is changed before everything
// that can fail for reasons of the bundle or the identity has been done.
void signBundle(const std::string& path, const Identity& identity);

// Lines for people about the bundle, its seal and its signer. Nothing is verified.
std::string describeBundle(const std::string& path);

}  // namespace hoist::codesign
