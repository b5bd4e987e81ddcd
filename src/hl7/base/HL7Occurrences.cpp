#include "hl7/base/HL7Occurrences.h"

#include <utility>

#include "hl7/base/HL7ParsingError.h"

namespace HL7v251::Base {

void HL7OccurrenceList::EncodeTo(std::string& out) const {
    if (elements_ != nullptr) {
        for (const auto& element : *elements_) {
            element->EncodeTo(out);
        }
    }
}

int HL7OccurrenceList::DecodeOptional(std::string_view& text) {
    if (text.empty()) {
        return kDecoded;
    }
    return DecodeOne(text) == kMalformed ? Fail(kMalformed) : kDecoded;
}

int HL7OccurrenceList::DecodeRequired(std::string_view& text) {
    const int first = DecodeOne(text);
    if (first != kDecoded) {
        return Fail(first);
    }
    while (!text.empty() && DecodeOne(text) == kDecoded) {
    }
    return kDecoded;
}

int HL7OccurrenceList::DecodeRepeated(std::string_view& text) {
    int result = kDecoded;
    while (result == kDecoded && !text.empty()) {
        result = DecodeOne(text);
    }
    return result == kMalformed ? Fail(kMalformed) : kDecoded;
}

// Decodes one more occurrence and keeps it when it is there.
int HL7OccurrenceList::DecodeOne(std::string_view& text) {
    const HL7ElementType& type = Type();
    if (!type.begins(text)) {
        return kAbsent;
    }
    std::unique_ptr<HL7Object> element = type.make();
    const int result = element->DecodeFrom(text);
    if (result == kDecoded) {
        Keep(std::move(element));
    }
    return result;
}

// Says which element could not be read, and passes on why.
int HL7OccurrenceList::Fail(int result) const {
    WriteParsingError({Type().name, " Segment/SegGroup has a parsing error"});
    return result;
}

void HL7OccurrenceList::Keep(std::unique_ptr<HL7Object> element) {
    if (elements_ == nullptr) {
        elements_ = std::make_unique<Elements>();
    }
    elements_->push_back(std::move(element));
}

}  // namespace HL7v251::Base
