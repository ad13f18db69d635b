// The chain of a certificate's issuers, as the installation's certificate-authority folder holds
// them: found by the common names of subjects and issuers, and imported root first.
#pragma once

#include <string>
#include <vector>

#include "device/ostrel_device.h"

// The common name of a distinguished name in text form: the first capture of the expression
// CN=([^,\n\r]+) in it, empty when there is none.
std::string commonNameOf(const std::string& distinguishedName);

// The certificate-authority folder: the installation folder (OSTREL_HOME when set and not
// empty, else the first default installation folder that exists, else the module's own folder)
// followed by OstrelDSC and Certificates. Logs "CA Folder: " and the folder; without
// OSTREL_HOME also "OSTREL_HOME not set — Using Windows defaults".
std::string certificateAuthorityFolder();

struct ChainMember {
    Bytes der;
    CertificateDetails details;
};

// The chain from the certificate up to a root (a certificate whose issuer equals its subject),
// root first and the certificate itself last; empty when an issuer on the way has no file in
// the folder (logged as "Issuer '<name>' NOT found — skipping chain import").
std::vector<ChainMember> chainFromFolder(const ChainMember& certificate, const std::string& folder);
