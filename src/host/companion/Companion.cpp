// libzbtudp.so: the entry points of platform/zpx.h on the system's resolver (RFC 3493) and interface list
// (getifaddrs(3)). It stands alone, because the agent loads it by name at run time.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "platform/zpx.h"

#define ALMANAC_EXPORT __attribute__((visibility("default")))

namespace {

static_assert(sizeof(sockaddr_in6) == sizeof(ZPX_SockAddr), "an IPv6 socket address fills the record");

struct FreeAddresses {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;
using Interfaces = std::unique_ptr<ifaddrs, FreeAddresses>;

int systemFamily(int family) {
    switch (family) {
        case ZPX_IPV4:
            return AF_INET;
        case ZPX_IPV6:
            return AF_INET6;
        default:
            return AF_UNSPEC;
    }
}

bool store(const sockaddr* from, socklen_t length, ZPX_SockAddr* out) {
    if (length > sizeof out->bytes || (from->sa_family != AF_INET && from->sa_family != AF_INET6))
        return false;
    std::memset(out->bytes, 0, sizeof out->bytes);
    std::memcpy(out->bytes, from, length);
    return true;
}

// The system's view of a record, and its true length; 0 for a family that is neither.
socklen_t load(const ZPX_SockAddr* from, sockaddr_storage* out) {
    std::memset(out, 0, sizeof *out);
    std::memcpy(out, from->bytes, sizeof from->bytes);
    if (out->ss_family == AF_INET) return sizeof(sockaddr_in);
    return out->ss_family == AF_INET6 ? static_cast<socklen_t>(sizeof(sockaddr_in6)) : 0;
}

// The first address of a name in a family. `flags` are those of getaddrinfo(3).
Addresses lookUp(const char* host, int family, int protocol, int type, int flags) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_protocol = protocol;
    hints.ai_socktype = type;
    hints.ai_flags = flags;
    addrinfo* list = nullptr;
    if (!host || !*host || getaddrinfo(host, nullptr, &hints, &list) != 0) return nullptr;
    return Addresses(list);
}

Interfaces interfaces() {
    ifaddrs* list = nullptr;
    return getifaddrs(&list) == 0 ? Interfaces(list) : Interfaces();
}

bool isGlobal(const in6_addr& address) {
    return !IN6_IS_ADDR_LOOPBACK(&address) && !IN6_IS_ADDR_LINKLOCAL(&address) &&
           !IN6_IS_ADDR_UNSPECIFIED(&address) && !IN6_IS_ADDR_MULTICAST(&address);
}

// The first IPv6 address of this host that others can reach, or null.
const sockaddr_in6* globalAddress(const ifaddrs* list) {
    for (; list; list = list->ifa_next) {
        if (!list->ifa_addr || list->ifa_addr->sa_family != AF_INET6) continue;
        const auto* const address = reinterpret_cast<const sockaddr_in6*>(list->ifa_addr);
        if (isGlobal(address->sin6_addr)) return address;
    }
    return nullptr;
}

bool hasIPv4BesideLoopback(const ifaddrs* list) {
    for (; list; list = list->ifa_next) {
        if (!list->ifa_addr || list->ifa_addr->sa_family != AF_INET) continue;
        const auto* const address = reinterpret_cast<const sockaddr_in*>(list->ifa_addr);
        if ((ntohl(address->sin_addr.s_addr) >> 24) != IN_LOOPBACKNET) return true;
    }
    return false;
}

struct Start {
    void (*body)(void*);
    void* argument;
};

void* runBody(void* text) {
    const std::unique_ptr<Start> start(static_cast<Start*>(text));
    start->body(start->argument);
    return nullptr;
}

// Text of an address with getnameinfo(3); never writes over `size`.
bool nameOf(const ZPX_SockAddr* address, char* out, int size, int flags) {
    if (!address || !out || size <= 0) return false;
    sockaddr_storage storage;
    const socklen_t length = load(address, &storage);
    if (length == 0) return false;
    return getnameinfo(reinterpret_cast<const sockaddr*>(&storage), length, out, static_cast<socklen_t>(size),
                       nullptr, 0, flags) == 0;
}

const char* findLocalHostName() {
    static char name[NI_MAXHOST] = "localhost";
    char host[256] = "";
    if (gethostname(host, sizeof host - 1) != 0 || !*host) return name;
    const Addresses found =
        std::strchr(host, '.') ? nullptr : lookUp(host, AF_UNSPEC, 0, SOCK_STREAM, AI_CANONNAME);
    const char* const canonical = found ? found->ai_canonname : nullptr;
    const bool qualified = canonical && std::strchr(canonical, '.') && !strpbrk(canonical, " :");
    std::snprintf(name, sizeof name, "%s", qualified ? canonical : host);
    return name;
}

}  // namespace

