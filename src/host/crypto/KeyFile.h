// The key of configuration values: 32 random bytes in a file that nobody but its owner can open.
#pragma once

#include <array>
#include <string>

namespace almanac::host {

// A key that is cleared when it goes.
class Key {
  public:
    static constexpr std::size_t kSize = 32;
    Key() = default;
    ~Key();
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    unsigned char* data() { return bytes_.data(); }
    const unsigned char* data() const { return bytes_.data(); }

  private:
    std::array<unsigned char, kSize> bytes_{};
};

// "<data directory>/key".
std::string keyFilePath();

// Reads the key. With `make` a missing file is made first (mode 0600, in one step: two processes at once end
// up with one key). False, with one line in `error`, if it cannot be read or made, is a symbolic link or no
// regular file, has another size, belongs to another user, or is open to group or others in any way.
bool readKeyFile(bool make, Key* key, std::string* error);

}  // namespace almanac::host
