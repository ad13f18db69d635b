// Certificate parsing and the certificate-folder reader. These operations address no device and
// are passed a null instance by the module, so they do not check it.
#include <algorithm>
#include <cctype>

#include "double_state.h"

namespace devicedouble {

using detail::state;

void setCertificateInfo(const Bytes& der, const CertificateInfo& info) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.certificateInfo[der] = info;
}

void setFolderFiles(const std::string& folder, const FileList& files) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.folders[folder] = files;
}

namespace {

using detail::Operation;

bool endsWithIgnoringCase(const std::string& name, const std::string& suffix) {
    if (suffix.size() > name.size())
        return false;
    return std::equal(suffix.rbegin(), suffix.rend(), name.rbegin(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) ==
               std::tolower(static_cast<unsigned char>(b));
    });
}

// Records the DER argument and finds what to answer for it: the scripted info, else what the
// double's own reader makes of it. Returns the scripted code instead when there is one.
std::optional<int> lookUpCertificate(Operation& op, const unsigned char* der, int derLength,
                                     CertificateInfo& info, bool& found) {
    Bytes derBytes = op.bytes(der, derLength, "der");
    op.number(derLength);
    auto script = op.scripted();
    if (script && *script != 0)
        return script;
    auto scripted = op.state().certificateInfo.find(derBytes);
    if (scripted != op.state().certificateInfo.end()) {
        info = scripted->second;
        found = true;
    } else {
        found = detail::parseCertificate(derBytes, info);
    }
    if (script)
        found = true;  // a scripted success answers even for an unreadable DER
    return std::nullopt;
}

}  // namespace

}  // namespace devicedouble

using devicedouble::CertificateInfo;
using devicedouble::detail::Operation;
namespace dd = devicedouble;

FileList ostrel_getFilesWithExtensionsAndConvertDER(const std::string& folder,
                                                    const std::vector<std::string>& extensions,
                                                    DeviceInstance instance) {
    Operation op("getFilesWithExtensionsAndConvertDER", instance);
    op.call().texts.push_back(folder);
    op.call().texts.insert(op.call().texts.end(), extensions.begin(), extensions.end());
    auto script = op.scripted();
    if (script && *script != 0)
        return {};
    auto found = op.state().folders.find(folder);
    if (found == op.state().folders.end())
        return {};
    FileList result;
    for (const auto& extension : extensions) {
        for (const auto& file : found->second) {
            if (dd::endsWithIgnoringCase(file.first, extension))
                result.push_back(file);
        }
    }
    return result;
}

int ostrel_getCertificateDetails(const unsigned char* der, int derLength,
                                 CertificateDetails& details, DeviceInstance instance) {
    Operation op("getCertificateDetails", instance);
    CertificateInfo info;
    bool found = false;
    if (auto answer = dd::lookUpCertificate(op, der, derLength, info, found))
        return *answer;
    if (!found)
        return dd::kResultBadData;
    details = info.details;
    return 0;
}

Bytes ostrel_getCertificateSubject(const unsigned char* der, int derLength,
                                   DeviceInstance instance) {
    Operation op("getCertificateSubject", instance);
    CertificateInfo info;
    bool found = false;
    if (dd::lookUpCertificate(op, der, derLength, info, found) || !found)
        return {};
    return info.subject;
}

Bytes ostrel_getCertificateIssuer(const unsigned char* der, int derLength,
                                  DeviceInstance instance) {
    Operation op("getCertificateIssuer", instance);
    CertificateInfo info;
    bool found = false;
    if (dd::lookUpCertificate(op, der, derLength, info, found) || !found)
        return {};
    return info.issuer;
}

Bytes ostrel_getCertificateSerialDER(const unsigned char* der, int derLength,
                                     DeviceInstance instance) {
    Operation op("getCertificateSerialDER", instance);
    CertificateInfo info;
    bool found = false;
    if (dd::lookUpCertificate(op, der, derLength, info, found) || !found)
        return {};
    return info.serial;
}
