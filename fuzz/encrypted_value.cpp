// A value of any bytes behind the marker: it is refused as bad text, unless it is the very value that was
// made with the key.
#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/zcp.h"
#include "platform/zsb.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

// A key of this run, and a value made with it.
const std::string& realValue() {
    static const std::string* const value = [] {
        char folder[] = "/tmp/almanac-fuzz-XXXXXX";
        require(::mkdtemp(folder) != nullptr);
        ZSV1_PutEnv((std::string("ALMANAC_DATA_DIR=") + folder).c_str());
        char* text = nullptr;
        require(ZCP_Encrypt("the plain text", "AES256", "keyfile", &text) == ZCP_OK);
        auto* const kept = new std::string(text);
        ZCP_Free(text);
        return kept;
    }();
    return *value;
}

void check(const std::string& value) {
    char* out = nullptr;
    int length = 0;
    const int status = ZCP_Decrypt(value.c_str(), &out, &length);
    if (std::strcmp(value.c_str(), realValue().c_str()) == 0) {
        require(status == ZCP_OK && std::strcmp(out, "the plain text") == 0);
    } else {
        require(status == ZCP_BAD_TEXT && out == nullptr && length == 0);
    }
    ZCP_Free(out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string& real = realValue();
    const std::string text(reinterpret_cast<const char*>(data), size);
    check(text);
    check("{AES256:keyfile:a}" + text);
    // The input as a patch: where to write over the real value, and what.
    if (size >= 2) {
        std::string patched = real;
        const std::size_t at = data[0] % patched.size();
        patched.replace(at, std::min(size - 1, patched.size() - at), text.substr(1));
        check(patched);
    }
    return 0;
}
