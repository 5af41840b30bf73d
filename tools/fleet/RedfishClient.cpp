#include "fleet/RedfishClient.h"

#include <curl/curl.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cctype>
#include <mutex>
#include <thread>

namespace tool {

namespace {

bool sameText(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

}  // namespace

std::string RedfishReply::header(const std::string& name) const {
    for (const auto& [key, value] : headers)
        if (sameText(key, name)) return value;
    return "";
}

bool isRedfishHost(const std::string& host) {
    return startsWith(host, "https://") || startsWith(host, "http://");
}

std::string basicAuthorization(const std::string& user, const std::string& password) {
    const std::string in = user + ":" + password;
    // OpenSSL's base64, padded, with room for its closing NUL.
    std::string encoded(4 * ((in.size() + 2) / 3) + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&encoded[0]),
                                     reinterpret_cast<const unsigned char*>(in.data()),
                                     static_cast<int>(in.size()));
    encoded.resize(static_cast<std::size_t>(size));
    return "Basic " + encoded;
}

namespace {

// The exchange through one libcurl handle, kept between requests so that its connection is
// reused; every option is set again for each request.
class CurlTransport : public RedfishTransport {
public:
    explicit CurlTransport(const ConnectionProfile& profile)
        : base_(profile.host),
          name_(hostName(profile.host)),
          caFile_(profile.caFile),
          insecure_(profile.insecure),
          timeout_(profile.sessionTimeout.value_or(kRedfishDefaultTimeout)) {
        while (!base_.empty() && base_.back() == '/') base_.pop_back();
        static std::once_flag initialised;
        std::call_once(initialised, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
        handle_ = curl_easy_init();
    }
    ~CurlTransport() override {
        if (handle_ != nullptr) curl_easy_cleanup(handle_);
    }
    CurlTransport(const CurlTransport&) = delete;
    CurlTransport& operator=(const CurlTransport&) = delete;

    RedfishReply request(const std::string& method, const std::string& path,
                         const std::string& body, const std::vector<std::string>& headers) override;

private:
    struct Reception {
        RedfishReply response;
        bool overLimit = false;
    };

    static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* user) {
        auto* in = static_cast<Reception*>(user);
        const std::size_t bytes = size * count;
        if (in->response.body.size() + bytes > kRedfishBodyLimit) {
            in->overLimit = true;
            return 0;  // libcurl stops the transfer
        }
        in->response.body.append(data, bytes);
        return bytes;
    }

    static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* user) {
        auto* in = static_cast<Reception*>(user);
        const std::string line(data, size * count);
        if (startsWith(line, "HTTP/")) {
            in->response.headers.clear();  // a new answer's heads (after a 100 Continue)
        } else if (const auto colon = line.find(':'); colon != std::string::npos) {
            in->response.headers.emplace_back(trimmed(line.substr(0, colon)),
                                              trimmed(line.substr(colon + 1)));
        }
        return size * count;
    }

