#pragma once

#include <concepts>

#include "hl7/base/HL7DataType.h"
#include "hl7/base/HL7PartOwner.h"

namespace HL7v251::Base {

/// A field made of components. As a field it separates them with "^"; as a component of another composite with "&".
class HL7Composite : public HL7PartOwner {
public:
    using HL7PartOwner::HL7PartOwner;

    /// Components joined by the separator; separators at the end are removed.
    void Write(HL7Writer& out) const final;
    /// Components beyond the supplied pieces keep their values; pieces beyond the components stay in the text.
    int Read(HL7Reader& in) override;

    /// Called by the composite that holds this one.
    void UseSubcomponentSeparator() { separator_ = kSubcomponentSeparator; }

private:
    char separator_ = kComponentSeparator;
};

/// The composite with components of the given types; positions count from 1.
template <class... Components>
class CompositeOf : public HL7Composite {
public:
    static constexpr std::size_t kComponents = sizeof...(Components);

    CompositeOf() : HL7Composite((std::derived_from<Components, HL7DataType> && ...)) {}

    template <std::size_t N>
    auto& Component() {
        return PartOf<PartAt<N, Components...>, true>(N - 1, kComponents);
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
    static_assert(((std::derived_from<Components, HL7DataType> || std::derived_from<Components, HL7Composite>)&&...));
    static constexpr HL7PartType kTypes[] = {
        {&HL7PartOwner::ReadPart<Components, true>, std::derived_from<Components, HL7DataType>}...};
};

}  // namespace HL7v251::Base
