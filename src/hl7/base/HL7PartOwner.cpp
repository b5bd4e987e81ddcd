#include "hl7/base/HL7PartOwner.h"

#include <utility>

#include "hl7/base/HL7Composite.h"
#include "hl7/base/HL7DataType.h"

namespace HL7v251::Base {

HL7PartOwner::HL7PartOwner(HL7PartOwner&& other) noexcept
    : HL7Parent(std::move(other)),
      room_(std::exchange(other.room_, std::uint8_t{0})),
      onlyPrimitives_(other.onlyPrimitives_) {}

HL7Object& HL7PartOwner::Make(std::size_t index) {
    const auto types = Types();
    HL7Object*& part = Slot(index, types.size());
    if (part == nullptr) {
        int result = kDecoded;
        part = types[index].read(Store(), {}, result);
    }
    return *part;
}

void HL7PartOwner::WriteParts(HL7Writer& out, char separator, std::size_t first) const {
    const auto parts = Items();
    const HL7PartType* const types = onlyPrimitives_ ? nullptr : Types().data();
    std::size_t written = first;
    for (std::size_t index = first; index < parts.size(); ++index) {
        if (parts[index] == nullptr) {
            continue;
        }
        // Most parts are primitives, and those need not be asked what they are.
        if (types == nullptr || types[index].primitive) {
            static_cast<const HL7DataType&>(*parts[index]).WriteBehind(separator, index - written, out);
        } else {
            out.PutRun(separator, index - written);
            static_cast<const HL7Composite&>(*parts[index]).Write(out);
        }
        written = index;
    }
}

int HL7PartOwner::ReadParts(const HL7Pieces& pieces, std::size_t first, bool kept) {
    const auto filled = pieces.Filled();
    const auto types = Types();
    const bool hadParts = HasParts();
    if (!filled.empty() && first + filled.back().index >= ItemCount()) {
        const std::size_t count = first + filled.back().index + 1;
        MakeSlots(count, count);
    }
    int result = kDecoded;
    if (!hadParts) {
        for (const HL7Piece& piece : filled) {
            const std::size_t index = first + piece.index;
            Items()[index] = types[index].read(Store(), {pieces.Text(piece), kept}, result);
            if (result == kMalformed) {
                return static_cast<int>(index);
            }
        }
        return -1;
    }
    // To a part that may hold something, an empty piece matters too.
    auto next = filled.begin();
    for (std::size_t index = first; index < first + pieces.Count(); ++index) {
        HL7Reader piece{{}, kept};
        if (next != filled.end() && first + next->index == index) {
            piece.text = pieces.Text(*next);
            ++next;
        }
        if (HL7Object* part = Item(index); part != nullptr) {
            result = part->Read(piece);
        } else if (!piece.text.empty()) {
            Items()[index] = types[index].read(Store(), piece, result);
        }
        if (result == kMalformed) {
            return static_cast<int>(index);
        }
    }
    return -1;
}

int HL7PartOwner::ReadOnlyPart(HL7Reader text) {
    int result = kDecoded;
    if (!HasParts()) {
        MakeSlots(1, 1);
        Items()[0] = Types()[0].read(Store(), text, result);
    } else {
        result = Make(0).Read(text);
    }
    return result == kMalformed ? 0 : -1;
}

}  // namespace HL7v251::Base
