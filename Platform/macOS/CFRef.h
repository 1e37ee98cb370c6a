#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <type_traits>
#include <utility>

namespace tarn {

/// Owns one reference to a Core Foundation object, or none.
template <class T> class CFRef {
public:
    CFRef() = default;
    /// Takes over the reference that a function with Create or Copy in its name gave.
    static CFRef adopt(T object) { return CFRef(object); }
    /// Adds a reference to an object that belongs to somebody else.
    static CFRef retain(T object) {
        if (object)
            CFRetain(object);
        return CFRef(object);
    }

    CFRef(const CFRef &) = delete;
    CFRef &operator=(const CFRef &) = delete;
    CFRef(CFRef &&other) noexcept : object_(other.release()) {}
    template <class Other>
        requires std::is_convertible_v<Other, T>
    CFRef(CFRef<Other> &&other) noexcept : object_(other.release()) {}
    CFRef &operator=(CFRef &&other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~CFRef() {
        if (object_)
            CFRelease(object_);
    }

    T get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    /// Hands the reference to the caller, who has to release it.
    T release() { return std::exchange(object_, nullptr); }

private:
    explicit CFRef(T object) : object_(object) {}

    T object_ = nullptr;
};

} // namespace tarn
