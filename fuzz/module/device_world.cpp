// The device double's side of an input: the world the module finds (tokens, key pairs,
// certificates) and the results the double is scripted to give, both driven by the input.
#include <algorithm>
#include <array>
#include <string>

#include "call_state.h"
#include "device/device_operations.h"
#include "device/device_results.h"
#include "device_double.h"
#include "module_calls.h"
#include "objects/object_handles.h"

namespace dd = devicedouble;

namespace modulefuzz {

namespace {

std::string text(const Bytes& bytes, std::size_t limit) {
    return std::string(bytes.begin(), bytes.begin() + std::min(bytes.size(), limit));
}

const std::string& deviceArgument(CallInput& in, const CallState& state) {
    return state.devices[in.pick(state.devices.size())];
}

OstrelKeyPair fuzzedPair(CallInput& in) {
    dd::KeyPairBuilder pair(in.word() % kHandleRangeSize);
    const std::uint8_t shape = in.byte();
    pair.keyType(shape % 8 == 0 ? static_cast<std::int32_t>(in.word())
                                : static_cast<std::int32_t>(shape % 8));
    if ((shape & 0x08) != 0) {
        Bytes value = in.part();
        value.resize(std::min(value.size(), kPublicValueCapacity));
        pair.publicValue(value);
    }
    if ((shape & 0x10) != 0) {
        Bytes id = in.part();
        id.resize(std::min(id.size(), kObjectIdCapacity));
        pair.objectId(id);
    }
    if ((shape & 0x20) != 0) {
        pair.alias(text(in.part(), kAliasCapacity - 1));
    }
    pair.usageFlags(in.byte() % 4);
    pair.deletionFlag((shape & 0x40) != 0);
    return pair;
}

OstrelCertificate fuzzedCertificate(CallInput& in) {
    dd::CertificateBuilder certificate(in.word() % kHandleRangeSize);
    Bytes der = in.part();
    der.resize(std::min(der.size(), kCertificateDerCapacity));
    certificate.der(der);
    Bytes id = in.part();
    id.resize(std::min(id.size(), kObjectIdCapacity));
    certificate.objectId(id);
    certificate.label(text(in.part(), kCertificateLabelCapacity - 1));
    return certificate;
}

int resultCode(CallInput& in) {
    static const int kCodes[] = {
        device_result::kOk,
        device_result::kBadArgument,
        device_result::kBlankDevice,
        device_result::kObjectNotFound,
        device_result::kPinIncorrect,
        device_result::kPinLocked,
        device_result::kPinRequired,
        device_result::kKeyCannotDoThis,
        device_result::kInputSize,
        device_result::kSignatureInvalid,
        device_result::kDecryptFailed,
        device_result::kBufferTooSmall,
        device_result::kUnparsable,
        device_result::kBadHashContext,
        device_result::kBadInstance,
        device_result::kStorageFull,
        device_result::kDeviceUnreachable,
        device_result::kInternal,
        device_result::kNoRoomForObject,
    };
    const std::size_t choice = in.byte();
    if (choice < sizeof kCodes / sizeof kCodes[0]) {
        return kCodes[choice];
    }
    return static_cast<int>(in.word());
}

}  // namespace

void buildWorld(CallInput& in, CallState& state) {
    dd::reset();
    dd::setCreateInstanceYieldsNull(false);
    // Up to three tokens: FIPS 140-3, outside it, and below the firmware gate of PSS, OAEP and
    // ECDH; the header byte chooses which, and whether they hold the usual six pairs.
    static const std::array<TokenInfo, 3> kTokens = {
        dd::makeTokenInfo("SER1", "One", "OT2-S", "2.1.0"),
        dd::makeTokenInfo("SER2", "Two", "OT1-F", "2.1.0"),
        dd::makeTokenInfo("SER3", "Three", "OT2-S", "1.9.9"),
    };
    static const std::vector<OstrelKeyPair> kPairs = {
        dd::KeyPairBuilder(1),
        dd::KeyPairBuilder(2).keyType(kKeyTypeRsa1024),
        dd::KeyPairBuilder(3).keyType(kKeyTypeEcP256),
        dd::KeyPairBuilder(4).publicValue({0x30, 0x03, 0x02, 0x01, 0x07}),
        dd::KeyPairBuilder(5).keyType(kKeyTypeRsa3072).alias("five"),
        dd::KeyPairBuilder(6).keyType(kKeyTypeRsa4096).deletionFlag(true),
        dd::KeyPairBuilder(7).keyType(kKeyTypeEcP384).objectId({0x07}),
    };
    const std::uint8_t header = in.byte();
    state.devices.clear();
    for (std::size_t i = 0; i < kTokens.size(); ++i) {
        if (i != 0 && (header & (1u << i)) == 0) {
            continue;
        }
        dd::addDevice(kTokens[i]);
        if ((header & 0x10) == 0) {
            dd::setKeyPairs(kTokens[i].serialNumber, kPairs);
        }
        state.devices.push_back(kTokens[i].serialNumber);
    }
}

void scriptDevice(CallInput& in, CallState& state) {
    const std::uint8_t what = in.byte();
    switch (what % 12) {
        case 0:
        case 1: {
            const std::string name(
                device_operations::kNames[in.pick(device_operations::kNames.size())]);
            const int code = resultCode(in);
            const std::uint8_t times = in.byte();
            dd::scriptResult(name, code, times == 0xFF ? dd::kEveryCall : 1 + times % 3);
            break;
        }
        case 2: {
            static const char* const kNames[] = {"finalHash", "signHash",   "encrypt",
                                                 "decrypt",   "ecdhDerive", "generateRamdomNumber"};
            const std::size_t index = in.pick(6);
            Bytes output = in.part();
            // What a device gives: a digest of at most 64 bytes, other results of at most 1024.
            output.resize(std::min<std::size_t>(output.size(), index == 0 ? 64 : 1024));
            dd::scriptOutput(kNames[index], output);
            break;
        }
        case 3:
            dd::unplug(deviceArgument(in, state));
            break;
        case 4:
            dd::plug(deviceArgument(in, state));
            break;
        case 5: {
            std::vector<std::string> connected;
            const std::uint8_t mask = in.byte();
            for (std::size_t i = 0; i < state.devices.size(); ++i) {
                if ((mask & (1u << (i % 8))) != 0) {
                    connected.push_back(state.devices[(i + mask / 16) % state.devices.size()]);
                }
            }
            std::sort(connected.begin(), connected.end());
            connected.erase(std::unique(connected.begin(), connected.end()), connected.end());
            if ((mask & 0x80) != 0) {
                std::reverse(connected.begin(), connected.end());
            }
            dd::setConnectedDevices(connected);
            break;
        }
        case 6:
            dd::setRetryCount(deviceArgument(in, state), in.byte() % 12);
            break;
        case 7: {
            // A token with fuzzed texts: labels of any length, odd models and firmware versions,
            // an empty serial (a reader without a usable token).
            if (state.devices.size() >= 6) {
                break;
            }
            const std::string id = "FZ" + std::to_string(state.devices.size());
            TokenInfo info = dd::makeTokenInfo(id);
            const std::uint8_t fields = in.byte();
            if ((fields & 0x01) != 0) {
                info.label = text(in.part(), 255);
            }
            if ((fields & 0x02) != 0) {
                info.model = text(in.part(), 255);
            }
            if ((fields & 0x04) != 0) {
                info.firmwareVersion = text(in.part(), 255);
            }
            if ((fields & 0x08) != 0) {
                info.serialNumber.clear();
            }
            info.userPinChanged = (fields & 0x10) != 0 ? 0 : 1;
            info.freeObjectSpace = in.byte() % 4;
            dd::addDevice(id, info, (fields & 0x20) == 0);
            state.devices.push_back(id);
            break;
        }
        case 8: {
            std::vector<OstrelKeyPair> pairs;
            const std::string& device = deviceArgument(in, state);
            for (std::size_t i = 0, count = in.byte() % 4; i < count; ++i) {
                pairs.push_back(fuzzedPair(in));
            }
            dd::setKeyPairs(device, pairs);
            break;
        }
        case 9: {
            std::vector<OstrelCertificate> certificates;
            const std::string& device = deviceArgument(in, state);
            for (std::size_t i = 0, count = in.byte() % 3; i < count; ++i) {
                certificates.push_back(fuzzedCertificate(in));
            }
            dd::setCertificates(device, certificates);
            break;
        }
        case 10: {
            // The certificate-authority folder the chain of an imported certificate comes from.
            FileList files;
            for (std::size_t i = 0, count = in.byte() % 3; i < count; ++i) {
                files.emplace_back("ca" + std::to_string(i) + ".der", in.part());
            }
            dd::setFolderFiles(certificateFolder(), files);
            break;
        }
        default:
            dd::setCreateInstanceYieldsNull((what & 0x10) != 0);
            break;
    }
}

}  // namespace modulefuzz
