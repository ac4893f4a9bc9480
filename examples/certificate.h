// TLS contexts for the two ends: the agent shows a certificate of its own making, the client trusts
// that one and no other.
#pragma once

#include <ace/SSL/SSL_Context.h>

#include <string>

/// Makes a key and a certificate for "localhost", valid for a day, gives both to `context` and
/// writes the certificate (not the key) to `certificateFile`. Throws std::runtime_error.
void showNewCertificate(ACE_SSL_Context& context, const std::string& certificateFile);

/// Makes `context` accept the certificate in that file alone. Throws std::runtime_error.
void trustOnly(ACE_SSL_Context& context, const std::string& certificateFile);
