// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>
#include <limits.h>
#include <openssl/crypto.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "codesign/Codesign.h"
#include "codesign/Confinement.h"
#include "codesign/Limits.h"
#include "codesign/PathText.h"
#include "codesign/Problem.h"
#include "values/product.h"

#ifdef HOIST_SANITIZED
// The leak checker traces its own process, which one without rights cannot let it do.
extern "C" int __lsan_is_turned_off() {
  return 1;
}
#endif

namespace {

using namespace hoist::codesign;

constexpr int kInvalid = 1;
constexpr int kUsage = 2;

struct Request {
  bool verify = false;
  bool sign = false;
  bool display = false;
  std::string bundle;
  std::string key, certificate, chain;
  std::string trustFolder{hoist::product::kTrustDirectory};
  double timeLimit = kDefaultTimeLimit;
};

void declare(CLI::App& program, Request& request) {
  auto* operation = program.add_option_group("Operation", "What to do")->require_option(1);
  auto* verify =
      operation->add_flag("--verify", request.verify,
                          "End with 0 exactly when a trusted signer sealed the bundle as "
                          "it is; print its main executable's SHA-256");
  auto* sign = operation->add_flag("--sign", request.sign, "Seal the bundle and sign the seal");
  operation->add_flag("--display", request.display, "Describe seal and signer, verifying nothing");
  auto* key = program.add_option("--key", request.key, "Private key (PEM)")->needs(sign);
  auto* certificate =
      program.add_option("--cert", request.certificate, "Certificate of the key (PEM)")
          ->needs(sign);
  program.add_option("--chain", request.chain, "Certificates between it and the anchor (PEM)")
      ->needs(sign);
  sign->needs(key)->needs(certificate);
  program.add_option("--trust", request.trustFolder, "Folder of the trust anchors (*.pem)")
      ->capture_default_str()
      ->needs(verify);
  program
      .add_option("--time-limit", request.timeLimit,
                  "Seconds that verifying or displaying may take")
      ->capture_default_str()
      ->excludes(sign)
      ->check(CLI::Range(0.001, 86'400.0));
  program.add_option("BUNDLE", request.bundle, "The application bundle")->required();
}

void run(const Request& request) {
  if (request.sign) {
    return signBundle(request.bundle,
                      Identity::ofFiles(request.key, request.certificate, request.chain));
  }
  std::optional<TrustStore> trust;
  if (request.verify) trust = TrustStore::ofFolder(request.trustFolder);
  keepOnlyTheRightToRead();
  endAfter(std::chrono::duration<double>(request.timeLimit));
  if (trust) return fmt::print("{}\n", verifyBundle(request.bundle, *trust));
  fmt::print("{}", describeBundle(request.bundle));
}

}  // namespace

int main(int argc, char** argv) {
  // Neither the environment nor a configuration file may bring code or defaults into this process.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
  CLI::App program("Seals application bundles, signs the seals, and verifies them.", "codesign");
  Request request;
  declare(program, request);
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? 0 : kUsage;
  }
  try {
    run(request);
    if (std::fflush(stdout) != 0) throw Problem("standard output cannot be written");
    return 0;
  } catch (const std::exception& error) {
    const auto bundle = textOfPath(std::string_view(request.bundle).substr(0, PATH_MAX));
    // The status says it too, where nobody can be told: nothing may be thrown here.
    std::fputs(fmt::format("codesign: {}: {}\n", bundle, error.what()).c_str(), stderr);
    return kInvalid;
  }
}
