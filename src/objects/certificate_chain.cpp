#include "objects/certificate_chain.h"

#include <algorithm>
#include <map>
#include <regex>

#include "log/log.h"
#include "platform/platform.h"

namespace {

// The extensions the folder is read for, in this order.
const std::vector<std::string> kCertificateExtensions = {".cer", ".der", ".pem", ".crt"};

std::string installationFolder() {
    const std::optional<std::string> home = platform::environmentVariable("OSTREL_HOME");
    if (home && !home->empty()) {
        return *home;
    }
    // The same text on every platform (compatibility register, entry 6).
    logInfo("OSTREL_HOME not set \xE2\x80\x94 Using Windows defaults");
    for (const std::string& folder : platform::defaultInstallationFolders()) {
        if (platform::isDirectory(folder)) {
            return folder;
        }
    }
    return platform::moduleFolder();
}

bool isRoot(const CertificateDetails& details) {
    return details.issuerName == details.subjectName;
}

}  // namespace

std::string commonNameOf(const std::string& distinguishedName) {
    static const std::regex kCommonName("CN=([^,\\n\\r]+)");
    std::smatch match;
    if (!std::regex_search(distinguishedName, match, kCommonName)) {
        return {};
    }
    return match[1].str();
}

std::string certificateAuthorityFolder() {
    const char separator = platform::folderSeparator();
    std::string folder = installationFolder();
    folder += separator;
    folder += "OstrelDSC";
    folder += separator;
    folder += "Certificates";
    logInfo("CA Folder: " + folder);
    return folder;
}

std::vector<ChainMember> chainFromFolder(const ChainMember& certificate,
                                         const std::string& folder) {
    // The folder's certificates by the common name of their subject; the first file of a name
    // wins. The folder reader takes no instance.
    std::map<std::string, ChainMember> bySubject;
    for (auto& file :
         ostrel_getFilesWithExtensionsAndConvertDER(folder, kCertificateExtensions, nullptr)) {
        ChainMember member{std::move(file.second), {}};
        if (ostrel_getCertificateDetails(member.der.data(), static_cast<int>(member.der.size()),
                                         member.details, nullptr) != 0) {
            continue;
        }
        bySubject.emplace(commonNameOf(member.details.subjectName), std::move(member));
    }

    std::vector<ChainMember> chain{certificate};
    // A chain can be no longer than the folder is large; a loop of issuers ends there.
    while (!isRoot(chain.back().details) && chain.size() <= bySubject.size()) {
        const std::string issuer = commonNameOf(chain.back().details.issuerName);
        const auto found = bySubject.find(issuer);
        if (found == bySubject.end()) {
            logInfo("Issuer '" + issuer + "' NOT found \xE2\x80\x94 skipping chain import");
            return {};
        }
        chain.push_back(found->second);
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
}
