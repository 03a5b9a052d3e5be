// Encryption of configuration values (zcp.h) with AES-256-GCM (NIST SP 800-38D) of libcrypto. The marker goes
// into the tag as additional data, so that a later scheme cannot be passed off as this one.
#include <malloc.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/HostTrace.h"
#include "host/base/Secrets.h"
#include "host/crypto/KeyFile.h"
#include "platform/zcp.h"

namespace almanac::host {
namespace {

constexpr std::string_view kMarker = "{AES256:keyfile:a}";
constexpr int kNonceSize = 12;
constexpr int kTagSize = 16;
constexpr std::size_t kTextLimit = 1024 * 1024;

struct FreeContext {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_CIPHER_CTX, FreeContext>;

// Bytes that are cleared when they go.
class Buffer {
  public:
    explicit Buffer(std::size_t size) : bytes_(size) {}
    ~Buffer() {
        if (!bytes_.empty()) OPENSSL_cleanse(bytes_.data(), bytes_.size());
    }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    unsigned char* data() { return bytes_.data(); }
    std::size_t size() const { return bytes_.size(); }

  private:
    std::vector<unsigned char> bytes_;
};

const unsigned char* asBytes(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string encodeBase64(const unsigned char* data, std::size_t size) {
    std::string text(4 * ((size + 2) / 3) + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data, static_cast<int>(size));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

// Base64 with padding (RFC 4648) in its one canonical form. False for anything else.
bool decodeBase64(std::string_view text, std::vector<unsigned char>* out) {
    if (text.empty() || text.size() % 4 != 0) return false;
    out->resize(text.size() / 4 * 3);
    const int length = EVP_DecodeBlock(out->data(), asBytes(text), static_cast<int>(text.size()));
    if (length < 0) return false;
    const std::size_t padding = text.back() != '=' ? 0 : (text[text.size() - 2] == '=' ? 2 : 1);
    out->resize(static_cast<std::size_t>(length) - padding);
    return encodeBase64(out->data(), out->size()) == text;
}

bool startCipher(EVP_CIPHER_CTX* context, const Key& key, const unsigned char* nonce, int encrypt) {
    int ignored = 0;
    return context &&
           EVP_CipherInit_ex(context, EVP_aes_256_gcm(), nullptr, key.data(), nonce, encrypt) == 1 &&
           EVP_CipherUpdate(context, nullptr, &ignored, asBytes(kMarker), static_cast<int>(kMarker.size())) ==
               1;
}

// nonce | cipher text | tag
bool seal(const Key& key, std::string_view plain, std::vector<unsigned char>* out) {
    out->assign(kNonceSize + plain.size() + kTagSize, 0);
    unsigned char* const nonce = out->data();
    unsigned char* const body = nonce + kNonceSize;
    const Context context(EVP_CIPHER_CTX_new());
    int length = 0;
    int rest = 0;
    return RAND_bytes(nonce, kNonceSize) == 1 && startCipher(context.get(), key, nonce, 1) &&
           EVP_CipherUpdate(context.get(), body, &length, asBytes(plain), static_cast<int>(plain.size())) ==
               1 &&
           EVP_CipherFinal_ex(context.get(), body + length, &rest) == 1 &&
           EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, kTagSize, body + plain.size()) == 1;
}

// `plain` has the size of the cipher text. False if the tag does not match.
bool open(const Key& key, std::vector<unsigned char>& sealed, Buffer* plain) {
    const unsigned char* const body = sealed.data() + kNonceSize;
    unsigned char* const tag = sealed.data() + sealed.size() - kTagSize;
    const Context context(EVP_CIPHER_CTX_new());
    int length = 0;
    int rest = 0;
    unsigned char none = 0;
    unsigned char* const out = plain->size() > 0 ? plain->data() : &none;
    return startCipher(context.get(), key, sealed.data(), 0) &&
           EVP_CipherUpdate(context.get(), out, &length, body, static_cast<int>(plain->size())) == 1 &&
           EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, kTagSize, tag) == 1 &&
           EVP_CipherFinal_ex(context.get(), out + length, &rest) == 1;
}

// A malloc'd, terminated copy.
char* copyOut(const void* data, std::size_t size) {
    auto* const copy = static_cast<char*>(std::malloc(size + 1));
    if (!copy) return nullptr;
    if (size > 0) std::memcpy(copy, data, size);
    copy[size] = '\0';
    return copy;
}

void traceNoKey(const std::string& error) {
    HOST_TRACE_FUNCTION();
    host_trace_error("%s", error.c_str());
}

int encrypt(std::string_view plain, char** out) {
    Key key;
    std::string error;
    if (!readKeyFile(true, &key, &error)) {
        traceNoKey(error);
        return ZCP_NO_KEY;
    }
    std::vector<unsigned char> sealed;
    if (!seal(key, plain, &sealed)) return ZCP_FAILED;
    const std::string text = std::string(kMarker) + encodeBase64(sealed.data(), sealed.size());
    *out = copyOut(text.data(), text.size());
    return *out ? ZCP_OK : ZCP_FAILED;
}

int decrypt(std::string_view value, char** out, int* length) {
    if (value.substr(0, kMarker.size()) != kMarker || value.size() > 2 * kTextLimit) return ZCP_BAD_TEXT;
    std::vector<unsigned char> sealed;
    if (!decodeBase64(value.substr(kMarker.size()), &sealed) || sealed.size() < kNonceSize + kTagSize) {
        return ZCP_BAD_TEXT;
    }
    Key key;
    std::string error;
    if (!readKeyFile(false, &key, &error)) {
        traceNoKey(error);
        return ZCP_NO_KEY;
    }
    Buffer plain(sealed.size() - kNonceSize - kTagSize);
    if (!open(key, sealed, &plain)) return ZCP_BAD_TEXT;
    registerSecret(std::string(reinterpret_cast<const char*>(plain.data()), plain.size()));
    *out = copyOut(plain.data(), plain.size());
    if (*out && length) *length = static_cast<int>(plain.size());
    return *out ? ZCP_OK : ZCP_FAILED;
}

}  // namespace
}  // namespace almanac::host

int ZCP_Encrypt(const char* plain, const char* scheme, const char* keySource, char** out) {
    if (!out) return ZCP_FAILED;
    *out = nullptr;
    if (!scheme || !keySource || std::strcmp(scheme, "AES256") != 0 ||
        std::strcmp(keySource, "keyfile") != 0) {
        return ZCP_BAD_SCHEME;
    }
    if (!plain || std::strlen(plain) > almanac::host::kTextLimit) return ZCP_FAILED;
    try {
        almanac::host::registerSecret(plain);
        return almanac::host::encrypt(plain, out);
    } catch (...) {
        return ZCP_FAILED;
    }
}

int ZCP_Decrypt(const char* value, char** out, int* length) {
    if (length) *length = 0;
    if (!out) return ZCP_FAILED;
    *out = nullptr;
    if (!value) return ZCP_BAD_TEXT;
    try {
        return almanac::host::decrypt(value, out, length);
    } catch (...) {
        return ZCP_FAILED;
    }
}

void ZCP_Free(char* text) {
    if (!text) return;
    OPENSSL_cleanse(text, malloc_usable_size(text));  // whole: a value may hold a NUL
    std::free(text);
}
