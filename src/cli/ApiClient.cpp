#include "cli/ApiClient.h"

#include <curl/curl.h>

#include <memory>
#include <nlohmann/json.hpp>

namespace almanac::cli {

namespace {

std::size_t collect(char* data, std::size_t size, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

struct CurlEnd {
    void operator()(CURL* c) const { curl_easy_cleanup(c); }
};
struct ListEnd {
    void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};

}  // namespace

ApiAnswer ApiClient::call(const std::string& target, const std::string& accept, const std::string* body, int seconds) const {
    return send("PUT", target, accept, body, seconds);
}

ApiAnswer ApiClient::post(const std::string& target, const std::string& body, int seconds) const {
    return send("POST", target, "application/json", &body, seconds);
}

ApiAnswer ApiClient::send(const char* method, const std::string& target, const std::string& accept, const std::string* body,
                          int seconds) const {
    ApiAnswer answer;
    const std::unique_ptr<CURL, CurlEnd> curl(curl_easy_init());
    if (!curl) {
        answer.error = "no memory";
        return answer;
    }
    curl_slist* lines = curl_slist_append(nullptr, ("Accept: " + accept).c_str());
    if (body) lines = curl_slist_append(lines, "Content-Type: application/json");
    const std::unique_ptr<curl_slist, ListEnd> headers(lines);
    const std::string url = "http://localhost" + target;
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_UNIX_SOCKET_PATH, socket_.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, static_cast<long>(seconds));
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &answer.body);
    if (body) {
        curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, method);
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body->c_str());
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body->size()));
    }
    const CURLcode code = curl_easy_perform(curl.get());
    if (code != CURLE_OK) {
        answer.error = code == CURLE_COULDNT_CONNECT ? "no agent answers at " + socket_ : curl_easy_strerror(code);
        return answer;
    }
    long status = 0;
    const char* type = nullptr;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(curl.get(), CURLINFO_CONTENT_TYPE, &type);
    answer.reached = true;
    answer.status = static_cast<int>(status);
    answer.type = type ? type : "";
    return answer;
}

std::string ApiClient::encode(const std::string& text) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') ||
                           c == '-' || c == '.' || c == '_' || c == '~';
        if (plain) {
            encoded += c;
        } else {
            encoded += '%';
            encoded += kDigits[byte >> 4];
            encoded += kDigits[byte & 15];
        }
    }
    return encoded;
}

std::string problemText(const ApiAnswer& answer) {
    if (!answer.reached) return answer.error;
    const auto json = nlohmann::json::parse(answer.body, nullptr, false);
    if (json.is_object() && json.contains("detail") && json["detail"].is_string()) return json["detail"].get<std::string>();
    return "the agent answered with status " + std::to_string(answer.status);
}

}  // namespace almanac::cli
