// The calls an input is made of. Each reads its arguments from the input, calls the module (or
// scripts the device double) and keeps what the answer handed out for later calls.
#pragma once

#include <string>

#include "call_input.h"
#include "call_state.h"

namespace modulefuzz {

using Call = void (*)(CallInput&, CallState&);

// The device double (device_world.cpp).
void buildWorld(CallInput& in, CallState& state);
void scriptDevice(CallInput& in, CallState& state);
// Where the module looks for the issuers of an imported certificate (OSTREL_HOME is set to a
// folder of the harness's own; the double answers the listing).
std::string certificateFolder();

// Frame, slots, sessions and login (general_calls.cpp).
void callInitialize(CallInput& in, CallState& state);
void callFinalize(CallInput& in, CallState& state);
void callGetInfo(CallInput& in, CallState& state);
void callGetSlotList(CallInput& in, CallState& state);
void callGetSlotInfo(CallInput& in, CallState& state);
void callGetTokenInfo(CallInput& in, CallState& state);
void callGetMechanismList(CallInput& in, CallState& state);
void callGetMechanismInfo(CallInput& in, CallState& state);
void callWaitForSlotEvent(CallInput& in, CallState& state);
void callOpenSession(CallInput& in, CallState& state);
void callCloseSession(CallInput& in, CallState& state);
void callCloseAllSessions(CallInput& in, CallState& state);
void callGetSessionInfo(CallInput& in, CallState& state);
void callLogin(CallInput& in, CallState& state);
void callLogout(CallInput& in, CallState& state);
void callPinAdministration(CallInput& in, CallState& state);
void callUnsupported(CallInput& in, CallState& state);

// Objects (object_calls.cpp).
void callFindObjectsInit(CallInput& in, CallState& state);
void callFindObjects(CallInput& in, CallState& state);
void callFindObjectsFinal(CallInput& in, CallState& state);
void callGetAttributeValue(CallInput& in, CallState& state);
void callSetAttributeValue(CallInput& in, CallState& state);
void callGetObjectSize(CallInput& in, CallState& state);
void callCreateObject(CallInput& in, CallState& state);
void callDestroyObject(CallInput& in, CallState& state);
void callGenerateKeyPair(CallInput& in, CallState& state);
void callDeriveKey(CallInput& in, CallState& state);

// Cryptographic operations (crypto_calls.cpp).
void callDigestInit(CallInput& in, CallState& state);
void callDigest(CallInput& in, CallState& state);
void callDigestUpdate(CallInput& in, CallState& state);
void callDigestFinal(CallInput& in, CallState& state);
void callSignInit(CallInput& in, CallState& state);
void callSign(CallInput& in, CallState& state);
void callSignUpdate(CallInput& in, CallState& state);
void callSignFinal(CallInput& in, CallState& state);
void callVerifyInit(CallInput& in, CallState& state);
void callVerify(CallInput& in, CallState& state);
void callVerifyUpdate(CallInput& in, CallState& state);
void callVerifyFinal(CallInput& in, CallState& state);
void callEncryptInit(CallInput& in, CallState& state);
void callEncrypt(CallInput& in, CallState& state);
void callDecryptInit(CallInput& in, CallState& state);
void callDecrypt(CallInput& in, CallState& state);
void callRandom(CallInput& in, CallState& state);

}  // namespace modulefuzz
