#include "hl7/base/HL7PartOwner.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "hl7/base/HL7DataType.h"

namespace HL7v251::Base {

namespace {

constexpr std::size_t kGrowth = 8;

}  // namespace

HL7PartOwner::HL7PartOwner(HL7PartOwner&& other) noexcept
    : HL7Object(std::move(other)),
      store_(std::exchange(other.store_, nullptr)),
      parts_(std::exchange(other.parts_, nullptr)),
      made_(std::exchange(other.made_, std::uint8_t{0})),
      ownsStore_(std::exchange(other.ownsStore_, false)),
      onlyPrimitives_(other.onlyPrimitives_) {}

HL7PartOwner::~HL7PartOwner() {
    for (std::size_t index = 0; index < made_; ++index) {
        if (parts_[index] != nullptr) {
            std::destroy_at(parts_[index]);
        }
    }
    if (ownsStore_) {
        std::unique_ptr<HL7PartStore> owned(store_);
    }
}

HL7Object& HL7PartOwner::Make(std::size_t index) {
    const auto types = Types();
    if (index >= made_) {
        // In steps: parts are mostly set in ascending order, and what was outgrown stays in the store.
        Grow(std::min(types.size(), (index + kGrowth) / kGrowth * kGrowth));
    }
    if (parts_[index] == nullptr) {
        int result = kDecoded;
        parts_[index] = types[index].make(*store_, {}, result);
    }
    return *parts_[index];
}

void HL7PartOwner::WriteParts(HL7Writer& out, char separator, std::size_t first) const {
    const std::span<HL7Object* const> parts(parts_, made_);
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
            parts[index]->Write(out);
        }
        written = index;
    }
}

int HL7PartOwner::ReadParts(const HL7Pieces& pieces, std::size_t first) {
    const auto filled = pieces.Filled();
    const auto types = Types();
    const bool hadParts = HasParts();
    if (!filled.empty() && first + filled.back().index >= made_) {
        Grow(first + filled.back().index + 1);
    }
    int result = kDecoded;
    if (!hadParts) {
        for (const HL7Piece& piece : filled) {
            const std::size_t index = first + piece.index;
            parts_[index] = types[index].make(*store_, piece.Text(), result);
            if (result == kMalformed) {
                return static_cast<int>(index);
            }
        }
        return -1;
    }
    // To a part that may hold something, an empty piece matters too.
    auto next = filled.begin();
    for (std::size_t index = first; index < first + pieces.Count(); ++index) {
        HL7Reader piece{{}, store_};
        if (next != filled.end() && first + next->index == index) {
            piece.text = next->Text();
            ++next;
        }
        if (HL7Object* part = index < made_ ? parts_[index] : nullptr; part != nullptr) {
            result = part->Read(piece);
        } else if (!piece.text.empty()) {
            parts_[index] = types[index].make(*store_, piece.text, result);
        }
        if (result == kMalformed) {
            return static_cast<int>(index);
        }
    }
    return -1;
}

int HL7PartOwner::ReadOnlyPart(std::string_view text) {
    int result = kDecoded;
    if (!HasParts()) {
        Grow(1);
        parts_[0] = Types()[0].make(*store_, text, result);
    } else {
        HL7Reader piece{text, store_};
        result = Make(0).Read(piece);
    }
    return result == kMalformed ? 0 : -1;
}

HL7PartStore& HL7PartOwner::Store() {
    if (store_ == nullptr) {
        store_ = std::make_unique<HL7PartStore>().release();
        ownsStore_ = true;
    }
    return *store_;
}

void HL7PartOwner::Grow(std::size_t count) {
    auto** grown = static_cast<HL7Object**>(Store().Allocate(count * sizeof(HL7Object*)));
    std::fill(std::copy_n(parts_, made_, grown), grown + count, nullptr);
    parts_ = grown;
    made_ = static_cast<std::uint8_t>(count);
}

}  // namespace HL7v251::Base
