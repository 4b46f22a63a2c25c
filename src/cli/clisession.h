#pragma once

#include "cli/command.h"
#include "core/secretstore.h"
#include "service/accountsource.h"
#include "service/authmanager.h"

namespace sorv::cli {

// The session as every command that talks to the service needs it: the
// stored secrets, the AuthManager over them, the account's lists through
// it, and the signed-in check.
class CliSession {
public:
    explicit CliSession(const CommandContext& ctx);

    SecretStore& secrets() { return m_secrets; }
    AuthManager& auth() { return m_auth; }
    AccountSource& source() { return m_source; }

    // Without a session the service would only refuse, so say so at once,
    // with the command that signs in.
    bool requireSignedIn();

private:
    const CommandContext& m_ctx;
    SecretStore m_secrets;
    AuthManager m_auth;
    ServiceAccountSource m_source{m_auth};
};

} // namespace sorv::cli
