// SPDX-License-Identifier: MIT
#include "tests/support/test_certificate.h"

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <stdexcept>

namespace test_support {
namespace {

void AddExtension(X509* certificate, int id, const std::string& value) {
  X509_EXTENSION* const extension = X509V3_EXT_nconf_nid(nullptr, nullptr, id, value.c_str());
  if (extension == nullptr) throw std::runtime_error("no certificate extension " + value);
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

long Seconds(std::chrono::hours time) {
  return static_cast<long>(std::chrono::seconds(time).count());
}

}  // namespace

TestCertificate::TestCertificate(const Wanted& wanted)
    : key_(EVP_EC_gen("P-256")), certificate_(X509_new()) {
  static std::atomic<long> serial = 1;
  X509* const certificate = certificate_.get();
  X509_set_version(certificate, X509_VERSION_3);
  const long number = serial++;
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), number);
  X509_gmtime_adj(X509_getm_notBefore(certificate), Seconds(wanted.valid_from));
  X509_gmtime_adj(X509_getm_notAfter(certificate), Seconds(wanted.valid_until));
  X509_set_pubkey(certificate, key_.get());
  const std::string name = "corvane test " + std::to_string(number);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
  const TestCertificate& issuer = wanted.issuer != nullptr ? *wanted.issuer : *this;
  X509_set_issuer_name(certificate, X509_get_subject_name(issuer.certificate()));
  AddExtension(certificate, NID_subject_alt_name, wanted.names);
  AddExtension(certificate, NID_basic_constraints, wanted.may_issue ? "CA:TRUE" : "CA:FALSE");
  if (X509_sign(certificate, issuer.key(), EVP_sha256()) == 0) {
    throw std::runtime_error("no certificate");
  }
}

std::string TestCertificate::Pem() const {
  BIO* const out = BIO_new(BIO_s_mem());
  PEM_write_bio_X509(out, certificate());
  char* text = nullptr;
  const long length = BIO_get_mem_data(out, &text);
  std::string pem(text, static_cast<std::size_t>(length));
  BIO_free(out);
  return pem;
}

}  // namespace test_support
