// SPDX-License-Identifier: MIT
// An array in malloc memory that grows, for code that may not throw.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

#include "base/handles.hpp"

namespace orvel {

template <class T>
class Growable {
    static_assert(std::is_trivially_copyable_v<T>, "realloc moves the elements");

public:
    // False, with errno set and nothing changed, when memory runs out.
    bool append(const T *items, std::size_t count) {
        if (count > capacity_ - size_ && !grow(size_ + count)) return false;
        std::memcpy(items_.get() + size_, items, count * sizeof(T));
        size_ += count;
        return true;
    }
    bool append(const T &item) { return append(&item, 1); }

    void truncate(std::size_t size) { size_ = size; }
    std::size_t size() const { return size_; }
    T &operator[](std::size_t index) { return items_.get()[index]; }
    const T &operator[](std::size_t index) const { return items_.get()[index]; }
    T &last() { return items_.get()[size_ - 1]; }

    // The elements in a block of just their size, for the caller to free; null if there are none.
    T *release() {
        if (size_ == 0) return nullptr;
        // If shrinking fails, the larger block is used.
        if (void *exact = std::realloc(items_.get(), size_ * sizeof(T))) {
            (void)items_.release();
            items_.reset(static_cast<T *>(exact));
        }
        capacity_ = size_ = 0;
        return items_.release();
    }

private:
    bool grow(std::size_t needed) {
        const std::size_t capacity = needed < 2 * capacity_ ? 2 * capacity_ : needed + 16;
        void *items = std::realloc(items_.get(), capacity * sizeof(T));
        if (items == nullptr) return false;
        (void)items_.release();  // it is realloc's now
        items_.reset(static_cast<T *>(items));
        capacity_ = capacity;
        return true;
    }

    std::unique_ptr<T[], Releaser<std::free>> items_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace orvel
