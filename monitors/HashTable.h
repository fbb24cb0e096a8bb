#pragma once
// Chained hash table with a fixed bucket count, keyed by MacHash. Nodes are appended at the
// tail of their chain and look-ups take the first match, so entries of one key leave in
// arrival order. No locking here.

#include <cstdint>
#include <list>
#include <utility>
#include <vector>

namespace zanth {

template <class Value>
class HashTable {
  public:
    explicit HashTable(int32_t buckets) : buckets_(buckets > 0 ? buckets : 13) {}

    int32_t BucketCount() const { return static_cast<int32_t>(buckets_.size()); }

    void Insert(Value value, uint32_t key) { Chain(key).push_back({key, std::move(value)}); }

    Value* Find(uint32_t key) {
        for (Node& n : Chain(key)) {
            if (n.key == key) return &n.value;
        }
        return nullptr;
    }

    int32_t Count(uint32_t key) {
        int32_t n = 0;
        for (Node& node : Chain(key)) n += (node.key == key) ? 1 : 0;
        return n;
    }

    // The position-th value of a bucket (bucket taken modulo the count), or null.
    Value* At(int32_t bucket, int32_t position) {
        auto& chain = buckets_[static_cast<size_t>(bucket) % buckets_.size()];
        for (Node& n : chain) {
            if (position-- == 0) return &n.value;
        }
        return nullptr;
    }

    // Unlinks the first node of the key; false when there is none.
    bool Remove(uint32_t key, Value* out) {
        auto& chain = Chain(key);
        for (auto it = chain.begin(); it != chain.end(); ++it) {
            if (it->key == key) {
                if (out) *out = std::move(it->value);
                chain.erase(it);
                return true;
            }
        }
        return false;
    }

    // Unlinks the first node of the key for which `match` holds.
    template <class Match>
    bool RemoveIf(uint32_t key, Match match, Value* out) {
        auto& chain = Chain(key);
        for (auto it = chain.begin(); it != chain.end(); ++it) {
            if (it->key == key && match(it->value)) {
                if (out) *out = std::move(it->value);
                chain.erase(it);
                return true;
            }
        }
        return false;
    }

    // Unlinks the head of a bucket (no modulo); false when it is empty or out of range.
    bool Pop(int32_t bucket, Value* out) {
        if (bucket < 0 || bucket >= BucketCount()) return false;
        auto& chain = buckets_[static_cast<size_t>(bucket)];
        if (chain.empty()) return false;
        if (out) *out = std::move(chain.front().value);
        chain.pop_front();
        return true;
    }

    // Visits every value, bucket by bucket, each chain in order.
    template <class Visit>
    void ForEach(Visit visit) {
        for (auto& chain : buckets_) {
            for (Node& n : chain) {
                if (!visit(n.value)) return;
            }
        }
    }

  private:
    struct Node {
        uint32_t key;
        Value value;
    };
    std::list<Node>& Chain(uint32_t key) { return buckets_[key % buckets_.size()]; }
    std::vector<std::list<Node>> buckets_;
};

}  // namespace zanth
