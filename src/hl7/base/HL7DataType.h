#pragma once

#include "hl7/base/HL7Object.h"

namespace HL7v251::Base {

/// A primitive: one value, empty at first, written and read as it stands.
class HL7DataType : public HL7Object {
public:
    virtual const std::string& GetValue() const { return value_; }
    virtual void SetValue(std::string_view value) { value_.assign(value); }

    void Write(HL7Writer& out) const final { out.Put(value_); }
    /// Writes the value behind `count` separators.
    void WriteBehind(char separator, std::size_t count, HL7Writer& out) const {
        out.PutBehind(separator, count, value_);
    }

    /// Takes the whole text.
    int Read(HL7Reader& in) override {
        // Half the work of assign, which also handles a text inside the value itself.
        value_.clear();
        value_.append(in.text);
        in.text.remove_prefix(in.text.size());
        return kDecoded;
    }

private:
    std::string value_;
};

}  // namespace HL7v251::Base
