// The library tells one error only, the first that it met.
#include "call/certificate.h"

#include <openssl/x509_vfy.h>

namespace room {
namespace {

constexpr std::int64_t kSecondsOfDay = 86400;

std::string Days(std::int64_t days) {
    return std::to_string(days) + (days == 1 ? " day" : " days");
}

std::string WhyNotTrusted(const Certificate& certificate, const std::string& wanted) {
    switch (certificate.verifyError) {
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return certificate.errorDepth == 0 && certificate.secondsLeft < 0
                       ? "certificate expired " + Days(-1 - DaysLeft(certificate)) + " ago; renew it"
                       : "a certificate of the chain has expired; renew it";
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return "certificate is not valid yet; check this computer's clock";
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return "certificate is for " + (certificate.names.empty() ? "nobody" : certificate.names) + ", not for " +
                   wanted;
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
            return "certificate signed by itself; name it as caFile if it is meant";
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
            return "certificate's issuer is not trusted here; check the server's chain, or name its root as caFile";
        case X509_V_ERR_CERT_CHAIN_TOO_LONG:
            return "certificate chain is too long; check the server's chain";
        default:
            return std::string("certificate refused: ") + X509_verify_cert_error_string(certificate.verifyError);
    }
}

}  // namespace

std::int64_t DaysLeft(const Certificate& certificate) {
    const std::int64_t seconds = certificate.secondsLeft;
    return seconds >= 0 ? seconds / kSecondsOfDay : -((-seconds + kSecondsOfDay - 1) / kSecondsOfDay);
}

std::optional<Finding> JudgeCertificate(const Certificate& certificate, const std::string& wanted, const Trust& trust) {
    if (certificate.verifyError != X509_V_OK) {
        return Fail(WhyNotTrusted(certificate, wanted));
    }
    const std::int64_t days = DaysLeft(certificate);
    const std::string text = "certificate ends in " + Days(days) + "; renew it";
    if (days < std::int64_t{trust.failDays}) {
        return Fail(text);
    }
    if (days < std::int64_t{trust.warnDays}) {
        return Warn(text);
    }
    return std::nullopt;
}

}  // namespace room
