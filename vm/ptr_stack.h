// A stack of pointers for the vectors the run loop pushes to on every call.
//
// The value stack of a block, its call records (`callblocks`), the displaced
// parameters of a call (`params`) and the free list of its temp pool take a
// push and a pop for almost every instruction of a call. A std::vector's
// push_back is not inlined (its growth path is too large), so each of those
// pushes costs a call of its own. This stack keeps its entries in a vector
// whose size is the stack's capacity and counts the entries in use itself: a
// push into room at hand is a store and an increment in line, and only growth
// goes out of line.
//
// Its members are the std::vector members the run loop uses, with their
// meaning. The one addition is the view of the entries as a std::vector of
// exactly the entries in use (`entries_as_vector`), for a builtin, which
// receives the arguments of its call as a std::vector<vrkvar*>&: what the
// builtin leaves there is taken back (`take_back_entries`).
#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <vector>

namespace vrk {

template <class T>
class vrkptr_stack {
public:
    using value_type = T*;
    using iterator = T**;
    using const_iterator = T* const*;

    vrkptr_stack() = default;
    vrkptr_stack(const vrkptr_stack&) = delete;
    vrkptr_stack& operator=(const vrkptr_stack&) = delete;
    // Holds exactly the entries of `list`.
    vrkptr_stack& operator=(std::initializer_list<T*> list) {
        clear();
        for (T* p : list) push_back(p);
        return *this;
    }

    [[gnu::always_inline]] void push_back(T* p) {
        if (count_ != room_) [[likely]] {
            store_[count_++] = p;
            return;
        }
        grow_and_push(p);
    }
    [[gnu::always_inline]] void pop_back() { --count_; }
    [[gnu::always_inline]] T*& back() { return store_[count_ - 1]; }
    [[gnu::always_inline]] T* back() const { return store_[count_ - 1]; }
    [[gnu::always_inline]] T*& front() { return store_[0]; }
    [[gnu::always_inline]] T*& operator[](std::size_t i) { return store_[i]; }
    [[gnu::always_inline]] T* operator[](std::size_t i) const { return store_[i]; }
    [[gnu::always_inline]] std::size_t size() const { return count_; }
    [[gnu::always_inline]] bool empty() const { return count_ == 0; }
    [[gnu::always_inline]] void clear() { count_ = 0; }
    // Entries it holds before a push must grow it.
    std::size_t capacity() const { return room_; }
    void reserve(std::size_t n) {
        if (n > store_.size()) {
            store_.resize(n);
            room_ = n;
        }
    }
    iterator begin() { return store_.data(); }
    iterator end() { return store_.data() + count_; }
    const_iterator begin() const { return store_.data(); }
    const_iterator end() const { return store_.data() + count_; }
    // Removes the entries [first, last); those behind them move up.
    void erase(iterator first, iterator last) {
        std::copy(last, end(), first);
        count_ -= static_cast<std::size_t>(last - first);
    }

    // The entries in use as a vector of exactly them. Until take_back_entries
    // the vector is the stack's content: nothing else may change the stack.
    std::vector<T*>& entries_as_vector() {
        store_.resize(count_);
        room_ = count_;
        return store_;
    }
    // The entries as the vector of entries_as_vector now holds them.
    void take_back_entries() {
        count_ = store_.size();
        room_ = count_;
    }

private:
    // Room for more: the vector's own spare capacity if it has any (a view
    // for a builtin shrank it), else twice as much.
    [[gnu::noinline]] void grow_and_push(T* p) {
        const std::size_t room = std::max<std::size_t>(
            {std::size_t{8}, store_.capacity(), store_.size() * 2, count_ + 1});
        store_.resize(room);
        room_ = room;
        store_[count_++] = p;
    }

    std::vector<T*> store_;  // the entries, then room; its size is the capacity
    std::size_t count_ = 0;  // entries in use
    std::size_t room_ = 0;   // store_.size(), kept here so that a push compares two counts
};

}  // namespace vrk
