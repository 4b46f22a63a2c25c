#pragma once

#include "localservice/httpexchange.h"
#include "localservice/meetingstreamscript.h"

#include <deque>
#include <mutex>
#include <optional>

namespace sorv::local {

struct Account;
class Router;
class ServiceState;

// /api/meetings/{id}/live: a bot's meeting as a server-sent event stream.
// The bot's status comes first and again whenever it changes; once the bot
// records, the speaker names and then a conversation of three speakers,
// each line in pieces (interim, then the final piece), with event names
// and comments between the payloads, round and round until the bot is
// stopped: then the status "completed" and a clean end. Tests script each
// connection exactly instead.
class MeetingStreamEndpoint {
public:
    explicit MeetingStreamEndpoint(ServiceState& state);

    void addRoutes(Router& router);

    void queueScript(MeetingStreamScript script);
    // Connections that got a stream (200), scripted or not.
    int streamsServed() const;

private:
    std::optional<ServiceResponse> serve(const ServiceRequest& request, const Account& account,
                                         ResponseStream& stream);
    std::optional<MeetingStreamScript> takeScript();
    static void runScript(const MeetingStreamScript& script, ResponseStream& stream);
    void runConversation(const QString& meetingId, ResponseStream& stream);

    ServiceState& m_state;
    mutable std::mutex m_mutex;
    std::deque<MeetingStreamScript> m_scripts;
    int m_streamsServed = 0;
};

} // namespace sorv::local
