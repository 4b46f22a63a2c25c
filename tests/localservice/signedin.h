#pragma once

#include "core/secretstore.h"
#include "localservicefixture.h"
#include "service/authmanager.h"
#include "support/isolatedenvironment.h"

#include <QtTest>

namespace sorv::test {

// The demo account signs in through `auth` to the run's local service; the
// test program stops when it cannot. Each sign-in is a session of its own:
// it waits for a new token, also when the secrets held one already.
inline void signIn(AuthManager& auth)
{
    const QString before = auth.accessToken();
    auth.login(local::LocalService::kDemoEmail, local::LocalService::kDemoPassword);
    if (!QTest::qWaitFor([&] { return auth.isLoggedIn() && auth.accessToken() != before; }, 20000))
        qFatal("could not sign in to the local service");
}

// A local service of the test's own, in a private environment with its
// secrets in the private file, and a session nobody has signed in to yet.
struct SignedOut {
    explicit SignedOut(local::LocalService::Options options = {}) : service(std::move(options)) {}

    IsolatedEnvironment env;
    LocalServiceFixture service;
    SecretStore secrets{SecretStore::Options::fileOnly()};
    AuthManager auth{secrets};
};

// The same with the demo account signed in: where most tests of the
// service's views and transcripts start.
struct SignedIn : SignedOut {
    explicit SignedIn(local::LocalService::Options options = {}) : SignedOut(std::move(options))
    {
        signIn(auth);
    }
};

} // namespace sorv::test
