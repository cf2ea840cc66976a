#pragma once

#include <filesystem>
#include <string>

namespace velmo::test {

/// What is wrong with the certificate that a test server shows. All are made in this process, once.
enum class Certificate {
    good,             ///< for "localhost", 127.0.0.1 and ::1, by the tests' own authority
    expired,          ///< as good, but ended yesterday
    wrongHost,        ///< by the tests' authority, for "elsewhere.test"
    selfSigned,       ///< for the right names, signed by itself
    unknownAuthority, ///< for the right names, by an authority that nobody trusts
};

/// A certificate and its private key.
struct Identity {
    std::string certificatePEM;
    std::string keyPEM;
};

const Identity& identity(Certificate certificate);

/// The file with the certificate of the tests' authority.
std::filesystem::path authorityFile();

/// Makes this process trust the tests' authority (by SSL_CERT_FILE), and no other.
void trustTestAuthority();

}
