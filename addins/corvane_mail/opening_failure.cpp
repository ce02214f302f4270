// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/opening_failure.h"

#include <openssl/x509_vfy.h>

#include <system_error>

#include "libs/base/printable.h"

namespace corvane_mail {
namespace {

/// libcurl's or the system's words in brackets, if there are any.
std::string InBrackets(const std::string& words) {
  return words.empty() ? "" : " (" + corvane::PrintableBeginning(words, 200) + ")";
}

std::string CertificateReason(const Account& account, const OpeningFacts& facts) {
  const std::string certificate = "the certificate of " + ServerOf(account);
  switch (facts.verify_result) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return certificate +
             " has expired; have its operator renew it, and check the clock of this machine";
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return certificate + " is not valid yet; check the clock of this machine";
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
      return certificate +
             " is self-signed, so nobody vouches for it; if you trust it, name its file in CaFile";
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return certificate +
             " comes from an issuer that is not trusted here; name the issuer's certificate in "
             "CaFile";
    case X509_V_OK:
    case X509_V_ERR_UNSPECIFIED:  // libcurl compares the names before it asks for OpenSSL's result
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return certificate + " belongs to another server" + InBrackets(facts.detail) +
             "; give the name that it has as Server";
    default:
      return certificate + " cannot be trusted" + InBrackets(facts.detail) +
             "; check Server, CaFile and the clock of this machine";
  }
}

/// The server's reply to STARTTLS, or the lack of one.
Failure StartTlsFailure(const Account& account, const OpeningFacts& facts) {
  const std::string server = ServerOf(account);
  if (facts.asked_for_tls && facts.last_reply.code / 100 == 4) {
    return {End::kForNow, server + " cannot begin TLS now: " + WordsOf(facts.last_reply)};
  }
  const std::string words =
      facts.asked_for_tls ? " (" + WordsOf(facts.last_reply) + ")" : std::string();
  return {End::kNotOffered,
          server + " does not offer STARTTLS" + words +
              "; set Security to \"tls\" with the port for it (465), or to \"none\" for a server "
              "that you trust"};
}

/// A reply that libcurl does not accept: to the greeting, to EHLO, or around STARTTLS.
Failure ReplyFailure(const Account& account, const OpeningFacts& facts) {
  const std::string server = ServerOf(account);
  if (facts.asked_for_tls) {
    return {End::kNotOffered,
            server +
                " sent more than its reply to STARTTLS before the connection was secure, so "
                "nothing it says can be trusted; find out who interferes with the connection"};
  }
  if (facts.last_reply.code >= 400) {
    return {End::kForNow, server + " does not serve this machine: " + WordsOf(facts.last_reply) +
                              "; ask its operator if that does not pass"};
  }
  return {End::kForNow, server + " does not answer like a mail server" +
                            InBrackets(WordsOf(facts.last_reply)) + "; check Server and Port"};
}

Failure TlsFailure(const Account& account, const OpeningFacts& facts) {
  const std::string server = ServerOf(account);
  const bool is_plain = facts.detail.find("wrong version number") != std::string::npos;
  if (is_plain && account.security == Security::kTls) {
    return {End::kNotOffered, server +
                                  " does not begin with TLS; set Security to \"starttls\", or Port "
                                  "to the one for TLS (465)"};
  }
  return {End::kForNow,
          "no secure connection to " + server + InBrackets(facts.detail) +
              "; check Port and Security, and that the server offers at least TLS 1.2"};
}

}  // namespace

Failure DescribeOpening(const Account& account, const OpeningFacts& facts) {
  const std::string server = ServerOf(account);
  if (facts.is_remote_login) {
    return {End::kNotOffered,
            "no login at " + server +
                " over a connection that is not secure; set Security to \"starttls\" or \"tls\", "
                "or Insecure if you accept that the password can be read on the way"};
  }
  switch (facts.code) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return {End::kForNow,
              "no address is known for " + server + "; check Server and the name service"};
    case CURLE_COULDNT_CONNECT:
      return {End::kForNow,
              server + " cannot be reached" +
                  InBrackets(facts.system_error == 0
                                 ? std::string()
                                 : std::generic_category().message(facts.system_error)) +
                  "; check Server, Port and the network"};
    case CURLE_OPERATION_TIMEDOUT:
      return {End::kForNow, server + " did not answer within " + TextOf(account.timeout) +
                                "; check Server, Port and the network"};
    case CURLE_PEER_FAILED_VERIFICATION:
      return {End::kCertificate, CertificateReason(account, facts)};
    case CURLE_SSL_CACERT_BADFILE:
      return {End::kCertificate, "CaFile " + corvane::PrintableBeginning(account.ca_file, 200) +
                                     " cannot be read, or has no certificate in PEM form"};
    case CURLE_USE_SSL_FAILED: return StartTlsFailure(account, facts);
    case CURLE_SSL_CONNECT_ERROR: return TlsFailure(account, facts);
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_REMOTE_ACCESS_DENIED: return ReplyFailure(account, facts);
    default:
      return {End::kForNow, "the connection to " + server + " was lost" + InBrackets(facts.detail) +
                                "; check the network and the server"};
  }
}

}  // namespace corvane_mail
