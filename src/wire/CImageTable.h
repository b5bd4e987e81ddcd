#pragma once

#include <array>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "wire/ImageCatalogue.h"

namespace Wire {

/// A value for each image, made from the image's row when it can be. As a range it is in the order of the catalogue.
template <typename T>
class CImageTable {
public:
    constexpr CImageTable() : CImageTable(std::make_index_sequence<kImageCount>()) {}

    constexpr T& operator[](ImageId image) { return values_[static_cast<std::size_t>(image)]; }
    constexpr const T& operator[](ImageId image) const { return values_[static_cast<std::size_t>(image)]; }

    bool operator==(const CImageTable&) const = default;

    constexpr auto begin() { return values_.begin(); }
    constexpr auto end() { return values_.end(); }
    constexpr auto begin() const { return values_.begin(); }
    constexpr auto end() const { return values_.end(); }

private:
    template <std::size_t... Places>
    constexpr explicit CImageTable(std::index_sequence<Places...>) : values_{{Make(kImages[Places])...}} {}

    static constexpr T Make([[maybe_unused]] const ImageRow& row) {
        if constexpr (std::is_constructible_v<T, const ImageRow&>) {
            return T(row);
        } else {
            return T();
        }
    }

    std::array<T, kImageCount> values_;
};

}  // namespace Wire
