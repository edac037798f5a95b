// The web server's certificate and its key: made, read, checked.
#pragma once

#include <string>
#include <vector>

namespace recorderctl {

// Keys and certificates are texts, as PEM files have them; moments are seconds since the epoch.

/// What a certificate says.
struct CertificateFacts {
    std::string fingerprint;         ///< SHA-256 as browsers show it: "3F:0A:..."
    std::vector<std::string> names;  ///< host names and addresses that it is for
    long long begins = 0;
    long long ends = 0;
};

/// Makes a new key (EC P-256) and a certificate for it that it signs itself, for 397 days, the most
/// that browsers take.
/// @param names host names and addresses
/// @return the key, then the certificate
/// @throws Failure
std::string make_certificate(const std::vector<std::string>& names, long long now);

/// What the first certificate of a text says.
/// @throws Failure when there is none
CertificateFacts read_certificate(const std::string& pem);

/// Whether it ends within 30 days, or begins later, as one does that was made while the clock was
/// ahead: time to replace it.
bool is_due(const CertificateFacts& facts, long long now);

/// Puts a certificate, those that vouch for it behind it, and its key together, when a web server
/// could serve them now.
/// @return the key, then the certificates
/// @throws Failure: no certificate, no key or one with a passphrase, a key that is another's, a
///         certificate that is damaged or too weak, the first not valid yet or any more
std::string checked_certificate(const std::string& certificates, const std::string& key,
                                long long now);

}  // namespace recorderctl
