#include "objects/attribute_table.h"

#include <algorithm>
#include <iterator>

namespace {

using S = AttributeSource;

struct AttributeRow {
    CK_ATTRIBUTE_TYPE type;
    AttributeSources sources;
};

const AttributeRow kAttributeTable[] = {
    {CKA_CLASS, {S::ObjectClass, S::ObjectClass}},
    {CKA_TOKEN, {S::True, S::True}},
    {CKA_PRIVATE, {S::TrueForPrivate, S::False}},
    {CKA_LABEL, {S::Label, S::Label}},
    {CKA_VALUE, {S::PublicValue, S::CertificateDer}},
    {CKA_OBJECT_ID, {S::ObjectHandle, S::ObjectHandle}},
    {CKA_CERTIFICATE_TYPE, {S::Zero, S::Zero}},
    {CKA_ISSUER, {S::Empty, S::CertificateIssuer}},
    {CKA_SERIAL_NUMBER, {S::Empty, S::CertificateSerial}},
    {CKA_TRUSTED, {S::True, S::True}},
    {CKA_KEY_TYPE, {S::KeyType, S::Zero}},
    {CKA_SUBJECT, {S::Empty, S::CertificateSubject}},
    {CKA_ID, {S::ObjectId, S::ObjectId}},
    {CKA_SENSITIVE, {S::TrueForPrivate, S::False}},
    {CKA_ENCRYPT, {S::EncryptUsage, S::False}},
    {CKA_DECRYPT, {S::DecryptUsage, S::False}},
    {CKA_WRAP, {S::False, S::False}},
    {CKA_SIGN, {S::SignUsage, S::False}},
    {CKA_VERIFY, {S::VerifyUsage, S::False}},
    {CKA_VERIFY_RECOVER, {S::False, S::False}},
    {CKA_DERIVE, {S::False, S::False}},
    {CKA_MODULUS, {S::PublicValue, S::CertificateDer}},
    {CKA_MODULUS_BITS, {S::ModulusBits, S::ModulusBits2048}},
    {CKA_PUBLIC_EXPONENT, {S::PublicExponent, S::PublicExponent}},
    {CKA_EXTRACTABLE, {S::TrueForPublic, S::True}},
    {CKA_LOCAL, {S::True, S::True}},
    {CKA_KEY_GEN_MECHANISM, {S::KeyGenMechanism, S::Zero}},
    {CKA_MODIFIABLE, {S::False, S::True}},
    {CKA_EC_PARAMS, {S::EcParams, S::Empty}},
    {CKA_EC_POINT, {S::EcPoint, S::Empty}},
};

}  // namespace

AttributeSources attributeSources(CK_ATTRIBUTE_TYPE type) {
    const auto row = std::find_if(std::begin(kAttributeTable), std::end(kAttributeTable),
                                  [type](const AttributeRow& each) { return each.type == type; });
    return row == std::end(kAttributeTable) ? AttributeSources{S::False, S::False} : row->sources;
}
