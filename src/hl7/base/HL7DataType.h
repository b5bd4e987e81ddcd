#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "hl7/base/HL7Object.h"
#include "hl7/base/HL7PartStore.h"

namespace HL7v251::Base {

/// A primitive: one value, empty at first, written and read as it stands. The text of the value lives in the store of
/// the message; that of a primitive that stands alone, in a store of its own.
class HL7DataType : public HL7Object {
public:
    HL7DataType() = default;
    ~HL7DataType() override;

    /// Makes the value live in `store`, which outlives this object. For a new object.
    void LiveIn(HL7PartStore& store) { store_ = &store; }

    /// Valid until the value is set again or the message is gone.
    virtual std::string_view GetValue() const { return {text_, size_}; }
    virtual void SetValue(std::string_view value);

    void Write(HL7Writer& out) const final { out.Put({text_, size_}); }
    /// Writes the value behind `count` separators.
    void WriteBehind(char separator, std::size_t count, HL7Writer& out) const {
        out.PutBehind(separator, count, {text_, size_});
    }

    /// Takes the whole text.
    int Read(HL7Reader& in) override {
        if (in.kept) {
            text_ = in.text.data();
            size_ = in.text.size();
            room_ = 0;
        } else {
            HL7DataType::SetValue(in.text);
        }
        in.text.remove_prefix(in.text.size());
        return kDecoded;
    }

private:
    HL7PartStore* store_ = nullptr;
    const char* text_ = nullptr;
    std::size_t size_ = 0;
    std::uint32_t room_ = 0;  // for a longer text at the same place; 0 also where the text is part of a larger one
    bool ownsStore_ = false;
};

}  // namespace HL7v251::Base
