// A grow-only map from table key to solved table that any number of walker threads read without a
// lock while others insert.
//
// Readers probe an open-addressing array of atomic entry pointers. A writer (one at a time, under a
// mutex) publishes a new entry with one release store, and grows the array by building a larger
// copy and publishing that; the old arrays stay alive until the store dies, so a reader still
// probing one is never left with a dangling slot. Entries never move, so a returned table stays
// valid for the store's lifetime. A table is a pure function of its key: when two threads solve the
// same key at once, the first insert wins and the second copy is dropped, which changes no result.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace RW2D {

template <class T>
class table_store {
public:
    table_store() { publish(std::make_unique<Slots>(kInitialSlots)); }
    table_store(const table_store&) = delete;
    table_store& operator=(const table_store&) = delete;

    // Hash of a key as find and insert use it. Keys are a few dozen bytes at most: eight at a
    // time, each word mixed by one multiply.
    static std::size_t hash(std::string_view key) {
        std::uint64_t h = 0x9e3779b97f4a7c15ull ^ key.size();
        const char* p = key.data();
        std::size_t n = key.size();
        for (; n >= 8; n -= 8, p += 8) h = mix(h, load(p, 8));
        if (n > 0) h = mix(h, load(p, n));
        return static_cast<std::size_t>(h ^ (h >> 29));
    }

    // Returns the table stored under key (h = hash(key)), or null. No lock, no allocation.
    const T* find(std::string_view key, std::size_t h) const {
        const Slots* s = slots_.load(std::memory_order_acquire);
        for (std::size_t i = h & s->mask;; i = (i + 1) & s->mask) {
            const Entry* e = s->at[i].load(std::memory_order_acquire);
            if (e == nullptr) return nullptr;
            if (e->hash == h && e->key == key) return &e->table;
        }
    }
    const T* find(std::string_view key) const { return find(key, hash(key)); }

    // Stores table under key unless the key is already there; returns the stored table.
    const T* insert(std::string_view key, const T& table) {
        const std::size_t h = hash(key);
        std::lock_guard<std::mutex> guard(write_);
        if (const T* there = find(key, h)) return there;
        entries_.push_back(std::make_unique<Entry>(Entry{std::string(key), h, table}));
        const Entry* e = entries_.back().get();
        const Slots* s = slots_.load(std::memory_order_relaxed);
        if (2 * entries_.size() > s->mask + 1) {
            auto grown = std::make_unique<Slots>(2 * (s->mask + 1));
            for (const auto& old : entries_) grown->place(old.get());
            publish(std::move(grown));
        } else {
            arrays_.back()->place(e);
        }
        return &e->table;
    }

    // Number of stored tables.
    std::size_t size() const {
        std::lock_guard<std::mutex> guard(write_);
        return entries_.size();
    }

    // Calls f(key, table) for every entry in insertion order; inserts wait meanwhile.
    void for_each(const std::function<void(const std::string&, const T&)>& f) const {
        std::lock_guard<std::mutex> guard(write_);
        for (const auto& e : entries_) f(e->key, e->table);
    }

private:
    static constexpr std::size_t kInitialSlots = 1024;

    static std::uint64_t load(const char* p, std::size_t n) {
        std::uint64_t w = 0;
        if (n == 8) {
            std::memcpy(&w, p, 8);
        } else {
            for (std::size_t i = 0; i < n; ++i)
                w |= static_cast<std::uint64_t>(static_cast<unsigned char>(p[i])) << (8 * i);
        }
        return w;
    }
    static std::uint64_t mix(std::uint64_t h, std::uint64_t w) {
        const unsigned __int128 m =
            static_cast<unsigned __int128>(h ^ w) * 0xbf58476d1ce4e5b9ull;  // 64x64 -> 128
        return static_cast<std::uint64_t>(m) ^ static_cast<std::uint64_t>(m >> 64);
    }

    struct Entry {
        std::string key;
        std::size_t hash;
        T table;
    };
    struct Slots {
        explicit Slots(std::size_t n) : mask(n - 1), at(new std::atomic<const Entry*>[n]) {
            for (std::size_t i = 0; i < n; ++i) at[i].store(nullptr, std::memory_order_relaxed);
        }
        // Puts e in the first free slot of its probe run; the release store publishes it.
        void place(const Entry* e) {
            std::size_t i = e->hash & mask;
            while (at[i].load(std::memory_order_relaxed) != nullptr) i = (i + 1) & mask;
            at[i].store(e, std::memory_order_release);
        }
        std::size_t mask;
        std::unique_ptr<std::atomic<const Entry*>[]> at;
    };

    void publish(std::unique_ptr<Slots> s) {
        slots_.store(s.get(), std::memory_order_release);
        arrays_.push_back(std::move(s));
    }

    std::atomic<const Slots*> slots_{nullptr};
    mutable std::mutex write_;
    std::vector<std::unique_ptr<Slots>> arrays_;  // the published one last
    std::vector<std::unique_ptr<Entry>> entries_;
};

}  // namespace RW2D
