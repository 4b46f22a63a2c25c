#pragma once

#include <QString>

#include <chrono>
#include <cstdint>

namespace sorv::local {

// The demo account, made on the first start.
inline const QString kDemoEmail = QStringLiteral("demo@sorvelandrix.local");
inline const QString kDemoPassword = QStringLiteral("demo");

// LocalService::Options, apart from the service so that its parts (the
// state, the transport) need not know it.
struct ServiceOptions {
    QString dataDirectory;
    bool mfa = false; // sign-in asks for an e-mailed code
    std::chrono::seconds accessTokenLifetime{15 * 60};
    std::chrono::milliseconds meetingPhase{3000};     // time a bot spends in each start-up state
    std::chrono::milliseconds meetingStreamPace{400}; // between a meeting stream's events
    bool logRequests = false;                         // one console line per request
    std::chrono::milliseconds processingTime{5000};   // an upload's time in "processing"
    std::chrono::milliseconds idleTimeout{30000};     // a kept-alive connection's quiet time
    // A request head must be complete this long after the connection
    // opened (the first request) or after its first byte (later ones).
    std::chrono::milliseconds headerTimeout{30000};
    // Connections open at once; further ones wait in the listen queue
    // until one closes.
    int maxConnections = 512;
    // Live transcripts of English streams: pocketsphinx's models here
    // (empty: its own directory), decoded with this JSGF grammar instead
    // of the general language model when one is given.
    QString speechModelDirectory;
    QString speechGrammarFile;
    bool keepLiveAudio = false; // LiveSession::audio, for tests
    // Streamed request bodies (uploads) are read no faster than this (0:
    // as they come): a slow uplink, to watch an upload's progress.
    std::int64_t uploadBytesPerSecond = 0;
    // The update appcast (/updates/appcast.xml) offers this version
    // (empty: the service's own build version), signed with the Ed25519
    // private key in this PEM file (empty: one kept in the data
    // directory, made on the first start).
    QString appcastVersion;
    QString appcastKeyFile;
};

} // namespace sorv::local
