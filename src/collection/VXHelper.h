// VXHelper: names, addresses, time and threads from the companion library, which is loaded at first use. Each operation
// forwards to the entry of its name and gives 0 or null while the library is not there. Signatures: platform/zpx.h.
#pragma once

#include "platform/zpx.h"

class VXHelper {
  public:
    // Loads "lib" + the first three letters of the name in lower case ("zbt" for an empty one) + "udp.so" once, and
    // remembers the outcome.
    static bool isVXLibraryRegistered(const char* name);

    static int isThisFullyQualifiedName(const char* name);
    static int isThisAddressString(const char* text);
    static int getSourceIPv6Address(ZPX_SockAddr* out);
    static int initializeSocketAddress(const char* host, int family, int port, int protocol, int type, int flags1,
                                       int flags2, ZPX_SockAddr* out);
    static int useDefaultIPfamily();
    static int isIPv4Available();
    static const char* localHostNameString();
    static const char* ntoa(const ZPX_SockAddr* address, char* out, int size);
    static int convertNameToAddr(const char* name, int family, ZPX_SockAddr* out);
    static int createThread(void (*body)(void*), void* argument);
    static int convertAddrToName(const ZPX_SockAddr* address, char* out, int size);
    static void getVelmarTime(char* out);  // 17 bytes
    // Milliseconds of the wall clock, cut to 32 bits.
    static int getTimeOfDay();
};
