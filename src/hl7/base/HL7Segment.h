#pragma once

#include "hl7/base/HL7Composite.h"
#include "hl7/base/HL7Name.h"

namespace HL7v251::Base {

/// A segment: a three-letter name and fields, on one line of the message.
class HL7Segment : public HL7Object {
public:
    virtual std::string_view Name() const = 0;

    /// The name, the fields without separators at their end, and the segment terminator; at least the name and one
    /// separator.
    void EncodeTo(std::string& out) const override;
    /// Reads one line when it begins with the name. Fields beyond the supplied ones keep their values.
    int DecodeFrom(std::string_view& text) override;

    /// The number of fields.
    std::size_t Count() const { return Types().size(); }
    /// The field at `index`, counted from 0, or null when it was never written to.
    const HL7Object* At(std::size_t index) const { return fields_ != nullptr ? fields_->parts.At(index) : nullptr; }
    /// The field at `index`, made now if need be; `index` is below Count().
    HL7Object& Make(std::size_t index);

protected:
    virtual std::span<const HL7PartType> Types() const = 0;

private:
    // The fields, with the first memory of their store right behind them in the same allocation.
    struct Fields {
        struct Room {
            std::size_t size;
        };
        explicit Fields(Room room) : store(reinterpret_cast<std::byte*>(this + 1), room.size) {}
        static void* operator new(std::size_t size, Room room) { return ::operator new(size + room.size); }
        static void operator delete(void* memory) { ::operator delete(memory); }
        static void operator delete(void* memory, Room) { ::operator delete(memory); }

        HL7PartStore store;
        HL7Parts parts;
    };

    void MakeFields(std::size_t room) { fields_.reset(new (Fields::Room{room}) Fields(Fields::Room{room})); }

    // Null while every field is empty, so that an empty segment is as small as can be.
    std::unique_ptr<Fields> fields_;
};

/// The segment with the given name and fields of the given types; positions count from 1.
template <HL7Name kText, class... FieldTypes>
class SegmentOf : public HL7Segment {
public:
    static constexpr std::string_view kName = kText.View();
    static constexpr std::size_t kFields = sizeof...(FieldTypes);

    std::string_view Name() const override { return kName; }

    /// Whether `text` begins with this segment.
    static bool Begins(std::string_view text) { return text.starts_with(kName); }

    template <std::size_t N>
    auto& Field() {
        return static_cast<PartAt<N, FieldTypes...>&>(Make(N - 1));
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
    static constexpr HL7PartType kTypes[] = {{&MakePart<FieldTypes, false>, SizeWithValue<FieldTypes>()}...};
};

}  // namespace HL7v251::Base
