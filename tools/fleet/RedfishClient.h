// A BMC's Redfish service as the event source talks to it: one HTTP exchange through a transport
// (libcurl's, or a test's script), and above it the session that logs in, keeps its token, logs
// in again when the token is refused and gives JSON documents back, each checked.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fleet/ConnectionProfile.h"
#include "fleet/EventSource.h"

namespace tool {

// A request that failed, with what kind of failure it was; the text names the host.
class RedfishError : public std::runtime_error {
public:
    RedfishError(Failure failure, const std::string& text, long status = 0)
        : std::runtime_error(text), failure_(failure), status_(status) {}
    Failure failure() const { return failure_; }
    // The HTTP status the service refused the request with; 0 for anything else.
    long status() const { return status_; }

private:
    Failure failure_;
    long status_;
};

struct RedfishReply {
    long status = 0;
    std::vector<std::pair<std::string, std::string>> headers;  // as received, names any case
    std::string body;

    // The first header of that name (any case), or empty.
    std::string header(const std::string& name) const;
};

// One HTTP exchange with the service. `path` starts with "/" and may carry a query; `headers`
// are whole lines ("Name: value"). Throws RedfishError when no answer came (connection, TLS,
// timeout, a body over the limit, too many redirects); any answer, whatever its status, returns.
class RedfishTransport {
public:
    virtual ~RedfishTransport() = default;
    virtual RedfishReply request(const std::string& method, const std::string& path,
                                 const std::string& body,
                                 const std::vector<std::string>& headers) = 0;
};

// The largest body taken from the service: a larger one is an error, and is not read whole.
constexpr std::size_t kRedfishBodyLimit = 8 * 1024 * 1024;
// How long one request may take where the profile says nothing.
constexpr std::chrono::milliseconds kRedfishDefaultTimeout{10000};

// Whether the host names a Redfish service: "https://..." or "http://...".
bool isRedfishHost(const std::string& host);

// libcurl's transport to the profile's host ("https://HOST[:PORT]" or "http://..."): TLS verified
// against the system's authorities, the profile's CA file, or not at all (insecure); each request
// bounded by the profile's session timeout; redirects followed a few times, on the same scheme;
// no proxy, netrc or other setting taken from the environment.
std::unique_ptr<RedfishTransport> makeCurlTransport(const ConnectionProfile& profile);

// The service as one user sees it: a Redfish session where the service offers one, basic
// authentication where it refuses them, no authentication without a user.
class RedfishSession {
public:
    using Sleeper = std::function<void(std::chrono::milliseconds)>;

    // `host`: as the tool names it in what it says.
    RedfishSession(std::unique_ptr<RedfishTransport> transport, std::string host, std::string user,
                   std::string password, std::chrono::milliseconds timeout);
    ~RedfishSession();
    RedfishSession(const RedfishSession&) = delete;
    RedfishSession& operator=(const RedfishSession&) = delete;

    // The JSON object at `path`; throws RedfishError for a failed request, a status other than
    // 2xx, or a body that is not a JSON object.
    nlohmann::json get(const std::string& path);
    // The body at `path` as it comes (a log entry's additional data); throws RedfishError as get
    // does for a failed request or a status other than 2xx, and for a body over `limit` bytes.
    std::string getData(const std::string& path, std::size_t limit);
    // POSTs the JSON `body` to `path` (an action's target); throws RedfishError for a failed
    // request or a status other than 200, 202 (accepted, done later) and 204.
    void post(const std::string& path, const nlohmann::json& body);
    // How the requests are authenticated: "Redfish session", "basic authentication", "none", or
    // "not yet" before the first request.
    std::string authentication() const;
    // Ends the session the service keeps for us, if any (DELETE of its Location); never throws.
    void logout();

    // How a 503's wait is spent; the tests count it instead.
    void setSleeper(Sleeper sleeper) { sleep_ = std::move(sleeper); }
    // The requests made so far, for the tests and for saying what a poll cost.
    unsigned long requests() const { return requests_; }

private:
    enum class Auth { None, Pending, Session, Basic };

    void login();
    RedfishReply send(const std::string& method, const std::string& path, const std::string& body,
                      const std::vector<std::string>& extraHeaders = {});
    // A request as the user: logged in first, and once more when the service forgot the token.
    RedfishReply exchange(const std::string& method, const std::string& path,
                          const std::string& body,
                          const std::vector<std::string>& extraHeaders = {});
    // Throws RedfishError for an answer whose status is not one of `accepted` (any 2xx when
    // empty).
    void check(const RedfishReply& response, const std::string& method, const std::string& path,
               const std::vector<long>& accepted = {}) const;
    std::vector<std::string> authHeaders() const;

    std::unique_ptr<RedfishTransport> transport_;
    std::string host_;
    std::string user_;
    std::string password_;
    std::chrono::milliseconds timeout_;
    Auth auth_;
    std::string token_;
    std::string sessionPath_;
    Sleeper sleep_;
    unsigned long requests_ = 0;
};

// "Basic BASE64(user:password)", RFC 7617.
std::string basicAuthorization(const std::string& user, const std::string& password);

}  // namespace tool
