#include "unit/hl7/Tree.h"

namespace tree {

namespace {

void CollectPart(const base::HL7Object& part, const std::string& place, Values& values) {
    if (const auto* value = dynamic_cast<const base::HL7DataType*>(&part); value != nullptr) {
        if (!value->GetValue().empty()) {
            values.push_back(place + "=" + value->GetValue());
        }
        return;
    }
    const auto& composite = dynamic_cast<const base::HL7Composite&>(part);
    for (std::size_t index = 0; index < composite.Count(); ++index) {
        if (composite.At(index) != nullptr) {
            CollectPart(*composite.At(index), place + "." + std::to_string(index + 1), values);
        }
    }
}

}  // namespace

void Filler::Fill(base::HL7Segment& segment) {
    for (std::size_t index = 0; index < segment.Count(); ++index) {
        if (Chance(4)) {
            FillPart(segment.Make(index), 1);
        }
    }
    if (segment.Name() == "MSH") {
        dynamic_cast<base::HL7DataType&>(segment.Make(0)).SetValue("|");
    }
}

void Filler::FillPart(base::HL7Object& part, int depth) {
    if (auto* value = dynamic_cast<base::HL7DataType*>(&part); value != nullptr) {
        value->SetValue(Value());
        return;
    }
    auto& composite = dynamic_cast<base::HL7Composite&>(part);
    for (std::size_t index = 0; index < composite.Count(); ++index) {
        // Components of a third level share the separator of the second, so only the first can be told from the next
        // component of the second.
        if (Chance(3) && (depth < 3 || index == 0)) {
            FillPart(composite.Make(index), depth + 1);
        }
    }
}

std::string Filler::Value() {
    std::string value(std::uniform_int_distribution<std::size_t>(1, 24)(random_), '\0');
    for (char& c : value) {
        do {
            c = static_cast<char>(std::uniform_int_distribution(0, 255)(random_));
        } while (c == '\r' || c == '|' || c == '^' || c == '&');
    }
    return value;
}

void Collect(const base::HL7Segment& segment, Values& values) {
    values.emplace_back(segment.Name());
    for (std::size_t index = 0; index < segment.Count(); ++index) {
        if (segment.At(index) != nullptr) {
            CollectPart(*segment.At(index), std::string(segment.Name()) + "-" + std::to_string(index + 1), values);
        }
    }
}

}  // namespace tree
