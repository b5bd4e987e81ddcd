#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "hl7/base/HL7Object.h"
#include "hl7/base/HL7PartStore.h"

namespace HL7v251::Base {

/// An element with a list of others below it. They live in the store of the whole message; below an element that stands
/// alone, in a store that it makes when it first needs one.
class HL7Parent : public HL7Object {
public:
    HL7Parent() = default;
    HL7Parent(HL7Parent&& other) noexcept;
    ~HL7Parent() override;

    /// Makes what is below live in `store`, which outlives this object. For a new element.
    void LiveIn(HL7PartStore& store) { store_ = &store; }

protected:
    HL7PartStore& Store() {
        if (store_ == nullptr) {
            MakeStore();
        }
        return *store_;
    }

    std::size_t ItemCount() const { return count_; }
    HL7Object* Item(std::size_t index) const { return index < count_ ? items_[index] : nullptr; }
    std::span<HL7Object*> Items() { return {items_, count_}; }
    std::span<HL7Object* const> Items() const { return {items_, count_}; }

    /// Moves the list to where there is room for `room` items, at least as many as there are.
    void MakeRoom(std::size_t room);
    /// Makes the list `count` long, for which there is room; the new items are null.
    void Lengthen(std::size_t count) { count_ = static_cast<std::uint32_t>(count); }

private:
    void MakeStore();

    HL7PartStore* store_ = nullptr;
    HL7Object** items_ = nullptr;
    // Small, so that they share a word with what derived classes add: messages hold thousands of these objects.
    std::uint32_t count_ = 0;
    bool ownsStore_ = false;
};

}  // namespace HL7v251::Base
