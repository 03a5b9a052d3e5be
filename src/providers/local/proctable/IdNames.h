// Names of users and groups, looked up once for each id.
#pragma once

#include <unordered_map>

class IdNames {
  public:
    static constexpr int kSize = 16;
    // The name's first 16 bytes, padded with NULs (none if it fills them); the number in decimal if there is no name.
    void user(int id, char (&out)[kSize]) { copy(users_, id, &lookUpUser, out); }
    void group(int id, char (&out)[kSize]) { copy(groups_, id, &lookUpGroup, out); }

  private:
    struct Name {
        char text[kSize];
    };
    using Names = std::unordered_map<int, Name>;
    using LookUp = void (*)(int id, Name& out);
    static void copy(Names& names, int id, LookUp lookUp, char (&out)[kSize]);
    static void lookUpUser(int id, Name& out);
    static void lookUpGroup(int id, Name& out);

    Names users_;
    Names groups_;
};
