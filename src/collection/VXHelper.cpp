#include "collection/VXHelper.h"

#include <dlfcn.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <string>

#include "foundation/Timestamp.h"
#include "foundation/Trace.h"
#include "platform/zsb.h"

namespace {

struct Entries {
    ZPX0_IsThisFullyQualifiedName_t* IsThisFullyQualifiedName = nullptr;
    ZPX0_IsThisAddressString_t* IsThisAddressString = nullptr;
    ZPX0_UseDefaultIPfamily_t* UseDefaultIPfamily = nullptr;
    ZPX0_IsIPv4Available_t* IsIPv4Available = nullptr;
    ZPX0_InitializeSocketAddress_t* InitializeSocketAddress = nullptr;
    ZPX0_LocalHostNameString_t* LocalHostNameString = nullptr;
    ZPX0_ntoa_t* ntoa = nullptr;
    ZPX0_GetSourceIPv6Address_t* GetSourceIPv6Address = nullptr;
    ZPX0_ConvertNameToAddr_t* ConvertNameToAddr = nullptr;
    ZPX0_CreateThread_t* CreateThread = nullptr;
    ZPX0_ConvertAddrToName_t* ConvertAddrToName = nullptr;
    ZPX0_GetVelmarTime_t* GetVelmarTime = nullptr;
};

Entries entries;  // written once, before `registered` is true
std::once_flag loadOnce;
std::atomic<bool> registered{false};

template <class F>
bool resolve(void* library, const char* name, F** entry) {
    TRACE_FUNCTION();
    *entry = reinterpret_cast<F*>(dlsym(library, name));
    if (*entry) return true;
    trace_error("Failed to find %s", name);
    return false;
}

void load(const char* name) {
    TRACE_FUNCTION();
    std::string stem = name && *name ? std::string(name, strnlen(name, 3)) : "zbt";
    ZSV1_ToLower(stem.data());
    const std::string library = "lib" + stem + "udp.so";
    trace_detail("Prepairing to load shared library %s", library.c_str());
    void* handle = dlopen(library.c_str(), RTLD_NOW);
    if (!handle) {
        trace_error("Failed to load shared library %s", library.c_str());
        return;
    }
    bool whole = true;  // every missing entry is told, not only the first
    whole &= resolve(handle, "ZPX0_IsThisFullyQualifiedName", &entries.IsThisFullyQualifiedName);
    whole &= resolve(handle, "ZPX0_IsThisAddressString", &entries.IsThisAddressString);
    whole &= resolve(handle, "ZPX0_UseDefaultIPfamily", &entries.UseDefaultIPfamily);
    whole &= resolve(handle, "ZPX0_IsIPv4Available", &entries.IsIPv4Available);
    whole &= resolve(handle, "ZPX0_InitializeSocketAddress", &entries.InitializeSocketAddress);
    whole &= resolve(handle, "ZPX0_LocalHostNameString", &entries.LocalHostNameString);
    whole &= resolve(handle, "ZPX0_ntoa", &entries.ntoa);
    whole &= resolve(handle, "ZPX0_GetSourceIPv6Address", &entries.GetSourceIPv6Address);
    whole &= resolve(handle, "ZPX0_ConvertNameToAddr", &entries.ConvertNameToAddr);
    whole &= resolve(handle, "ZPX0_CreateThread", &entries.CreateThread);
    whole &= resolve(handle, "ZPX0_ConvertAddrToName", &entries.ConvertAddrToName);
    whole &= resolve(handle, "ZPX0_GetVelmarTime", &entries.GetVelmarTime);
    registered = whole;
}

bool ready() { return registered; }

}  // namespace

bool VXHelper::isVXLibraryRegistered(const char* name) {
    std::call_once(loadOnce, load, name);
    return ready();
}

int VXHelper::isThisFullyQualifiedName(const char* name) { return ready() ? entries.IsThisFullyQualifiedName(name) : 0; }

int VXHelper::isThisAddressString(const char* text) { return ready() ? entries.IsThisAddressString(text) : 0; }

int VXHelper::getSourceIPv6Address(ZPX_SockAddr* out) { return ready() ? entries.GetSourceIPv6Address(out) : 0; }

int VXHelper::initializeSocketAddress(const char* host, int family, int port, int protocol, int type, int flags1,
                                      int flags2, ZPX_SockAddr* out) {
    return ready() ? entries.InitializeSocketAddress(host, family, port, protocol, type, flags1, flags2, out) : 0;
}

int VXHelper::useDefaultIPfamily() { return ready() ? entries.UseDefaultIPfamily() : 0; }

int VXHelper::isIPv4Available() { return ready() ? entries.IsIPv4Available() : 0; }

const char* VXHelper::localHostNameString() { return ready() ? entries.LocalHostNameString() : nullptr; }

const char* VXHelper::ntoa(const ZPX_SockAddr* address, char* out, int size) {
    return ready() ? entries.ntoa(address, out, size) : nullptr;
}

int VXHelper::convertNameToAddr(const char* name, int family, ZPX_SockAddr* out) {
    return ready() ? entries.ConvertNameToAddr(name, family, out) : 0;
}

int VXHelper::createThread(void (*body)(void*), void* argument) { return ready() ? entries.CreateThread(body, argument) : 0; }

int VXHelper::convertAddrToName(const ZPX_SockAddr* address, char* out, int size) {
    return ready() ? entries.ConvertAddrToName(address, out, size) : 0;
}

void VXHelper::getVelmarTime(char* out) {
    if (ready()) {
        entries.GetVelmarTime(out);
    } else {
        *out = '\0';
    }
}

int VXHelper::getTimeOfDay() {
    Timestamp t;
    t.now();
    return static_cast<int>(static_cast<unsigned>(t.timeInMilliseconds()));
}
