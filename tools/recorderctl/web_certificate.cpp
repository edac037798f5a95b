// The web server's certificate and its key: made, read, checked.
#include "tools/recorderctl/web_certificate.h"

#include <arpa/inet.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <ctime>
#include <memory>

#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"

namespace recorderctl {

namespace {

constexpr long long VALID_SECONDS = 397LL * 24 * 3600;
// Clocks of those who read it may be behind; it counts as part of the days.
constexpr long long EARLIER_SECONDS = 3600;
constexpr long long RENEWAL_SECONDS = 30LL * 24 * 3600;
constexpr int SERIAL_BITS = 159;

template <auto RELEASE>
struct Releaser {
    template <typename Thing>
    void operator()(Thing* thing) const {
        RELEASE(thing);
    }
};
/// OPENSSL_free() is a macro.
struct FreeText {
    void operator()(char* text) const { OPENSSL_free(text); }
};
using Bio = std::unique_ptr<BIO, Releaser<BIO_free_all>>;
using BigNumber = std::unique_ptr<BIGNUM, Releaser<BN_free>>;
using Certificate = std::unique_ptr<X509, Releaser<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Releaser<X509_EXTENSION_free>>;
using PrivateKey = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using Names = std::unique_ptr<GENERAL_NAMES, Releaser<GENERAL_NAMES_free>>;
using Text = std::unique_ptr<char, FreeText>;
using TlsSettings = std::unique_ptr<SSL_CTX, Releaser<SSL_CTX_free>>;

std::string library_words() {
    const char* reason = ERR_reason_error_string(ERR_get_error());
    ERR_clear_error();
    return reason == nullptr ? "the library does not say why" : reason;
}

void require(bool done, const char* what) {
    if (!done) throw Failure(std::string(what) + ": " + library_words());
}

Bio reader(const std::string& text) {
    Bio bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    require(bio != nullptr, "cannot read a certificate");
    return bio;
}

std::string text_of(const Bio& bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

/// In the place of a terminal: nobody is asked for a passphrase.
int no_passphrase(char*, int, int, void*) {
    return -1;
}

bool is_end(unsigned long error) {
    return ERR_GET_LIB(error) == ERR_LIB_PEM && ERR_GET_REASON(error) == PEM_R_NO_START_LINE;
}

/// None when there is no further one; one that is damaged is not passed over.
Certificate next_certificate(const Bio& from) {
    Certificate found(PEM_read_bio_X509(from.get(), nullptr, no_passphrase, nullptr));
    require(found != nullptr || is_end(ERR_peek_last_error()), "the certificate's file is damaged");
    ERR_clear_error();
    return found;
}

PrivateKey read_key(const std::string& text) {
    PrivateKey key(PEM_read_bio_PrivateKey(reader(text).get(), nullptr, no_passphrase, nullptr));
    if (key == nullptr && text.find("ENCRYPTED") != std::string::npos)
        throw Failure(
            "the key has a passphrase, which nobody could type when the web server "
            "starts; \"openssl pkey\" makes a copy without one");
    if (key == nullptr) throw Failure("there is no private key in the key's file");
    return key;
}

// --- making --------------------------------------------------------------------------------------

bool is_address(const std::string& name) {
    in6_addr room{};
    return inet_pton(AF_INET, name.c_str(), &room) == 1 ||
           inet_pton(AF_INET6, name.c_str(), &room) == 1;
}

std::string alternative_names(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ",") + std::string(is_address(name) ? "IP:" : "DNS:") + name;
    return text;
}

void add_extension(X509* certificate, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1,
            "cannot make a certificate");
}

void set_serial(X509* certificate) {
    const BigNumber serial(BN_new());
    require(BN_rand(serial.get(), SERIAL_BITS, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
                BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate)) != nullptr,
            "cannot make a certificate");
}

void set_name(X509* certificate) {
    X509_NAME* name = X509_get_subject_name(certificate);
    const auto* text = reinterpret_cast<const unsigned char*>("recorder");
    require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0) == 1 &&
                X509_set_issuer_name(certificate, name) == 1,
            "cannot make a certificate");
}

void set_times(X509* certificate, long long now) {
    ASN1_TIME_set(X509_getm_notBefore(certificate), now - EARLIER_SECONDS);
    ASN1_TIME_set(X509_getm_notAfter(certificate), now - EARLIER_SECONDS + VALID_SECONDS);
}

/// For this server alone: who trusts it, trusts nothing else that its key could sign.
void add_extensions(X509* certificate, const std::vector<std::string>& names) {
    add_extension(certificate, NID_basic_constraints, "critical,CA:FALSE");
    add_extension(certificate, NID_key_usage, "critical,digitalSignature");
    add_extension(certificate, NID_ext_key_usage, "serverAuth");
    add_extension(certificate, NID_subject_key_identifier, "hash");
    add_extension(certificate, NID_subject_alt_name, alternative_names(names));
}

std::string together(EVP_PKEY* key, const std::vector<Certificate>& certificates) {
    const Bio bio(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_PKCS8PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr),
            "cannot write the key");
    for (const Certificate& certificate : certificates)
        require(PEM_write_bio_X509(bio.get(), certificate.get()), "cannot write the certificate");
    return text_of(bio);
}

