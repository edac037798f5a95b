// The web server's certificate: what is made is right, and what is given is not taken on trust.
#include "tools/recorderctl/web_certificate.h"

#include <gtest/gtest.h>

#include "tools/recorderctl/commands.h"

namespace recorderctl {

namespace {

constexpr long long NOW = 1'800'000'000;
constexpr long long DAY = 24 * 3600;
const std::vector<std::string> NAMES = {"192.0.2.10", "2001:db8::10", "recorder.example"};

std::string key_of(const std::string& pem) {
    return pem.substr(0, pem.find("-----BEGIN CERTIFICATE"));
}

std::string certificate_of(const std::string& pem) {
    return pem.substr(pem.find("-----BEGIN CERTIFICATE"));
}

/// The words of the refusal; "" when it is taken.
std::string refusal(const std::string& certificates, const std::string& key, long long now) {
    try {
        checked_certificate(certificates, key, now);
        return "";
    } catch (const Failure& failure) {
        return failure.what();
    }
}

TEST(WebCertificate, IsForItsNamesAndNoLongerThanBrowsersTake) {
    const CertificateFacts facts = read_certificate(make_certificate(NAMES, NOW));
    EXPECT_EQ(facts.names, NAMES);
    EXPECT_EQ(facts.ends - facts.begins, 397 * DAY);
    EXPECT_LE(facts.begins, NOW);
    EXPECT_EQ(facts.fingerprint.size(), 32 * 3 - 1);
}

TEST(WebCertificate, IsAnotherEachTime) {
    const std::string first = make_certificate(NAMES, NOW);
    const std::string second = make_certificate(NAMES, NOW);
    EXPECT_NE(key_of(first), key_of(second));
    EXPECT_NE(read_certificate(first).fingerprint, read_certificate(second).fingerprint);
}

TEST(WebCertificate, IsDueThirtyDaysBeforeItsEnd) {
    const CertificateFacts facts = read_certificate(make_certificate(NAMES, NOW));
    EXPECT_FALSE(is_due(facts, NOW));
    EXPECT_FALSE(is_due(facts, facts.ends - 30 * DAY));
    EXPECT_TRUE(is_due(facts, facts.ends - 30 * DAY + 1));
    EXPECT_TRUE(is_due(facts, facts.ends + 1));
}

TEST(WebCertificate, IsDueWhereTheClockWasAheadWhenItWasMade) {
    EXPECT_TRUE(is_due(read_certificate(make_certificate(NAMES, NOW + DAY)), NOW));
}

TEST(WebCertificate, IsTakenWithItsKeyWhereverThatStands) {
    const std::string pem = make_certificate(NAMES, NOW);
    EXPECT_EQ(checked_certificate(pem, pem, NOW), pem);
    EXPECT_EQ(checked_certificate(certificate_of(pem), key_of(pem), NOW), pem);
}

TEST(WebCertificate, KeepsThoseBehindItInTheirOrder) {
    const std::string pem = make_certificate(NAMES, NOW);
    const std::string chain = certificate_of(pem) + certificate_of(make_certificate(NAMES, NOW));
    EXPECT_EQ(checked_certificate(chain, key_of(pem), NOW), key_of(pem) + chain);
}

TEST(WebCertificate, IsRefusedWithAnothersKey) {
    const std::string pem = make_certificate(NAMES, NOW);
    const std::string other = make_certificate(NAMES, NOW);
    EXPECT_NE(refusal(certificate_of(pem), key_of(other), NOW).find("not that of"),
              std::string::npos);
}

TEST(WebCertificate, IsRefusedWithADamagedOneBehindIt) {
    const std::string pem = make_certificate(NAMES, NOW);
    const std::string behind = certificate_of(make_certificate(NAMES, NOW));
    for (const std::string& damaged :
         {behind.substr(0, behind.size() / 2), std::string(behind).replace(100, 1, "?"),
          "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n" + behind})
        EXPECT_NE(refusal(certificate_of(pem) + damaged, pem, NOW).find("is damaged"),
                  std::string::npos);
    EXPECT_EQ(refusal(certificate_of(pem) + "some words\n", pem, NOW), "");
}

TEST(WebCertificate, IsRefusedBeforeAndBehindItsTime) {
    const std::string pem = make_certificate(NAMES, NOW);
    const CertificateFacts facts = read_certificate(pem);
    EXPECT_EQ(refusal(pem, pem, facts.begins), "");
    EXPECT_NE(refusal(pem, pem, facts.begins - 1).find("not valid before"), std::string::npos);
    EXPECT_EQ(refusal(pem, pem, facts.ends - 1), "");
    EXPECT_NE(refusal(pem, pem, facts.ends).find("has ended"), std::string::npos);
}

TEST(WebCertificate, IsRefusedWithoutAKeyAndAKeyWithoutIt) {
    const std::string pem = make_certificate(NAMES, NOW);
    for (const std::string& nothing : {std::string(), std::string("-----BEGIN CERTIFICATE-----\n"),
                                       pem.substr(0, pem.size() / 2), std::string(5000, '\0')}) {
        EXPECT_NE(refusal(nothing, pem, NOW), "");
        EXPECT_NE(refusal(pem, nothing.substr(0, 28), NOW), "");
    }
    EXPECT_THROW(read_certificate(key_of(pem)), Failure);
}

}  // namespace

}  // namespace recorderctl
