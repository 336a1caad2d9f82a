// What is said of certificates, and from how many days on.
#include "call/certificate.h"

#include <gtest/gtest.h>

#include <openssl/x509_vfy.h>

using namespace room;

namespace {

constexpr std::int64_t kDay = 86400;

Finding Judge(int error, std::int64_t secondsLeft, int depth = 0) {
    const Certificate certificate{error, depth, "a.example, b.example", secondsLeft};
    return JudgeCertificate(certificate, "meet.example", Trust{}).value_or(Finding{Status::Success, ""});
}

TEST(Certificate, TheDaysLeftDecide) {
    EXPECT_EQ(Judge(X509_V_OK, 21 * kDay).status, Status::Success);
    EXPECT_EQ(Judge(X509_V_OK, 21 * kDay - 1).status, Status::Warn);
    EXPECT_EQ(Judge(X509_V_OK, 21 * kDay - 1).text, "certificate ends in 20 days; renew it");
    EXPECT_EQ(Judge(X509_V_OK, 3 * kDay).status, Status::Warn);
    EXPECT_EQ(Judge(X509_V_OK, 3 * kDay - 1).status, Status::Fail);
    EXPECT_EQ(Judge(X509_V_OK, kDay).text, "certificate ends in 1 day; renew it");
    EXPECT_EQ(Judge(X509_V_OK, 0).text, "certificate ends in 0 days; renew it");
}

TEST(Certificate, TheRoomsFileSetsTheDays) {
    Trust trust;
    trust.warnDays = 100;
    trust.failDays = 50;
    const auto status = [&](std::int64_t days) {
        const auto finding = JudgeCertificate({X509_V_OK, 0, "a", days * kDay}, "a", trust);
        return finding ? finding->status : Status::Success;
    };
    EXPECT_EQ(status(100), Status::Success);
    EXPECT_EQ(status(99), Status::Warn);
    EXPECT_EQ(status(49), Status::Fail);
    trust.warnDays = 0;
    trust.failDays = 0;
    EXPECT_EQ(status(0), Status::Success) << "zero days: only an expired one is bad";
}

TEST(Certificate, DaysAreWholeAndRoundedDown) {
    EXPECT_EQ(DaysLeft({0, 0, "", kDay}), 1);
    EXPECT_EQ(DaysLeft({0, 0, "", kDay - 1}), 0);
    EXPECT_EQ(DaysLeft({0, 0, "", -1}), -1);
    EXPECT_EQ(DaysLeft({0, 0, "", -kDay}), -1);
    EXPECT_EQ(DaysLeft({0, 0, "", -kDay - 1}), -2);
}

TEST(Certificate, WhatIsWrongIsSaid) {
    EXPECT_EQ(Judge(X509_V_ERR_CERT_HAS_EXPIRED, -3 * kDay).text, "certificate expired 2 days ago; renew it");
    EXPECT_EQ(Judge(X509_V_ERR_CERT_HAS_EXPIRED, 90 * kDay, 1).text,
              "a certificate of the chain has expired; renew it");
    EXPECT_EQ(Judge(X509_V_ERR_CERT_NOT_YET_VALID, kDay).text,
              "certificate is not valid yet; check this computer's clock");
    EXPECT_EQ(Judge(X509_V_ERR_HOSTNAME_MISMATCH, kDay).text,
              "certificate is for a.example, b.example, not for meet.example");
    EXPECT_EQ(Judge(X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, kDay).text,
              "certificate signed by itself; name it as caFile if it is meant");
    EXPECT_EQ(Judge(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, kDay).text,
              "certificate's issuer is not trusted here; check the server's chain, or name its root as caFile");
    EXPECT_EQ(Judge(X509_V_ERR_CERT_CHAIN_TOO_LONG, kDay).text,
              "certificate chain is too long; check the server's chain");
    EXPECT_EQ(Judge(X509_V_ERR_CERT_REVOKED, kDay).text, "certificate refused: certificate revoked");
    for (const int error : {X509_V_ERR_CERT_HAS_EXPIRED, X509_V_ERR_HOSTNAME_MISMATCH, X509_V_ERR_CERT_REVOKED}) {
        EXPECT_EQ(Judge(error, 100 * kDay).status, Status::Fail);
    }
}

}  // namespace
