#pragma once

#include "hl7/base/HL7Composite.h"
#include "hl7/base/HL7Name.h"

namespace HL7v251::Base {

/// A segment: a three-letter name and fields, on one line of the message.
class HL7Segment : public HL7PartOwner {
public:
    using HL7PartOwner::HL7PartOwner;

    virtual std::string_view Name() const = 0;

    /// The name, the fields without separators at their end, and the segment terminator; at least the name and one
    /// separator.
    void Write(HL7Writer& out) const override;
    /// Reads one line when it begins with the name. Fields beyond the supplied ones keep their values.
    int Read(HL7Reader& in) override;
};

/// The segment with the given name and fields of the given types; positions count from 1.
template <HL7Name kText, class... FieldTypes>
class SegmentOf : public HL7Segment {
public:
    static constexpr std::string_view kName = kText.View();
    static constexpr std::size_t kFields = sizeof...(FieldTypes);

    SegmentOf() : HL7Segment((std::derived_from<FieldTypes, HL7DataType> && ...)) {}

    std::string_view Name() const override { return kName; }

    /// Whether `text` begins with this segment.
    static bool Begins(std::string_view text) { return text.starts_with(kName); }

    template <std::size_t N>
    auto& Field() {
        return PartOf<PartAt<N, FieldTypes...>, false>(N - 1, kFields);
    }

    template <std::size_t N>
    const auto& Field() const {
        using T = PartAt<N, FieldTypes...>;
        const HL7Object* field = At(N - 1);
        return field != nullptr ? static_cast<const T&>(*field) : EmptyPart<T>();
    }

protected:
    std::span<const HL7PartType> Types() const override { return kTypes; }

private:
    static_assert(kName.size() == 3);
    static_assert(kFields <= kMaxParts);
    static_assert(((std::derived_from<FieldTypes, HL7DataType> || std::derived_from<FieldTypes, HL7Composite>)&&...));
    static constexpr HL7PartType kTypes[] = {
        {&HL7PartOwner::ReadPart<FieldTypes, false>, std::derived_from<FieldTypes, HL7DataType>}...};
};

}  // namespace HL7v251::Base