extern "C" {

ALMANAC_EXPORT int ZPX0_IsThisFullyQualifiedName(const char* name) { return name && *name == '/' ? 1 : 0; }

ALMANAC_EXPORT int ZPX0_IsThisAddressString(const char* text) {
    const Addresses found = lookUp(text, AF_UNSPEC, 0, SOCK_DGRAM, AI_NUMERICHOST);
    if (!found) return ZPX_NO_FAMILY;
    return found->ai_family == AF_INET6 ? ZPX_IPV6 : ZPX_IPV4;
}

ALMANAC_EXPORT int ZPX0_UseDefaultIPfamily(void) {
    const Interfaces list = interfaces();
    return !hasIPv4BesideLoopback(list.get()) && globalAddress(list.get()) ? ZPX_IPV6 : ZPX_IPV4;
}

ALMANAC_EXPORT int ZPX0_IsIPv4Available(void) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return 0;
    close(fd);
    return 1;
}

ALMANAC_EXPORT int ZPX0_InitializeSocketAddress(const char* host, int family, int port, int protocol,
                                                int type, int /*flags1*/, int /*flags2*/, ZPX_SockAddr* out) {
    if (!out || port < 0 || port > 65535) return 0;
    const Addresses found = lookUp(host, systemFamily(family), protocol, type, 0);
    if (!found || !store(found->ai_addr, found->ai_addrlen, out)) return 0;
    const std::uint16_t networkPort = htons(static_cast<std::uint16_t>(port));
    std::memcpy(out->bytes + 2, &networkPort, sizeof networkPort);
    return 1;
}

ALMANAC_EXPORT const char* ZPX0_LocalHostNameString(void) {
    static const char* const name = findLocalHostName();
    return name;
}

ALMANAC_EXPORT const char* ZPX0_ntoa(const ZPX_SockAddr* address, char* out, int size) {
    if (!address || !out || size <= 0) return nullptr;
    sockaddr_storage storage;
    if (load(address, &storage) == 0) return nullptr;
    const void* const binary =
        storage.ss_family == AF_INET
            ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(&storage)->sin_addr)
            : static_cast<const void*>(&reinterpret_cast<const sockaddr_in6*>(&storage)->sin6_addr);
    return inet_ntop(storage.ss_family, binary, out, static_cast<socklen_t>(size));
}

ALMANAC_EXPORT int ZPX0_GetSourceIPv6Address(ZPX_SockAddr* out) {
    const Interfaces list = interfaces();
    const sockaddr_in6* const address = globalAddress(list.get());
    return out && address && store(reinterpret_cast<const sockaddr*>(address), sizeof *address, out) ? 1 : 0;
}

ALMANAC_EXPORT int ZPX0_ConvertNameToAddr(const char* name, int family, ZPX_SockAddr* out) {
    return ZPX0_InitializeSocketAddress(name, family, 0, 0, SOCK_DGRAM, 0, 0, out);
}

ALMANAC_EXPORT int ZPX0_CreateThread(void (*body)(void*), void* argument) {
    if (!body) return 0;
    std::unique_ptr<Start> start(new (std::nothrow) Start{body, argument});
    pthread_attr_t attributes;
    if (!start || pthread_attr_init(&attributes) != 0) return 0;
    pthread_t thread;
    const bool made = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) == 0 &&
                      pthread_create(&thread, &attributes, runBody, start.get()) == 0;
    if (made) static_cast<void>(start.release());  // the thread frees it
    pthread_attr_destroy(&attributes);
    return made ? 1 : 0;
}

ALMANAC_EXPORT int ZPX0_ConvertAddrToName(const ZPX_SockAddr* address, char* out, int size) {
    return nameOf(address, out, size, 0) ? 1 : 0;
}

// C is 0 for the years from 1900 and 1 for those from 2000.
ALMANAC_EXPORT void ZPX0_GetVelmarTime(char* out) {
    if (!out) return;
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[64];
    std::snprintf(text, sizeof text, "%d%02d%02d%02d%02d%02d%02d%03d", std::clamp(local.tm_year / 100, 0, 9),
                  local.tm_year % 100, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                  local.tm_sec, static_cast<int>(now.tv_usec / 1000));
    std::memcpy(out, text, 16);
    out[16] = '\0';
}

}  // extern "C"
