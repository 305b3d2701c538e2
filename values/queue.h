// A multi-producer, single-consumer lock-free queue of pointers.
//
// Threads that do not own the global lock may not touch the free lists, so the
// records they free are appended here instead and the frame loop drains them
// while it holds the lock. The queue is singly linked with a dummy head node:
// producers swing the tail with compare-and-swap and then link the old tail to
// the new node; the single consumer moves the head forward. A node that a
// producer has swung in but not yet linked is simply seen on the next drain.
#pragma once

#include <atomic>
#include <memory>

namespace vrk {

template <class T>
class vrkqueue {
public:
    vrkqueue() {
        Node* dummy = new Node{nullptr, {nullptr}};
        head.store(dummy);
        tail.store(dummy);
    }
    ~vrkqueue() {
        Node* n = head.load();
        while (n) {
            Node* next = n->next.load();
            delete n;
            n = next;
        }
    }
    vrkqueue(const vrkqueue&) = delete;
    vrkqueue& operator=(const vrkqueue&) = delete;

    // Appends a payload; safe from any thread.
    void push(T* payload) {
        Node* node = new Node{payload, {nullptr}};
        Node* old = tail.load();
        while (!tail.compare_exchange_weak(old, node)) {}
        old->next.store(node);
    }

    // Takes the oldest payload, or null when the queue is (seen as) empty.
    // Only one thread may drain at a time.
    T* pop() {
        Node* first = head.load();
        Node* next = first->next.load();
        if (!next) return nullptr;
        T* payload = next->payload;
        next->payload = nullptr;
        head.store(next);
        delete first;
        return payload;
    }

    bool empty() const { return head.load()->next.load() == nullptr; }

private:
    struct Node {
        T* payload;               // record waiting to be freed; null in the dummy
        std::atomic<Node*> next;  // following node, null at the tail
    };
    std::atomic<Node*> head;  // dummy node: its successor is the oldest entry
    std::atomic<Node*> tail;  // newest node
};

}  // namespace vrk
