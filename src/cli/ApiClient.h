// ApiClient: the host's API over its unix socket.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace almanac::cli {

struct ApiAnswer {
    bool reached = false;  // an HTTP answer came
    int status = 0;        // its status
    std::string type;      // its content type
    std::string body;
    std::string error;     // why none came
};

class ApiClient {
  public:
    explicit ApiClient(std::string socketPath) : socket_(std::move(socketPath)) {}

    // `target` is path and query, already percent-encoded. `body` null: GET, else PUT of JSON.
    ApiAnswer call(const std::string& target, const std::string& accept, const std::string* body, int seconds = 60) const;
    // POST of JSON; waits so many seconds for the answer.
    ApiAnswer post(const std::string& target, const std::string& body, int seconds) const;
    const std::string& socketPath() const { return socket_; }

    // Everything but letters, digits and -._~ as %XX (RFC 3986, section 2).
    static std::string encode(const std::string& text);

  private:
    ApiAnswer send(const char* method, const std::string& target, const std::string& accept, const std::string* body, int seconds) const;

    std::string socket_;
};

// The one line of a problem document (RFC 9457), or of an answer that is none.
std::string problemText(const ApiAnswer& answer);

}  // namespace almanac::cli
