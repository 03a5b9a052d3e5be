// Encryption of configuration values. A value's text is "{AES256:keyfile:a}" followed by Base64 of nonce,
// cipher text and tag (AES-256 in Galois/Counter Mode, NIST SP 800-38D). The key is the host's key file,
// made with mode 0600 at first use.
#pragma once

enum ZCP_Status {
    ZCP_OK = 0,
    ZCP_BAD_TEXT = 1,  // no marker, broken Base64, too short, or the tag does not match: never told apart
    ZCP_NO_KEY = 2,    // the key file cannot be read, made, or is open to others
    ZCP_BAD_SCHEME = 3,
    ZCP_FAILED = 4,
};

// Encrypts a text with scheme "AES256" and key source "keyfile". On ZCP_OK `*out` is a terminated text with
// its marker, to be released with ZCP_Free; otherwise it is null.
int ZCP_Encrypt(const char* plain, const char* scheme, const char* keySource, char** out);

// Decrypts a whole value, marker included. On ZCP_OK `*out` is the terminated text and `*length` its bytes.
int ZCP_Decrypt(const char* value, char** out, int* length);

// Clears and frees; null is ignored.
void ZCP_Free(char* text);