    std::string base_;
    std::string name_;
    std::string caFile_;
    bool insecure_;
    std::chrono::milliseconds timeout_;
    CURL* handle_ = nullptr;
};

// Frees a libcurl header list however the request ends.
struct HeaderList {
    curl_slist* list = nullptr;
    ~HeaderList() { curl_slist_free_all(list); }
    void add(const std::string& line) {
        if (curl_slist* grown = curl_slist_append(list, line.c_str())) list = grown;
    }
};

RedfishReply CurlTransport::request(const std::string& method, const std::string& path,
                                    const std::string& body,
                                    const std::vector<std::string>& headers) {
    if (handle_ == nullptr) throw RedfishError(Failure::Internal, name_ + ": libcurl failed");
    curl_easy_reset(handle_);
    Reception in;
    char error[CURL_ERROR_SIZE] = {};
    HeaderList lines;
    // The caller's Accept (of a body that is not JSON) instead of ours.
    const bool accepts = std::any_of(headers.begin(), headers.end(), [](const std::string& line) {
        return sameText(line.substr(0, 7), "Accept:");
    });
    if (!accepts) lines.add("Accept: application/json");
    lines.add("OData-Version: 4.0");
    if (!body.empty()) lines.add("Content-Type: application/json");
    for (const std::string& line : headers) lines.add(line);
    const std::string url = base_ + path;
    const bool https = startsWith(base_, "https://");
    const long milliseconds = static_cast<long>(timeout_.count());
    curl_easy_setopt(handle_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle_, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle_, CURLOPT_PROTOCOLS_STR, https ? "https" : "http");
    // Settings travel with the connection: no proxy or netrc from the environment.
    curl_easy_setopt(handle_, CURLOPT_PROXY, "");
    curl_easy_setopt(handle_, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
    // The session follows redirects itself, so that its token never leaves for another host.
    curl_easy_setopt(handle_, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(handle_, CURLOPT_TIMEOUT_MS, milliseconds);
    curl_easy_setopt(handle_, CURLOPT_CONNECTTIMEOUT_MS, milliseconds);
    curl_easy_setopt(handle_, CURLOPT_SSL_VERIFYPEER, insecure_ ? 0L : 1L);
    curl_easy_setopt(handle_, CURLOPT_SSL_VERIFYHOST, insecure_ ? 0L : 2L);
    if (!caFile_.empty()) curl_easy_setopt(handle_, CURLOPT_CAINFO, caFile_.c_str());
    curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, lines.list);
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &CurlTransport::onBody);
    curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &in);
    curl_easy_setopt(handle_, CURLOPT_HEADERFUNCTION, &CurlTransport::onHeader);
    curl_easy_setopt(handle_, CURLOPT_HEADERDATA, &in);
    if (method == "POST") {
        curl_easy_setopt(handle_, CURLOPT_POST, 1L);
        curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, body.c_str());
        curl_easy_setopt(handle_, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    } else if (method != "GET") {
        curl_easy_setopt(handle_, CURLOPT_CUSTOMREQUEST, method.c_str());
    }
    const CURLcode code = curl_easy_perform(handle_);
    if (in.overLimit) {
        throw RedfishError(Failure::Internal,
                           name_ + ": the answer to " + method + " " + path + " is larger than " +
                               std::to_string(kRedfishBodyLimit >> 20) + " MiB: not read");
    }
    if (code != CURLE_OK) {
        const std::string why = error[0] != '\0' ? error : curl_easy_strerror(code);
        switch (code) {
            case CURLE_OPERATION_TIMEDOUT:
                throw RedfishError(Failure::Connection,
                                   "cannot connect to " + name_ + ": " + method + " " + path +
                                       " took longer than " + std::to_string(milliseconds) +
                                       " ms: " + why);
            case CURLE_PEER_FAILED_VERIFICATION:
            case CURLE_SSL_CACERT_BADFILE:
            case CURLE_SSL_CONNECT_ERROR:
                throw RedfishError(Failure::Connection, "cannot connect to " + name_ +
                                                            ": TLS: " + why +
                                                            " (check the CA file, or --insecure)");
            default:
                throw RedfishError(Failure::Connection, "cannot connect to " + name_ + ": " + why);
        }
    }
    curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &in.response.status);
    return std::move(in.response);
}

// The path of a link the service gave: "/redfish/..." as it is, the path of an absolute URL;
// empty for anything else.
std::string pathOf(const std::string& link) {
    if (startsWith(link, "/")) return link;
    const auto scheme = link.find("://");
    if (scheme == std::string::npos) return "";
    const auto slash = link.find('/', scheme + 3);
    return slash == std::string::npos ? "/" : link.substr(slash);
}

bool isRedirect(long status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

// How many redirects a request follows; one more is taken for a loop.
constexpr int kRedirectLimit = 3;

}  // namespace

std::unique_ptr<RedfishTransport> makeCurlTransport(const ConnectionProfile& profile) {
    return std::make_unique<CurlTransport>(profile);
}

RedfishSession::RedfishSession(std::unique_ptr<RedfishTransport> transport, std::string host,
                               std::string user, std::string password,
                               std::chrono::milliseconds timeout)
    : transport_(std::move(transport)),
      host_(std::move(host)),
      user_(std::move(user)),
      password_(std::move(password)),
      timeout_(timeout),
      auth_(user_.empty() ? Auth::None : Auth::Pending),
      sleep_([](std::chrono::milliseconds wait) { std::this_thread::sleep_for(wait); }) {}

RedfishSession::~RedfishSession() { logout(); }

std::vector<std::string> RedfishSession::authHeaders() const {
    if (auth_ == Auth::Session) return {"X-Auth-Token: " + token_};
    if (auth_ == Auth::Basic) return {"Authorization: " + basicAuthorization(user_, password_)};
    return {};
}

RedfishReply RedfishSession::send(const std::string& method, const std::string& firstPath,
                                  const std::string& body,
                                  const std::vector<std::string>& extraHeaders) {
    std::string path = firstPath;
    bool waited = false;
    std::vector<std::string> headers = authHeaders();
    headers.insert(headers.end(), extraHeaders.begin(), extraHeaders.end());
    for (int redirects = 0;;) {
        ++requests_;
        RedfishReply response = transport_->request(method, path, body, headers);
        if (isRedirect(response.status)) {
            const std::string next = pathOf(response.header("Location"));
            if (next.empty()) {
                throw RedfishError(Failure::Internal, host_ + ": " + path + " redirects (HTTP " +
                                                          std::to_string(response.status) +
                                                          ") without a usable Location");
            }
            if (++redirects > kRedirectLimit) {
                throw RedfishError(Failure::Internal,
                                   host_ + ": " + firstPath + " redirects more than " +
                                       std::to_string(kRedirectLimit) + " times (a loop?)");
            }
            path = next;
            continue;
        }
        // Busy: once more after the wait it asks for, when that fits in the request's time.
        if (response.status == 503 && !waited) {
            const std::string after = trimmed(response.header("Retry-After"));
            if (!after.empty() && after.size() <= 6 &&
                std::all_of(after.begin(), after.end(),
                            [](char c) { return std::isdigit(static_cast<unsigned char>(c)); })) {
                const std::chrono::milliseconds wait = std::chrono::seconds(std::stoul(after));
                if (wait <= timeout_) {
                    waited = true;
                    sleep_(wait);
                    continue;
                }
            }
        }
        return response;
    }
}

