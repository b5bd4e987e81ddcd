#include "hl7/base/HL7Occurrences.h"

#include <utility>

#include "hl7/base/HL7ParsingError.h"

namespace HL7v251::Base {

void HL7OccurrenceList::Write(HL7Writer& out) const {
    if (elements_ != nullptr) {
        for (const auto& element : *elements_) {
            element->Write(out);
        }
    }
}

int HL7OccurrenceList::ReadOptional(HL7Reader& in) {
    if (in.text.empty()) {
        return kDecoded;
    }
    return ReadOne(in) == kMalformed ? Fail(kMalformed) : kDecoded;
}

int HL7OccurrenceList::ReadRequired(HL7Reader& in) {
    const int first = ReadOne(in);
    if (first != kDecoded) {
        return Fail(first);
    }
    while (!in.text.empty() && ReadOne(in) == kDecoded) {
    }
    return kDecoded;
}

int HL7OccurrenceList::ReadRepeated(HL7Reader& in) {
    int result = kDecoded;
    while (result == kDecoded && !in.text.empty()) {
        result = ReadOne(in);
    }
    return result == kMalformed ? Fail(kMalformed) : kDecoded;
}

// Reads one more occurrence and keeps it when it is there.
int HL7OccurrenceList::ReadOne(HL7Reader& in) {
    const HL7ElementType& type = Type();
    if (!type.begins(in.text)) {
        return kAbsent;
    }
    std::unique_ptr<HL7Object> element = type.make();
    const int result = element->Read(in);
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
