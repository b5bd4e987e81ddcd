#pragma once

#include <memory>
#include <utility>

/// The one object of a class with one instance. It is made on first use, during start-up on the main thread, and lives
/// until it is destroyed by name: the end of the process leaves it alone, because other threads use it while the
/// process exits.
template <typename T>
class CInstance {
public:
    /// Makes the object with `create` when there is none.
    template <typename Create>
    T* Get(Create create) {
        if (object_ == nullptr) {
            object_ = create().release();
        }
        return object_;
    }

    void Destroy() { std::unique_ptr<T>(std::exchange(object_, nullptr)).reset(); }

private:
    T* object_ = nullptr;
};