void RedfishSession::login() {
    const nlohmann::json credentials = {{"UserName", user_}, {"Password", password_}};
    auth_ = Auth::None;
    const RedfishReply response =
        send("POST", "/redfish/v1/SessionService/Sessions", credentials.dump());
    if (response.status >= 200 && response.status < 300) {
        token_ = response.header("X-Auth-Token");
        sessionPath_ = pathOf(response.header("Location"));
        if (token_.empty()) {
            throw RedfishError(Failure::Authentication,
                               "authentication refused by " + host_ +
                                   ": its session answer carries no X-Auth-Token");
        }
        auth_ = Auth::Session;
        return;
    }
    // A service without sessions takes the credentials with each request.
    if (response.status == 404 || response.status == 405 || response.status == 501) {
        auth_ = Auth::Basic;
        return;
    }
    auth_ = Auth::Pending;
    if (response.status == 401 || response.status == 403) {
        throw RedfishError(Failure::Authentication,
                           "authentication refused by " + host_ + " (HTTP " +
                               std::to_string(response.status) + "): check user and password");
    }
    throw RedfishError(Failure::Internal,
                       host_ + ": logging in failed: HTTP " + std::to_string(response.status));
}

RedfishReply RedfishSession::exchange(const std::string& method, const std::string& path,
                                      const std::string& body,
                                      const std::vector<std::string>& extraHeaders) {
    if (auth_ == Auth::Pending) login();
    RedfishReply response = send(method, path, body, extraHeaders);
    // A token the service forgot (a restart, an idle timeout): log in again, once.
    if (response.status == 401 && auth_ == Auth::Session) {
        auth_ = Auth::Pending;
        token_.clear();
        sessionPath_.clear();
        login();
        response = send(method, path, body, extraHeaders);
    }
    return response;
}

void RedfishSession::check(const RedfishReply& response, const std::string& method,
                           const std::string& path, const std::vector<long>& accepted) const {
    const std::string status = std::to_string(response.status);
    if (response.status == 401 || response.status == 403) {
        throw RedfishError(Failure::Authentication, "authentication refused by " + host_ +
                                                        " (HTTP " + status + " for " + path +
                                                        "): check user, password and role");
    }
    if (response.status == 404)
        throw RedfishError(Failure::NotFound, host_ + " has no " + path + " (HTTP 404)");
    const bool success = accepted.empty() ? response.status >= 200 && response.status < 300
                                          : std::find(accepted.begin(), accepted.end(),
                                                      response.status) != accepted.end();
    if (!success) {
        throw RedfishError(Failure::Internal,
                           host_ + " answered HTTP " + status + " for " + method + " " + path,
                           response.status);
    }
}

nlohmann::json RedfishSession::get(const std::string& path) {
    const RedfishReply response = exchange("GET", path, "");
    check(response, "GET", path);
    nlohmann::json document = nlohmann::json::parse(response.body, nullptr, false);
    if (document.is_discarded())
        throw RedfishError(Failure::Internal, host_ + ": the answer for " + path + " is not JSON");
    if (!document.is_object()) {
        throw RedfishError(Failure::Internal,
                           host_ + ": the answer for " + path + " is not a JSON object");
    }
    return document;
}

std::string RedfishSession::getData(const std::string& path, std::size_t limit) {
    const RedfishReply response = exchange("GET", path, "", {"Accept: */*"});
    check(response, "GET", path);
    if (response.body.size() > limit) {
        throw RedfishError(Failure::Internal, host_ + ": the answer for " + path +
                                                  " is larger than " + std::to_string(limit) +
                                                  " bytes");
    }
    return response.body;
}

void RedfishSession::post(const std::string& path, const nlohmann::json& body) {
    const RedfishReply response = exchange("POST", path, body.dump());
    check(response, "POST", path, {200, 202, 204});
}

std::string RedfishSession::authentication() const {
    switch (auth_) {
        case Auth::Session:
            return "Redfish session";
        case Auth::Basic:
            return "basic authentication";
        case Auth::None:
            return "none";
        case Auth::Pending:
            break;
    }
    return "not yet";
}

void RedfishSession::logout() {
    if (auth_ == Auth::Session && !sessionPath_.empty()) {
        try {
            send("DELETE", sessionPath_, "");
        } catch (const std::exception&) {
            // The service ends an idle session by itself.
        }
    }
    token_.clear();
    sessionPath_.clear();
    if (auth_ == Auth::Session) auth_ = Auth::Pending;
}

}  // namespace tool
