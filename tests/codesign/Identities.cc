// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/Identities.h"

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace hoist::codesign {
namespace {

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(what);
}

PrivateKey makeKey(unsigned rsaBits) {
  PrivateKey key(rsaBits == 0 ? EVP_EC_gen("P-256") : EVP_RSA_gen(rsaBits));
  require(key != nullptr, "key");
  return key;
}

void addExtension(X509* certificate, int kind, const std::string& value) {
  if (value.empty()) return;
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
  require(extension && X509_add_ext(certificate, extension, -1) == 1, "extension");
  X509_EXTENSION_free(extension);
}

std::string textFrom(const Stream& stream) {
  char* text = nullptr;
  const long size = BIO_get_mem_data(stream.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

}  // namespace

CertificateOrder authorityOrder(std::string name) {
  CertificateOrder order;
  order.name = std::move(name);
  order.authority = true;
  order.keyUsage = "critical,keyCertSign";
  order.extendedKeyUsage.clear();
  return order;
}

Identity makeIdentity(const CertificateOrder& order, const Identity* issuer) {
  static long serial = 0;
  Identity made{makeKey(order.rsaBits), Certificate(X509_new()), {}};
  X509* certificate = made.certificate.get();
  X509_set_version(certificate, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), ++serial);
  X509_gmtime_adj(X509_getm_notBefore(certificate), order.validFrom);
  X509_gmtime_adj(X509_getm_notAfter(certificate), order.validUntil);
  X509_set_pubkey(certificate, made.key.get());
  auto* name = reinterpret_cast<const unsigned char*>(order.name.c_str());
  X509_NAME* subject = X509_get_subject_name(certificate);
  require(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, name, -1, -1, 0) == 1, "name");
  X509_set_issuer_name(certificate,
                       issuer ? X509_get_subject_name(issuer->certificate.get()) : subject);
  addExtension(certificate, NID_basic_constraints,
               order.authority ? "critical,CA:TRUE" : "critical,CA:FALSE");
  addExtension(certificate, NID_key_usage, order.keyUsage);
  addExtension(certificate, NID_ext_key_usage, order.extendedKeyUsage);
  EVP_PKEY* signingKey = issuer ? issuer->key.get() : made.key.get();
  require(X509_sign(certificate, signingKey, EVP_get_digestbyname(order.digest)) > 0, "signature");
  return made;
}

TrustStore TestSigner::trust() const {
  return trustIn(authority.certificate);
}

Certificate copyOf(const Certificate& certificate) {
  return Certificate(X509_dup(certificate.get()));
}

TrustStore trustIn(const Certificate& anchor) {
  Certificates anchors;
  anchors.push_back(copyOf(anchor));
  return TrustStore::of(anchors);
}

std::string pemOf(const Certificate& certificate) {
  const Stream stream(BIO_new(BIO_s_mem()));
  PEM_write_bio_X509(stream.get(), certificate.get());
  return textFrom(stream);
}

std::string pemOf(const PrivateKey& key) {
  const Stream stream(BIO_new(BIO_s_mem()));
  PEM_write_bio_PrivateKey(stream.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
  return textFrom(stream);
}

}  // namespace hoist::codesign
