#pragma once

#include "localservice/router.h"
#include "localservice/servicestate.h"

namespace sorv::local {

// Endpoint groups, one file each, register their routes on the router.
void addAuthEndpoints(Router& router, ServiceState& state);
void addRecordingEndpoints(Router& router, ServiceState& state);
void addMeetingEndpoints(Router& router, ServiceState& state);
void addUploadEndpoints(Router& router, ServiceState& state);
void addPasskeyEndpoints(Router& router, ServiceState& state);

// The signed-in check: `handler(request, account, rest...)` gets the
// account of the request's access token, and a request without a valid one
// is refused with 401. `Rest` are the route's other arguments: a streamed
// body (read to its end before the refusal, so that the client sees it) or
// a response stream.
template <typename... Rest, typename Fn> auto signedIn(ServiceState& state, Fn handler)
{
    return [&state, handler = std::move(handler)](const ServiceRequest& request, Rest&... rest) {
        using Result = decltype(handler(request, std::declval<const Account&>(), rest...));
        if (const std::optional<Account> account = state.authenticate(request))
            return handler(request, *account, rest...);
        (
            [](auto& r) {
                if constexpr (requires { r.drain(); })
                    r.drain();
            }(rest),
            ...);
        return Result(ServiceResponse::detail(401, QStringLiteral("Not authenticated")));
    };
}

// A meeting bot's status: "joining", "in_meeting", "recording" (one phase
// each, by its age), "completed" once stopped.
QString meetingStatusOf(const QVariant& createdMs, const QVariant& endedMs,
                        std::chrono::milliseconds phase);

} // namespace sorv::local
