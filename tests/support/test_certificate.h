// SPDX-License-Identifier: MIT
// Certificates for servers of the tests, with new keys. Threads: one.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <chrono>
#include <memory>
#include <string>

namespace test_support {

class TestCertificate {
 public:
  struct Wanted {
    std::string names = "IP:127.0.0.1";       ///< as subjectAltName has them
    std::chrono::hours valid_from{-1};        ///< from now on
    std::chrono::hours valid_until{24};       ///< from now on
    bool may_issue = false;                   ///< it is an authority
    const TestCertificate* issuer = nullptr;  ///< null: self-signed
  };

  /// @throws std::runtime_error if OpenSSL makes none
  explicit TestCertificate(const Wanted& wanted);

  [[nodiscard]] X509* certificate() const { return certificate_.get(); }
  [[nodiscard]] EVP_PKEY* key() const { return key_.get(); }
  /// The certificate, for a file of trusted ones.
  [[nodiscard]] std::string Pem() const;

 private:
  struct Free {
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  };
  std::unique_ptr<EVP_PKEY, Free> key_;
  std::unique_ptr<X509, Free> certificate_;
};

}  // namespace test_support
