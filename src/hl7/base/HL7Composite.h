#pragma once

#include "hl7/base/HL7Parts.h"

namespace HL7v251::Base {

/// A field made of components. As a field it separates them with "^"; as a component of another composite with "&".
class HL7Composite : public HL7Object {
public:
    HL7Composite() = default;
    ~HL7Composite() override;

    /// Components joined by the separator; separators at the end are removed.
    void EncodeTo(std::string& out) const override;
    /// Components beyond the supplied pieces keep their values; pieces beyond the components stay in the text.
    int DecodeFrom(std::string_view& text) override;

    /// Called by the composite that holds this one.
    void UseSubcomponentSeparator() { separator_ = kSubcomponentSeparator; }

    /// Makes the components live in `store`, which outlives this composite. Without it they live in a store of their
    /// own.
    void LiveIn(HL7PartStore& store) { store_ = &store; }

    /// The number of components.
    std::size_t Count() const { return Types().size(); }
    /// The component at `index`, counted from 0, or null when it was never written to.
    const HL7Object* At(std::size_t index) const { return parts_.At(index); }
    /// The component at `index`, made now if need be; `index` is below Count().
    HL7Object& Make(std::size_t index) { return parts_.Make(index, Types(), Store()); }

protected:
    virtual std::span<const HL7PartType> Types() const = 0;

private:
    HL7PartStore& Store();

    HL7PartStore* store_ = nullptr;
    // Messages hold thousands of composites: the two bytes after the parts share their last word.
    [[no_unique_address]] HL7Parts parts_;
    char separator_ = kComponentSeparator;
    bool ownsStore_ = false;
};

/// The bytes that a part of type T takes with one value in it, at its first position.
template <class T>
consteval std::uint16_t SizeWithValue() {
    if constexpr (requires { typename T::First; }) {
        return static_cast<std::uint16_t>(sizeof(T) + sizeof(HL7Object*) + SizeWithValue<typename T::First>());
    } else {
        return sizeof(T);
    }
}

/// Makes a part of type T: a field, or a component when `kComponent`.
template <class T, bool kComponent>
HL7Object* MakePart(HL7PartStore& store, std::string_view text, int& result) {
    T* part = ::new (store.Allocate(sizeof(T))) T;
    if constexpr (std::derived_from<T, HL7Composite>) {
        part->LiveIn(store);
        if constexpr (kComponent) {
            part->UseSubcomponentSeparator();
        }
    }
    // The type is known here: no need to ask the object for it.
    result = part->T::DecodeFrom(text);
    return part;
}

/// The composite with components of the given types; positions count from 1.
template <class... Components>
class CompositeOf : public HL7Composite {
public:
    static constexpr std::size_t kComponents = sizeof...(Components);
    using First = PartAt<1, Components...>;

    template <std::size_t N>
    auto& Component() {
        return static_cast<PartAt<N, Components...>&>(Make(N - 1));
    }

    template <std::size_t N>
    const auto& Component() const {
        using T = PartAt<N, Components...>;
        const HL7Object* component = At(N - 1);
        return component != nullptr ? static_cast<const T&>(*component) : EmptyPart<T>();
    }

protected:
    std::span<const HL7PartType> Types() const override { return kTypes; }

private:
    static_assert(kComponents <= kMaxParts);
    static constexpr HL7PartType kTypes[] = {{&MakePart<Components, true>, SizeWithValue<Components>()}...};
};

}  // namespace HL7v251::Base
