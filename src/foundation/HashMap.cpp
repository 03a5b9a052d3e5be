#include "foundation/HashMap.h"

#include <cstdlib>
#include <cstring>

namespace {
constexpr int kSmallest = 32;
constexpr int kLargest = 1 << 30;
}  // namespace

unsigned hash_function(const char* key) {
    unsigned hash = 5381;
    for (; *key; ++key) hash = hash * 33u + static_cast<unsigned>(static_cast<int>(static_cast<signed char>(*key)));
    return hash;
}

HashMap::HashMap() : HashMap(64) {}

HashMap::HashMap(int capacity) {
    capacity_ = kSmallest;
    while (capacity_ < capacity && capacity_ < kLargest) capacity_ *= 2;
    threshold_ = capacity_ / 4 * 3;
    buckets_ = static_cast<Entry**>(std::calloc(static_cast<std::size_t>(capacity_), sizeof(Entry*)));
    if (!buckets_) std::abort();
}

HashMap::~HashMap() {
    clear();
    std::free(buckets_);
}

HashMap::Entry* HashMap::find(const char* key) const {
    if (!key) return nullptr;
    const unsigned hash = hash_function(key);
    for (Entry* e = *bucket(hash); e; e = e->next) {
        if (e->hash == hash && std::strcmp(e->key, key) == 0) return e;
    }
    return nullptr;
}

void HashMap::put(const char* key, const void* value) {
    if (!key) return;
    if (Entry* present = find(key)) {
        present->value = value;
        return;
    }
    const unsigned hash = hash_function(key);
    Entry** head = bucket(hash);
    *head = new Entry{*head, hash, key, value};
    if (++count_ > threshold_) resize();
}

void* HashMap::get(const char* key) const {
    const Entry* e = find(key);
    return e ? const_cast<void*>(e->value) : nullptr;
}

bool HashMap::contains(const char* key) const { return find(key) != nullptr; }

void* HashMap::remove(const char* key, const char** oldKey) {
    if (oldKey) *oldKey = nullptr;
    if (!key) return nullptr;
    const unsigned hash = hash_function(key);
    for (Entry** link = bucket(hash); *link; link = &(*link)->next) {
        Entry* e = *link;
        if (e->hash != hash || std::strcmp(e->key, key) != 0) continue;
        *link = e->next;
        if (oldKey) *oldKey = e->key;
        void* value = const_cast<void*>(e->value);
        delete e;
        if (count_ >= 1) --count_;
        return value;
    }
    return nullptr;
}

void HashMap::foreach (void (*fn)(const char* key, const void* value, void* arg), void* arg) const {
    for (int i = 0; i < capacity_; ++i) {
        for (const Entry* e = buckets_[i]; e; e = e->next) fn(e->key, e->value, arg);
    }
}

void HashMap::resize() {
    if (capacity_ >= kLargest) return;
    const int oldCapacity = capacity_;
    Entry** oldBuckets = buckets_;
    capacity_ *= 2;
    threshold_ = capacity_ / 4 * 3;
    buckets_ = static_cast<Entry**>(std::calloc(static_cast<std::size_t>(capacity_), sizeof(Entry*)));
    if (!buckets_) std::abort();
    for (int i = 0; i < oldCapacity; ++i) {
        while (Entry* e = oldBuckets[i]) {
            oldBuckets[i] = e->next;
            Entry** head = bucket(e->hash);
            e->next = *head;
            *head = e;
        }
    }
    std::free(oldBuckets);
}

void HashMap::clear() {
    for (int i = 0; i < capacity_; ++i) {
        while (Entry* e = buckets_[i]) {
            buckets_[i] = e->next;
            delete e;
        }
    }
    count_ = 0;
}

HashMapIterator HashMap::iterator() const { return HashMapIterator(this); }

bool HashMapIterator::hasNext() const {
    if (entry_ && entry_->next) return true;
    for (int i = bucket_ + 1; i < map_->capacity_; ++i) {
        if (map_->buckets_[i]) return true;
    }
    return false;
}

void HashMapIterator::next() {
    if (entry_ && entry_->next) {
        entry_ = entry_->next;
        return;
    }
    for (int i = bucket_ + 1; i < map_->capacity_; ++i) {
        if (map_->buckets_[i]) {
            bucket_ = i;
            entry_ = map_->buckets_[i];
            return;
        }
    }
}
