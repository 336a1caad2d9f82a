#include "certificates.h"

#include <array>
#include <ctime>
#include <stdexcept>

namespace loopback {
namespace {

void RunOpenssl(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), OPENSSL_PROGRAM);
    const support::Outcome outcome = support::Run(arguments);
    if (outcome.exitCode != 0) {
        throw std::runtime_error("openssl " + arguments.at(1) + ": " + outcome.output);
    }
}

}  // namespace

std::string DaysFromNow(int days) {
    const std::time_t when = std::time(nullptr) + std::time_t{days} * 86400 + 43200;
    std::tm parts{};
    gmtime_r(&when, &parts);
    std::array<char, 32> text{};
    (void)std::strftime(text.data(), text.size(), "%Y%m%d%H%M%SZ", &parts);
    return text.data();
}

// openssl-ca(1) is the only one of its commands that takes both dates.
Certificates::Certificates() {
    support::WriteFile(folder_ / "index.txt", "");
    support::WriteFile(folder_ / "ca.cnf",
                       "[ca]\ndefault_ca = here\n[here]\ndatabase = " + (folder_ / "index.txt") +
                           "\nnew_certs_dir = " + folder_.Path().string() +
                           "\nrand_serial = yes\ndefault_md = sha256\npolicy = any\nunique_subject = no\n"
                           "[any]\ncommonName = supplied\n[req]\ndistinguished_name = name\n[name]\n");
}

std::string Certificates::Make(const CertificateRequest& request, const std::string& issuer) {
    RunOpenssl({"genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out", KeyOf(request.name)});
    return Sign(request, issuer);
}

std::string Certificates::MakeAgain(const CertificateRequest& request, const std::string& issuer) {
    return Sign(request, issuer);
}

std::string Certificates::Sign(const CertificateRequest& request, const std::string& issuer) {
    const std::string asked = folder_ / (request.name + ".csr");
    const std::string extensions = folder_ / (request.name + ".ext");
    RunOpenssl({"req", "-new", "-config", folder_ / "ca.cnf", "-subj", request.subject, "-key", KeyOf(request.name),
                "-out", asked});
    support::WriteFile(extensions, std::string("basicConstraints = critical, CA:") + (request.isCa ? "TRUE" : "FALSE") +
                                       "\nsubjectKeyIdentifier = hash\n" +
                                       (request.altNames.empty() ? "" : "subjectAltName = " + request.altNames + "\n"));
    std::vector<std::string> arguments{"ca",       "-batch", "-notext", "-config", folder_ / "ca.cnf",  "-extfile",
                                       extensions, "-in",    asked,     "-out",    PathOf(request.name)};
    if (issuer.empty()) {
        arguments.insert(arguments.end(), {"-selfsign", "-keyfile", KeyOf(request.name)});
    } else {
        arguments.insert(arguments.end(), {"-cert", PathOf(issuer), "-keyfile", KeyOf(issuer)});
    }
    arguments.insert(arguments.end(),
                     {"-startdate", request.notBefore.empty() ? DaysFromNow(-2) : request.notBefore, "-enddate",
                      request.notAfter.empty() ? DaysFromNow(request.days) : request.notAfter});
    RunOpenssl(arguments);
    return PathOf(request.name);
}

std::string Certificates::Chain(const std::string& name, const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& part : names) {
        text += support::Contents(PathOf(part));
    }
    support::WriteFile(folder_ / (name + ".pem"), text);
    return folder_ / (name + ".pem");
}

}  // namespace loopback
