#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "hl7/base/HL7Object.h"
#include "hl7/base/HL7ParsingError.h"

namespace HL7v251::Base {

/// The occurrences of the segment or group T at one place of a message; they belong to this container.
template <class T>
class HL7Occurrences : public HL7Object {
public:
    using Element = T;

    int Count() const { return elements_ != nullptr ? static_cast<int>(elements_->size()) : 0; }

    /// Adds a new, empty occurrence at the end.
    void Append() { Keep(std::make_unique<T>()); }

    /// The occurrence at `index`, or null when there is none.
    virtual T* GetAt(int index) { return Find(index); }
    virtual const T* GetAt(int index) const { return Find(index); }

    void EncodeTo(std::string& out) const override {
        for (int index = 0; index < Count(); ++index) {
            Find(index)->EncodeTo(out);
        }
    }

protected:
    /// Decodes one more occurrence and keeps it when it is there. Returns its DecodeResult.
    int DecodeOne(std::string_view& text) {
        if (!T::Begins(text)) {
            return kAbsent;
        }
        auto element = std::make_unique<T>();
        const int result = element->DecodeFrom(text);
        if (result == kDecoded) {
            Keep(std::move(element));
        }
        return result;
    }

    /// Says which element could not be read, and passes on why.
    static int Fail(int result) {
        WriteOccurrenceError(T::kName);
        return result;
    }

private:
    void Keep(std::unique_ptr<T> element) {
        if (elements_ == nullptr) {
            elements_ = std::make_unique<std::vector<std::unique_ptr<T>>>();
        }
        elements_->push_back(std::move(element));
    }

    T* Find(int index) const {
        return index >= 0 && index < Count() ? (*elements_)[static_cast<std::size_t>(index)].get() : nullptr;
    }

    // Most containers of a message stay empty; a null pointer keeps them small.
    std::unique_ptr<std::vector<std::unique_ptr<T>>> elements_;
};

/// Optional: zero or one.
template <class T>
class HL7SegmentOp : public HL7Occurrences<T> {
public:
    int DecodeFrom(std::string_view& text) override {
        if (text.empty()) {
            return kDecoded;
        }
        return this->DecodeOne(text) == kMalformed ? this->Fail(kMalformed) : kDecoded;
    }
};

/// Required and repeating: one or more.
template <class T>
class HL7SegmentRe : public HL7Occurrences<T> {
public:
    int DecodeFrom(std::string_view& text) override {
        const int first = this->DecodeOne(text);
        if (first != kDecoded) {
            return this->Fail(first);
        }
        // A malformed occurrence after the first ends the repetition without failing it.
        while (this->DecodeOne(text) == kDecoded) {
        }
        return kDecoded;
    }
};

/// Optional and repeating: zero or more.
template <class T>
class HL7SegmentOpRe : public HL7Occurrences<T> {
public:
    int DecodeFrom(std::string_view& text) override {
        if (text.empty()) {
            return kDecoded;
        }
        int result = kDecoded;
        while (result == kDecoded) {
            result = this->DecodeOne(text);
        }
        return result == kMalformed ? this->Fail(kMalformed) : kDecoded;
    }
};

}  // namespace HL7v251::Base