// --- reading -------------------------------------------------------------------------------------

std::string fingerprint_of(X509* certificate) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    unsigned size = 0;
    require(X509_digest(certificate, EVP_sha256(), hash.data(), &size) == 1,
            "cannot read the certificate");
    const Text text(OPENSSL_buf2hexstr(hash.data(), size));
    require(text != nullptr, "cannot read the certificate");
    return text.get();
}

long long seconds_of(const ASN1_TIME* time) {
    std::tm utc{};
    require(ASN1_TIME_to_tm(time, &utc) == 1, "cannot read the certificate's times");
    return timegm(&utc);
}

std::string name_text(const GENERAL_NAME* name) {
    int kind = 0;
    const auto* value = static_cast<const ASN1_STRING*>(GENERAL_NAME_get0_value(name, &kind));
    if (kind != GEN_DNS && kind != GEN_IPADD) return "";
    const unsigned char* data = ASN1_STRING_get0_data(value);
    const int size = ASN1_STRING_length(value);
    if (kind == GEN_DNS)
        return {reinterpret_cast<const char*>(data), static_cast<std::size_t>(size)};
    if (size != sizeof(in_addr) && size != sizeof(in6_addr)) return "";  // somebody else's fault
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(size == sizeof(in_addr) ? AF_INET : AF_INET6, data, text.data(), text.size());
    return text.data();
}

std::vector<std::string> names_of(X509* certificate) {
    const Names found(static_cast<GENERAL_NAMES*>(
        X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    std::vector<std::string> names;
    for (int at = 0; found && at < sk_GENERAL_NAME_num(found.get()); ++at) {
        const std::string name = name_text(sk_GENERAL_NAME_value(found.get(), at));
        if (!name.empty()) names.push_back(name);
    }
    return names;
}

// --- checking ------------------------------------------------------------------------------------

void require_valid(X509* certificate, long long now) {
    const long long begins = seconds_of(X509_get0_notBefore(certificate));
    const long long ends = seconds_of(X509_get0_notAfter(certificate));
    if (ends <= now) throw Failure("the certificate has ended, at " + zoned_time(ends));
    if (begins > now) throw Failure("the certificate is not valid before " + zoned_time(begins));
}

/// As the web server will use them, which would end over what the library does not take: each of
/// those that vouch for the first is judged, too.
void require_servable(const std::vector<Certificate>& chain, EVP_PKEY* key) {
    const TlsSettings server(SSL_CTX_new(TLS_server_method()));
    require(server != nullptr, "cannot check the certificate");
    require(SSL_CTX_use_certificate(server.get(), chain.front().get()) == 1,
            "the certificate cannot be served");
    for (std::size_t at = 1; at < chain.size(); ++at)
        require(SSL_CTX_add1_chain_cert(server.get(), chain[at].get()) == 1,
                "a certificate behind the first cannot be served");
    require(SSL_CTX_use_PrivateKey(server.get(), key) == 1, "the key cannot be used");
}

}  // namespace

std::string make_certificate(const std::vector<std::string>& names, long long now) {
    const PrivateKey key(EVP_EC_gen("P-256"));
    std::vector<Certificate> made;
    made.emplace_back(X509_new());
    X509* certificate = made.front().get();
    require(key != nullptr && certificate != nullptr, "cannot make a certificate");
    X509_set_version(certificate, X509_VERSION_3);
    set_serial(certificate);
    set_name(certificate);
    set_times(certificate, now);
    X509_set_pubkey(certificate, key.get());
    add_extensions(certificate, names);
    require(X509_sign(certificate, key.get(), EVP_sha256()) > 0, "cannot make a certificate");
    return together(key.get(), made);
}

CertificateFacts read_certificate(const std::string& pem) {
    const Certificate certificate = next_certificate(reader(pem));
    if (certificate == nullptr) throw Failure("there is no certificate in the certificate's file");
    return {.fingerprint = fingerprint_of(certificate.get()),
            .names = names_of(certificate.get()),
            .begins = seconds_of(X509_get0_notBefore(certificate.get())),
            .ends = seconds_of(X509_get0_notAfter(certificate.get()))};
}

bool is_due(const CertificateFacts& facts, long long now) {
    return facts.ends < now + RENEWAL_SECONDS || facts.begins > now;
}

std::string checked_certificate(const std::string& certificates, const std::string& key,
                                long long now) {
    const Bio from = reader(certificates);
    std::vector<Certificate> chain;
    while (Certificate one = next_certificate(from)) chain.push_back(std::move(one));
    if (chain.empty()) throw Failure("there is no certificate in the certificate's file");
    const PrivateKey own = read_key(key);
    if (X509_check_private_key(chain.front().get(), own.get()) != 1) {
        ERR_clear_error();
        throw Failure("the key is not that of the first certificate in the certificate's file");
    }
    require_valid(chain.front().get(), now);
    require_servable(chain, own.get());
    return together(own.get(), chain);
}

}  // namespace recorderctl
