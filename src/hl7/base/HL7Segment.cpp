#include "hl7/base/HL7Segment.h"

#include <algorithm>

#include "hl7/base/HL7ParsingError.h"

namespace HL7v251::Base {

namespace {

constexpr std::string_view kHeaderName = "MSH";
// The name and the separator behind it.
constexpr std::size_t kPrefixLength = 4;

// The first memory of a segment whose fields are set one by one: a handful of them.
constexpr std::size_t kRoomForSetting = 480;

// The first field of the header is the separator behind its name, so it is neither written nor cut out as a field.
std::size_t FirstField(std::string_view name) {
    return name == kHeaderName ? 1 : 0;
}

}  // namespace

void HL7Segment::EncodeTo(std::string& out) const {
    const std::size_t start = out.size();
    out.append(Name());
    out.push_back(kFieldSeparator);
    if (fields_ != nullptr) {
        fields_->parts.EncodeTo(out, kFieldSeparator, FirstField(Name()));
        while (out.size() > start + kPrefixLength && out.back() == kFieldSeparator) {
            out.pop_back();
        }
    }
    out.push_back(kSegmentTerminator);
}

int HL7Segment::DecodeFrom(std::string_view& text) {
    const std::string_view name = Name();
    if (!text.starts_with(name)) {
        return kAbsent;
    }
    std::string_view line = text.substr(0, text.find(kSegmentTerminator));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    line.remove_prefix(std::min(kPrefixLength, line.size()));

    const std::size_t first = FirstField(name);
    const auto types = Types();
    const HL7Pieces pieces(line, kFieldSeparator, types.size() - first);
    if (fields_ == nullptr) {
        if (first == 0 && pieces.Filled() == 0) {
            return kDecoded;
        }
        MakeFields(HL7Parts::Measure(pieces, first, types));
    }
    if (first != 0) {
        std::string_view separator(&kFieldSeparator, 1);
        if (Make(0).DecodeFrom(separator) == kMalformed) {
            WriteParsingError({"The FieldSeparator parsing error"});
        }
    }
    const int malformed = fields_->parts.DecodeFrom(pieces, first, types, fields_->store);
    if (malformed >= 0) {
        WriteParsingError({name, " Segment's ", std::to_string(malformed + 1), "th field has a parsing error"});
        return kMalformed;
    }
    return kDecoded;
}

HL7Object& HL7Segment::Make(std::size_t index) {
    if (fields_ == nullptr) {
        MakeFields(kRoomForSetting);
    }
    return fields_->parts.Make(index, Types(), fields_->store);
}

}  // namespace HL7v251::Base
