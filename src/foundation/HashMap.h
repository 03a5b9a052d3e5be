// HashMap: a chained hash table from terminated keys to untyped pointers. It copies no key and frees neither keys
// nor values: a stored key must stay valid as long as its entry. No locks.
#pragma once

class HashMapIterator;

// hash = hash * 33 + byte from 5381, in 32 bits, each byte taken as a signed value.
unsigned hash_function(const char* key);

class HashMap {
  public:
    HashMap();
    explicit HashMap(int capacity);  // rounded up to 32, 64, 128 …
    HashMap(const HashMap&) = delete;
    HashMap& operator=(const HashMap&) = delete;
    virtual ~HashMap();

    // Replaces the value of a present key and keeps the old key pointer, else adds an entry.
    void put(const char* key, const void* value);
    void* get(const char* key) const;  // null if absent (or if the value is null)
    bool contains(const char* key) const;
    // Unlinks the entry and returns its value, null if absent. `*oldKey`, if asked for, is the stored key or null.
    void* remove(const char* key, const char** oldKey);
    // Buckets by ascending index, each chain from its head.
    void foreach (void (*fn)(const char* key, const void* value, void* arg), void* arg) const;
    void resize();
    void clear();
    int getCount() const { return count_; }
    int getCapacity() const { return capacity_; }
    int getThreshold() const { return threshold_; }
    HashMapIterator iterator() const;

  private:
    friend class HashMapIterator;
    struct Entry {
        Entry* next;
        unsigned hash;
        const char* key;
        const void* value;
    };
    Entry** bucket(unsigned hash) const { return &buckets_[hash & static_cast<unsigned>(capacity_ - 1)]; }
    Entry* find(const char* key) const;

    int count_ = 0;
    int capacity_ = 0;
    int threshold_ = 0;
    Entry** buckets_ = nullptr;
};

// Starts before the first entry: next() comes before getKey() and getData().
class HashMapIterator {
  public:
    explicit HashMapIterator(const HashMap* map) : map_(map) {}
    virtual ~HashMapIterator() = default;
    bool hasNext() const;
    void next();
    const char* getKey() const { return entry_ ? entry_->key : nullptr; }
    void* getData() const { return entry_ ? const_cast<void*>(entry_->value) : nullptr; }

  private:
    const HashMap* map_;
    int bucket_ = -1;
    const HashMap::Entry* entry_ = nullptr;
};
