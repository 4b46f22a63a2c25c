#pragma once

#include "core/secretstore.h"
#include "localservicefixture.h"
#include "service/authmanager.h"
#include "support/isolatedenvironment.h"

#include <QtTest>

namespace sorv::test {

// The demo account signed in to a local service of the test's own, in a
// private environment with its secrets in the private file: where most tests
// of the service's views and transcripts start.
struct SignedIn {
    explicit SignedIn(local::LocalService::Options options = {}) : service(std::move(options))
    {
        auth.login(local::LocalService::kDemoEmail, local::LocalService::kDemoPassword);
        if (!QTest::qWaitFor([&] { return auth.isLoggedIn(); }, 20000))
            qFatal("could not sign in to the local service");
    }

    IsolatedEnvironment env;
    LocalServiceFixture service;
    SecretStore secrets{SecretStore::Options::fileOnly()};
    AuthManager auth{secrets};
};

} // namespace sorv::test
