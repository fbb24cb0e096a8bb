#pragma once
// Bounded singly linked FIFO, the base of every queue monitor. No locking here: the monitors
// that share a queue between threads add a mutex.

#include <cstdint>
#include <utility>

namespace zanth {

template <class Item>
class Queue {
  public:
    static constexpr int32_t kCapacity = 10000;

    Queue() = default;
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;
    ~Queue() {
        Item discard;
        while (Remove(&discard)) {
        }
    }

    // False, with nothing changed, when the queue already holds kCapacity items: the newest
    // item is the one that is lost.
    bool Insert(Item item) {
        if (count_ >= kCapacity) return false;
        Node* node = new Node{std::move(item), nullptr};
        if (tail_) {
            tail_->next = node;
        } else {
            head_ = node;
        }
        tail_ = node;
        ++count_;
        return true;
    }

    int32_t Length() const { return count_; }

    // The head item, or null; changes nothing.
    Item* Peek() { return head_ ? &head_->item : nullptr; }

    // Moves the head item out and frees its node; false when empty.
    bool Remove(Item* out) {
        if (!head_) return false;
        Node* node = head_;
        head_ = node->next;
        if (!head_) tail_ = nullptr;
        *out = std::move(node->item);
        delete node;
        --count_;
        return true;
    }

    bool HasTail() const { return tail_ != nullptr; }

  private:
    struct Node {
        Item item;
        Node* next;
    };
    Node* head_ = nullptr;
    Node* tail_ = nullptr;
    int32_t count_ = 0;
};

}  // namespace zanth
