#include "support/TestCertificates.h"

#include "support/TemporaryDirectory.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <stdexcept>

namespace velmo::test {

namespace {

using Key = std::shared_ptr<EVP_PKEY>;
using X509Certificate = std::shared_ptr<X509>;

struct Signer {
    Key key;
    X509Certificate certificate;
};

Key makeKey() {
    EVP_PKEY* key = EVP_EC_gen("P-256");
    if (!key) throw std::runtime_error("no key");
    return {key, EVP_PKEY_free};
}

void addExtension(X509* certificate, int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str()), X509_EXTENSION_free);
    if (!extension) throw std::runtime_error("no extension");
    X509_add_ext(certificate, extension.get(), -1);
}

struct Wish {
    std::string commonName;
    std::string names; ///< subjectAltName; empty for an authority
    int firstDay = -30;
    int lastDay = 30;
};

/// A certificate for `key`, signed by `signer`, or by itself without one.
X509Certificate makeCertificate(const Key& key, const Wish& wish, const Signer* signer) {
    static long serial = 1;
    X509Certificate certificate(X509_new(), X509_free);
    X509_set_version(certificate.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial++);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), wish.firstDay * 86'400L);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), wish.lastDay * 86'400L);
    X509_set_pubkey(certificate.get(), key.get());
    X509_NAME* name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(wish.commonName.c_str()), -1, -1, 0);
    X509_set_issuer_name(certificate.get(), signer ? X509_get_subject_name(signer->certificate.get()) : name);
    if (wish.names.empty()) {
        addExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    } else {
        addExtension(certificate.get(), NID_subject_alt_name, wish.names);
    }
    X509_sign(certificate.get(), signer ? signer->key.get() : key.get(), EVP_sha256());
    return certificate;
}

template <class Write>
std::string pem(Write write) {
    const std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    write(bio.get());
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

Signer makeAuthority(const std::string& name) {
    Wish wish;
    wish.commonName = name;
    Key key = makeKey();
    X509Certificate certificate = makeCertificate(key, wish, nullptr);
    return {std::move(key), std::move(certificate)};
}

const Signer& testAuthority() {
    static const Signer authority = makeAuthority("Test authority");
    return authority;
}

Identity makeIdentity(Certificate kind) {
    Wish wish;
    wish.commonName = "localhost";
    wish.names = "DNS:localhost,IP:127.0.0.1,IP:::1";
    if (kind == Certificate::expired) wish.lastDay = -1;
    if (kind == Certificate::wrongHost) wish.names = "DNS:elsewhere.test";
    const Key key = makeKey();
    X509Certificate certificate;
    if (kind == Certificate::selfSigned) {
        certificate = makeCertificate(key, wish, nullptr);
    } else if (kind == Certificate::unknownAuthority) {
        const Signer stranger = makeAuthority("Stranger");
        certificate = makeCertificate(key, wish, &stranger);
    } else {
        certificate = makeCertificate(key, wish, &testAuthority());
    }
    Identity identity;
    identity.certificatePEM = pem([&](BIO* bio) { PEM_write_bio_X509(bio, certificate.get()); });
    identity.keyPEM =
        pem([&](BIO* bio) { PEM_write_bio_PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr, nullptr); });
    return identity;
}

}

const Identity& identity(Certificate certificate) {
    static std::map<Certificate, Identity> made;
    const auto found = made.find(certificate);
    if (found != made.end()) return found->second;
    return made.emplace(certificate, makeIdentity(certificate)).first->second;
}

std::filesystem::path authorityFile() {
    static const TemporaryDirectory directory;
    static const std::filesystem::path file = [] {
        const std::filesystem::path path = directory / "authority.pem";
        writeFile(path, pem([](BIO* bio) { PEM_write_bio_X509(bio, testAuthority().certificate.get()); }));
        return path;
    }();
    return file;
}

void trustTestAuthority() {
    static const bool done = [] {
        setenv("SSL_CERT_FILE", authorityFile().c_str(), 1);
        setenv("SSL_CERT_DIR", "/nonexistent", 1);
        return true;
    }();
    static_cast<void>(done);
}

}
