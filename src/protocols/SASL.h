#pragma once

#include "protocols/MailCredential.h"

#include <string>
#include <vector>

/// What mail clients say to sign in (RFC 4422), in base64.
namespace velmo {

/// The message of PLAIN (RFC 4616), from a password.
std::string plainResponse(const MailCredential& credential);

/// The message of XOAUTH2, from an access token.
std::string xoauth2Response(const MailCredential& credential);

/// Every form in which the secret goes out in a sign-in; none when there is no secret.
std::vector<std::string> secretForms(const MailCredential& credential);

}
