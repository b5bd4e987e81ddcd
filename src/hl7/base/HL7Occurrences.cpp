#include "hl7/base/HL7Occurrences.h"

#include <algorithm>
#include <bit>

#include "hl7/base/HL7ParsingError.h"

namespace HL7v251::Base {

void HL7OccurrenceList::Write(HL7Writer& out) const {
    for (const HL7Object* element : Items()) {
        element->Write(out);
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
    HL7Object& element = type.make(Store());
    const int result = element.Read(in);
    if (result == kDecoded) {
        Keep(element);
    }
    return result;
}

// Says which element could not be read, and passes on why.
int HL7OccurrenceList::Fail(int result) const {
    WriteParsingError({Type().name, " Segment/SegGroup has a parsing error"});
    return result;
}

void HL7OccurrenceList::Keep(HL7Object& element) {
    // Room is doubled, so it is used up whenever the number is a power of two.
    const std::size_t count = ItemCount();
    if (count == 0 || std::has_single_bit(count)) {
        MakeRoom(std::max<std::size_t>(1, 2 * count));
    }
    Lengthen(count + 1);
    Items()[count] = &element;
}

}  // namespace HL7v251::Base
