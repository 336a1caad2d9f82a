// Certificates of a test, made with openssl(1).
#pragma once

#include <string>
#include <vector>

#include "support/child.h"
#include "support/temp_folder.h"

namespace loopback {

// What a certificate is to be. Times are "20300101000000Z".
struct CertificateRequest {
    std::string name;  // of its files
    std::string subject = "/CN=test";
    std::string altNames = "IP:127.0.0.1";  // empty for none
    std::string notBefore = {};             // empty: now
    std::string notAfter = {};              // empty: as `days` says
    int days = 365;
    bool isCa = false;
};

// Makes keys and certificates in a folder; `issuer` is the name of one made before, or empty for one signed by itself.
class Certificates {
public:
    Certificates();

    // The path of the certificate; its key is the same with KeyOf.
    std::string Make(const CertificateRequest& request, const std::string& issuer = "");
    // The same with the key that there is.
    std::string MakeAgain(const CertificateRequest& request, const std::string& issuer);
    [[nodiscard]] std::string PathOf(const std::string& name) const { return folder_ / (name + ".pem"); }
    [[nodiscard]] std::string KeyOf(const std::string& name) const { return folder_ / (name + ".key"); }
    [[nodiscard]] std::string Path(const std::string& file) const { return folder_ / file; }

    // The certificates in one file, in this order.
    std::string Chain(const std::string& name, const std::vector<std::string>& names);

private:
    std::string Sign(const CertificateRequest& request, const std::string& issuer);

    support::TempFolder folder_;
};

// For notBefore and notAfter: half a day later than so many days from now, so that whole days are the same for hours.
std::string DaysFromNow(int days);

}  // namespace loopback
