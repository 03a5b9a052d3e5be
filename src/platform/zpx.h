// The companion library, loaded at run time: names, addresses, time, threads. The agent resolves every entry
// with dlsym; the types below are their signatures.
#pragma once

#include <cstdint>

// A socket address of up to 28 bytes: family (host order), port (network order), then the address: IPv4 at byte 4,
// IPv6 at byte 8 (the layouts of sockaddr_in and sockaddr_in6).
struct alignas(4) ZPX_SockAddr {
    unsigned char bytes[28];
};

enum ZPX_Family { ZPX_IPV4 = 3, ZPX_NO_FAMILY = 0, ZPX_IPV6 = 7 };

extern "C" {
// 1 if a file name is fully qualified (begins with '/'), else 0.
typedef int ZPX0_IsThisFullyQualifiedName_t(const char* name);
// ZPX_IPV4 or ZPX_IPV6 if the text is a numeric address, else ZPX_NO_FAMILY.
typedef int ZPX0_IsThisAddressString_t(const char* text);
// The family to try first: ZPX_IPV6 only on a host that has no IPv4 address beside loopback but an IPv6 one.
typedef int ZPX0_UseDefaultIPfamily_t(void);
// 1 if an IPv4 socket can be opened.
typedef int ZPX0_IsIPv4Available_t(void);
// Resolves `host` in `family` and fills `out` with address and port (host order in). `protocol` and `type` are
// those of socket(2); the two flags are 0. Returns 1 for success, 0 for failure.
typedef int ZPX0_InitializeSocketAddress_t(const char* host, int family, int port, int protocol, int type, int flags1,
                                           int flags2, ZPX_SockAddr* out);
// The local host's name, fully qualified where the resolver knows it; static text.
typedef const char* ZPX0_LocalHostNameString_t(void);
// The numeric text of an address, into `out` of `size` bytes (46 suffice); returns `out`, null on failure.
typedef const char* ZPX0_ntoa_t(const ZPX_SockAddr* address, char* out, int size);
// The first global IPv6 address of this host. 1 if there is one.
typedef int ZPX0_GetSourceIPv6Address_t(ZPX_SockAddr* out);
// Name or numeric text to address. 1 for success.
typedef int ZPX0_ConvertNameToAddr_t(const char* name, int family, ZPX_SockAddr* out);
// Starts a detached thread. 1 for success.
typedef int ZPX0_CreateThread_t(void (*body)(void*), void* argument);
// Address to name (numeric text if it has none). 1 for success.
typedef int ZPX0_ConvertAddrToName_t(const ZPX_SockAddr* address, char* out, int size);
// The present local time as the 16-character time stamp CYYMMDDHHMMSSmmm and a terminator.
typedef void ZPX0_GetVelmarTime_t(char* out);
}
