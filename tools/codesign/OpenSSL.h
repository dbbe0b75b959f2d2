// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string_view>
#include <vector>

namespace hoist::codesign {

// The cryptographic library's objects as C++ owns them.

template <auto Free>
struct FreeWith {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};

using Certificate = std::unique_ptr<X509, FreeWith<X509_free>>;
using Certificates = std::vector<Certificate>;
using PrivateKey = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;
using CertificateStore = std::unique_ptr<X509_STORE, FreeWith<X509_STORE_free>>;
using ContentInfo = std::unique_ptr<CMS_ContentInfo, FreeWith<CMS_ContentInfo_free>>;
using Stream = std::unique_ptr<BIO, FreeWith<BIO_free_all>>;

// A stream that reads the bytes, which must outlive it.
inline Stream streamOf(std::string_view bytes) {
  return Stream(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

}  // namespace hoist::codesign
