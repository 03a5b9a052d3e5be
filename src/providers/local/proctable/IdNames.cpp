#include "providers/local/proctable/IdNames.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr std::size_t kFirstBuffer = 1024;
constexpr std::size_t kLargestBuffer = 1024ul * 1024;  // groups of many members take a lot

// Calls a reentrant look-up with a buffer that is large enough; the entry, null if there is none.
template <class Entry, class Call>
const Entry* entryOf(Entry& entry, std::vector<char>& buffer, const Call& call) {
    for (std::size_t size = kFirstBuffer; size <= kLargestBuffer; size *= 4) {
        buffer.resize(size);
        Entry* found = nullptr;
        const int error = call(&entry, buffer.data(), buffer.size(), &found);
        if (error == EINTR) {
            size /= 4;
            continue;
        }
        if (error != ERANGE) return error == 0 ? found : nullptr;
    }
    return nullptr;
}

template <std::size_t size>
void store(const char* name, int id, char (&out)[size]) {
    char number[size];
    if (!name) {
        std::snprintf(number, sizeof number, "%d", id);
        name = number;
    }
    const std::size_t length = strnlen(name, size);
    std::memset(out, 0, size);
    std::memcpy(out, name, length);
}

}  // namespace

void IdNames::copy(Names& names, int id, LookUp lookUp, char (&out)[kSize]) {
    const auto [at, isNew] = names.try_emplace(id);
    if (isNew) lookUp(id, at->second);
    std::memcpy(out, at->second.text, kSize);
}

void IdNames::lookUpUser(int id, Name& out) {
    passwd entry;
    std::vector<char> buffer;
    const passwd* found = entryOf(entry, buffer, [id](passwd* e, char* b, std::size_t n, passwd** f) {
        return getpwuid_r(static_cast<uid_t>(id), e, b, n, f);
    });
    store(found ? found->pw_name : nullptr, id, out.text);
}

void IdNames::lookUpGroup(int id, Name& out) {
    ::group entry;
    std::vector<char> buffer;
    const ::group* found = entryOf(entry, buffer, [id](::group* e, char* b, std::size_t n, ::group** f) {
        return getgrgid_r(static_cast<gid_t>(id), e, b, n, f);
    });
    store(found ? found->gr_name : nullptr, id, out.text);
}
