#pragma once

#include <memory>
#include <utility>

/// The one object of a class with one instance. It is made on first use, during start-up on the main thread, and lives
/// until it is destroyed by name: the end of the process leaves it alone, because other threads use it while the
/// process exits. Nothing here locks: the first use and the destruction are the main thread's, before and after there
/// are others.
template <typename T>
class CInstance {
public:
    T* Get() { return Get(&std::make_unique<T>); }

    /// The object, with `create` made when there is none; never null.
    template <typename Create>
    T* Get(Create create) {
        if (object_ == nullptr) {
            object_ = create().release();
        }
        return object_;
    }

    /// Deletes the object, if there is one.
    void Destroy() { std::unique_ptr<T>(std::exchange(object_, nullptr)).reset(); }

private:
    T* object_ = nullptr;
};
