// What each attribute of a key or certificate reads as: one constant table that maps an
// attribute type to the source of its value for each object kind, and the table of key-type
// codes. C_GetAttributeValue reads through it; nothing else decides an attribute's value.
// The table is lenient on purpose (compatibility register, entry 20).
#pragma once

#include "cryptoki/cryptoki.h"

// Where an attribute's value comes from.
enum class AttributeSource {
    False,               // one byte CK_FALSE (also every type the table does not list)
    True,                // one byte CK_TRUE
    TrueForPrivate,      // CK_TRUE for the private half of a key pair
    TrueForPublic,       // CK_TRUE for the public half
    EncryptUsage,        // CK_TRUE for the public half when the pair encrypts
    DecryptUsage,        // CK_TRUE for the private half when the pair decrypts
    SignUsage,           // CK_TRUE for the private half when the pair signs
    VerifyUsage,         // CK_TRUE for the public half when the pair signs
    ObjectClass,         // CK_ULONG: CKO_PRIVATE_KEY, CKO_PUBLIC_KEY or CKO_CERTIFICATE
    ObjectHandle,        // CK_ULONG: the object's own handle
    Zero,                // CK_ULONG 0
    ModulusBits2048,     // CK_ULONG 2048
    KeyType,             // CK_ULONG from the key-type code
    ModulusBits,         // CK_ULONG from the key-type code
    KeyGenMechanism,     // CK_ULONG from the key-type code
    Label,               // the effective label, without NUL
    PublicValue,         // the key pair's public value
    CertificateDer,      // the certificate's DER
    ObjectId,            // CKA_ID bytes
    CertificateSubject,  // DER of the subject, from the device library
    CertificateIssuer,   // DER of the issuer
    CertificateSerial,   // DER of the serial number
    PublicExponent,      // 01 00 01
    EcParams,            // the named curve's OID from the key-type code, empty for RSA
    EcPoint,             // the public value as a DER OCTET STRING
    Empty,               // no bytes
};

struct AttributeSources {
    AttributeSource key;
    AttributeSource certificate;
};

// The sources of an attribute type; {False, False} for a type the table does not list.
AttributeSources attributeSources(CK_ATTRIBUTE_TYPE type);
