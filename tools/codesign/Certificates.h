// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "codesign/OpenSSL.h"

namespace hoist::codesign {

// Every certificate of a PEM text; other sections are passed over. None when one of them is damaged
// or there is none.
std::optional<Certificates> certificatesOfPEM(std::string_view pem);

// Subject or issuer in one line of printable ASCII, most particular part first ("CN=...,O=...").
std::string nameText(const X509_NAME* name);
std::string subjectOf(const X509* certificate);

// Why a certificate must not sign code: no extended key usage, one that lacks code signing, or a
// key usage without digital signatures. None if it may.
std::optional<std::string> objectionToSigningCode(X509* certificate);

// Why an authority's certificate must not vouch for code: an extended key usage without code
// signing. None if it may.
std::optional<std::string> objectionToVouchingForCode(X509* certificate);

// The newest complaint of the library, for people; forgets it and all older ones.
std::string libraryComplaint();

}  // namespace hoist::codesign
