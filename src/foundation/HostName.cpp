#include "foundation/HostName.h"

#include <arpa/nameser.h>
#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/Trace.h"
#include "foundation/Utilities.h"

namespace {

constexpr int kOutSize = 256;
constexpr int kReplySize = 512;
constexpr std::size_t kLargestHostEntry = 1 << 20;

// The official name if it contains the search text, else the first alias that does, else an empty text.
std::string nameFromHostTable(const char* host, const std::string& search) {
    TRACE_FUNCTION();
    std::vector<char> buffer(2048);
    hostent entry{};
    hostent* found = nullptr;
    int why = 0;
    int rc = gethostbyname_r(host, &entry, buffer.data(), buffer.size(), &found, &why);
    while (rc == ERANGE && buffer.size() < kLargestHostEntry) {
        buffer.resize(buffer.size() * 2);
        rc = gethostbyname_r(host, &entry, buffer.data(), buffer.size(), &found, &why);
    }
    if (rc != 0 || !found) {
        trace_detail("gethostbyname failed for %s.\n", host);
        return {};
    }
    if (std::strstr(found->h_name, search.c_str())) return found->h_name;
    for (char** alias = found->h_aliases; alias && *alias; ++alias) {
        if (std::strstr(*alias, search.c_str())) return *alias;
    }
    return {};
}

std::string nameFromDns(const char* host, const std::string& search) {
    TRACE_FUNCTION();
    unsigned char reply[kReplySize];
    const int length = res_search(host, C_IN, T_A, reply, kReplySize);
    if (length < 0) {
        trace_detail("res_search failed h_errno = %d\n", h_errno);
        return {};
    }
    char name[NS_MAXDNAME];
    switch (questionNameOfReply(reply, std::min(length, kReplySize), name, sizeof name)) {
        case 0:
            return std::strstr(name, search.c_str()) ? name : "";
        case -1:
            trace_detail("res_search failed more than 1 question in query\n");
            return {};
        default:
            trace_detail("dn_expand failed\n");
            return {};
    }
}

}  // namespace

int questionNameOfReply(const unsigned char* reply, int length, char* out, int size) {
    if (length < NS_HFIXEDSZ || reply[4] != 0 || reply[5] != 1) return -1;
    return dn_expand(reply, reply + length, reply + NS_HFIXEDSZ, out, size) < 0 ? -2 : 0;
}

int getfqhostname(const char* host, char* out) {
    TRACE_FUNCTION();
    out[0] = '\0';
    if (!host || !*host) return 0;
    const std::string search = std::string(host) + ".";
    std::string answer = nameFromHostTable(host, search);
    if (answer.empty()) answer = nameFromDns(host, search);
    trim_string(answer.data());
    std::snprintf(out, kOutSize, "%s", answer.c_str());
    return 0;
}
