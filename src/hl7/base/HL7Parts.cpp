#include "hl7/base/HL7Parts.h"

#include <algorithm>

#include "hl7/base/HL7DataType.h"

namespace HL7v251::Base {

HL7Pieces::HL7Pieces(std::string_view text, char separator, std::size_t limit) : start_(text.data()) {
    const char* const textEnd = text.data() + text.size();
    const char* at = text.data();
    for (; at != textEnd && count_ < limit; ++count_) {
        const char* end = at;
        while (end != textEnd && *end != separator) {
            ++end;
        }
        ends_[count_] = end;
        if (end != at) {
            filled_ = count_ + 1;
        }
        at = end != textEnd ? end + 1 : textEnd;
    }
    consumed_ = static_cast<std::size_t>(at - text.data());
}

void HL7Parts::Destroy() {
    for (std::size_t index = 0; index < count_; ++index) {
        if (parts_[index] != nullptr) {
            std::destroy_at(parts_[index]);
        }
    }
    count_ = 0;
}

HL7Object& HL7Parts::Make(std::size_t index, std::span<const HL7PartType> types, HL7PartStore& store) {
    if (index >= count_) {
        Grow(types.size(), store);
    }
    if (parts_[index] == nullptr) {
        parts_[index] = types[index].make(store);
    }
    return *parts_[index];
}

void HL7Parts::EncodeTo(std::string& out, char separator, std::size_t first) const {
    std::size_t end = count_;
    while (end > first && parts_[end - 1] == nullptr) {
        --end;
    }
    for (std::size_t index = first; index < end; ++index) {
        if (index > first) {
            out.push_back(separator);
        }
        if (parts_[index] != nullptr) {
            parts_[index]->EncodeTo(out);
        }
    }
}

std::size_t HL7Parts::Measure(const HL7Pieces& pieces, std::size_t first, std::span<const HL7PartType> types) {
    constexpr std::size_t kComponentSize = sizeof(HL7Object*) + sizeof(HL7DataType);
    const auto separates = [](char c) {
        return c == HL7Object::kComponentSeparator || c == HL7Object::kSubcomponentSeparator;
    };
    std::size_t size = (first + pieces.Filled()) * sizeof(HL7Object*);
    for (std::size_t index = 0; index < pieces.Filled(); ++index) {
        const std::string_view piece = pieces.At(index);
        const HL7PartType& type = types[first + index];
        if (!piece.empty()) {
            size += type.size;
            if (type.composite) {
                const auto more = static_cast<std::size_t>(std::count_if(piece.begin(), piece.end(), separates));
                size += std::min(more, kMaxParts) * kComponentSize;
            }
        }
    }
    return size;
}

int HL7Parts::DecodeFrom(const HL7Pieces& pieces, std::size_t first, std::span<const HL7PartType> types,
                         HL7PartStore& store) {
    if (pieces.Filled() > 0 && first + pieces.Filled() > count_) {
        Grow(first + pieces.Filled(), store);
    }
    for (std::size_t index = 0; index < pieces.Count(); ++index) {
        std::string_view piece = pieces.At(index);
        const std::size_t position = first + index;
        HL7Object* part = position < count_ ? parts_[position] : nullptr;
        if (part == nullptr) {
            // An empty piece only matters to a part that may hold something.
            if (piece.empty()) {
                continue;
            }
            part = parts_[position] = types[position].make(store);
        }
        if (part->DecodeFrom(piece) == kMalformed) {
            return static_cast<int>(position);
        }
    }
    return -1;
}

void HL7Parts::Grow(std::size_t count, HL7PartStore& store) {
    auto** grown = static_cast<HL7Object**>(store.Allocate(count * sizeof(HL7Object*)));
    std::fill(std::copy_n(parts_, count_, grown), grown + count, nullptr);
    parts_ = grown;
    count_ = static_cast<std::uint8_t>(count);
}

}  // namespace HL7v251::Base
