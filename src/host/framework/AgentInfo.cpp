#include "host/framework/AgentInfo.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string_view>

#include "host/framework/Framework.h"
#include "platform/zsb.h"

namespace almanac::host {
namespace {

constexpr std::size_t kMaxName = 32;
constexpr char kVersion[] = "00.01.00";

std::string thisHost() {
    char name[256] = "";
    if (gethostname(name, sizeof name - 1) != 0 || !*name) return "localhost";
    return name;
}

}  // namespace

void AgentInfo::setProduct(const std::string& product, const std::string& version) {
    const std::lock_guard guard(mutex_);
    values_.product = product;
    values_.version = version;
}

void AgentInfo::setNodeType(const std::string& nodeType) {
    const std::lock_guard guard(mutex_);
    values_.nodeType = nodeType;
}

void AgentInfo::addAffinity(const std::string& affinity) {
    const std::lock_guard guard(mutex_);
    auto& all = values_.affinities;
    if (std::find(all.begin(), all.end(), affinity) == all.end()) all.push_back(affinity);
}

void AgentInfo::setInstance(const std::string& instance) {
    const std::lock_guard guard(mutex_);
    values_.instance = instance;
}

AgentInfo::Values AgentInfo::values() const {
    const std::lock_guard guard(mutex_);
    return values_;
}

const char* AgentInfo::originNode() const {
    const char* fixed = ZSV1_GetEnv("ALMANAC_ORIGINNODE");
    if (fixed && *fixed && std::strlen(fixed) <= kMaxName) return fixed;
    const std::lock_guard guard(mutex_);
    std::string name = makeOriginNode(values_.instance, thisHost(), values_.nodeType);
    // Names that were given out stay valid for ever; there are few.
    static std::set<std::string>* const given = new std::set<std::string>;
    static std::mutex* const givenMutex = new std::mutex;
    const std::lock_guard givenGuard(*givenMutex);
    return given->insert(std::move(name)).first->c_str();
}

void AgentInfo::setLoader(HBX_AgentLoader loader) {
    const std::lock_guard guard(mutex_);
    loader_ = loader;
}

void AgentInfo::setCallback(HBX_CommandCallback callback) {
    const std::lock_guard guard(mutex_);
    callback_ = callback;
}

HBX_AgentLoader AgentInfo::loader() const {
    const std::lock_guard guard(mutex_);
    return loader_;
}

HBX_CommandCallback AgentInfo::callback() const {
    const std::lock_guard guard(mutex_);
    return callback_;
}

std::string instanceFromArguments(int argc, const char* const* argv, const char* hostName) {
    if (argc > 2) return std::string_view(argv[2]) == "TEST" ? argv[1] : "";
    if (argc == 2) {
        const std::string_view argument = argv[1], host = hostName ? hostName : "";
        if (!host.empty() && argument.starts_with(host) && argument.size() > host.size() + 1)
            return std::string(argument.substr(host.size() + 1));
        const std::size_t bar = argument.rfind('_');
        return bar == std::string_view::npos ? "" : std::string(argument.substr(bar + 1));
    }
    if (argc < 1 || !argv[0]) return "";
    const std::string_view program = argv[0];
    const std::size_t slash = program.rfind('/');
    const std::string_view file = slash == std::string_view::npos ? program : program.substr(slash + 1);
    constexpr std::string_view kPattern = "agent_";
    for (std::size_t at = 0; at + kPattern.size() <= file.size(); ++at) {
        if (!equalsNoCase(file.substr(at, kPattern.size()), kPattern)) continue;
        const std::string_view rest = file.substr(at + kPattern.size());
        return std::string(rest.substr(0, rest.find('.')));
    }
    return "";
}

std::string makeOriginNode(const std::string& instance, const std::string& host, const std::string& nodeType) {
    const std::string prefix = instance.empty() ? "" : instance.substr(0, 16) + ":";
    const std::string suffix = nodeType.empty() ? "" : ":" + nodeType.substr(0, 8);
    const std::string shortHost = host.substr(0, host.find('.'));
    return prefix + shortHost.substr(0, kMaxName - prefix.size() - suffix.size()) + suffix;
}

}  // namespace almanac::host

using almanac::host::framework;

int HBX_RegisterAgentLoader(HBX_AgentLoader loader) {
    framework().agent.setLoader(loader);
    return 0;
}

int HBX_RegisterCommandCallback(const char* pattern, HBX_CommandCallback callback) {
    if (!pattern || std::string_view(pattern) != "*") return 1;
    framework().agent.setCallback(callback);
    return 0;
}

int HBX_SetVersionUsingProduct(const char* product, char* out, int size) {
    if (out && size > 0) {
        const std::size_t bytes = std::min(std::strlen(almanac::host::kVersion), static_cast<std::size_t>(size - 1));
        std::memcpy(out, almanac::host::kVersion, bytes);
        out[bytes] = '\0';
    }
    if (!product) return 1;
    framework().agent.setProduct(product, almanac::host::kVersion);
    return 0;
}

int HBX_SetNodeType(const char* nodeType) {
    if (!nodeType) return 1;
    framework().agent.setNodeType(nodeType);
    return 0;
}

int HBX_SetAffinity(const char* affinity) {
    if (!affinity) return 1;
    framework().agent.addAffinity(affinity);
    return 0;
}

const char* HBX_GetOriginnode() { return framework().agent.originNode(); }
