#pragma once

#include "cli/command.h"
#include "core/secretstore.h"
#include "service/authmanager.h"

namespace sorv::cli {

// The session as every command that talks to the service needs it: the
// stored secrets, the AuthManager over them, and the signed-in check.
class CliSession {
public:
    explicit CliSession(const CommandContext& ctx);

    SecretStore& secrets() { return m_secrets; }
    AuthManager& auth() { return m_auth; }

    // Without a session the service would only refuse, so say so at once,
    // with the command that signs in.
    bool requireSignedIn();

private:
    const CommandContext& m_ctx;
    SecretStore m_secrets;
    AuthManager m_auth;
};

} // namespace sorv::cli
