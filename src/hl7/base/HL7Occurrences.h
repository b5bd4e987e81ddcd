#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "hl7/base/HL7Object.h"

namespace HL7v251::Base {

/// What an occurrence container knows of the segment or group that it holds.
struct HL7ElementType {
    std::string_view name;
    bool (*begins)(std::string_view text);  ///< false: decoding `text` would return "absent" and consume nothing
    std::unique_ptr<HL7Object> (*make)();
};

/// The occurrences of one segment or group at one place of a message; they belong to this container.
class HL7OccurrenceList : public HL7Object {
public:
    int Count() const { return elements_ != nullptr ? static_cast<int>(elements_->size()) : 0; }

    /// Adds a new, empty occurrence at the end.
    void Append() { Keep(Type().make()); }

    void Write(HL7Writer& out) const override;

protected:
    virtual const HL7ElementType& Type() const = 0;

    HL7Object* Find(int index) const {
        return index >= 0 && index < Count() ? (*elements_)[static_cast<std::size_t>(index)].get() : nullptr;
    }

    int ReadOptional(HL7Reader& in);
    int ReadRequired(HL7Reader& in);
    int ReadRepeated(HL7Reader& in);

private:
    using Elements = std::vector<std::unique_ptr<HL7Object>>;

    int ReadOne(HL7Reader& in);
    int Fail(int result) const;
    void Keep(std::unique_ptr<HL7Object> element);

    // Most containers of a message stay empty; a null pointer keeps them small.
    std::unique_ptr<Elements> elements_;
};

/// The occurrences of the segment or group T.
template <class T>
class HL7Occurrences : public HL7OccurrenceList {
public:
    using Element = T;

    /// The occurrence at `index`, or null when there is none.
    virtual T* GetAt(int index) { return static_cast<T*>(Find(index)); }
    virtual const T* GetAt(int index) const { return static_cast<const T*>(Find(index)); }

protected:
    const HL7ElementType& Type() const override {
        static constexpr HL7ElementType kType{T::kName, &T::Begins,
                                              []() -> std::unique_ptr<HL7Object> { return std::make_unique<T>(); }};
        return kType;
    }
};

/// Optional: zero or one.
template <class T>
class HL7SegmentOp : public HL7Occurrences<T> {
public:
    int Read(HL7Reader& in) override { return this->ReadOptional(in); }
};

/// Required and repeating: one or more. A malformed occurrence after the first ends the repetition without failing it.
template <class T>
class HL7SegmentRe : public HL7Occurrences<T> {
public:
    int Read(HL7Reader& in) override { return this->ReadRequired(in); }
};

/// Optional and repeating: zero or more.
template <class T>
class HL7SegmentOpRe : public HL7Occurrences<T> {
public:
    int Read(HL7Reader& in) override { return this->ReadRepeated(in); }
};

}  // namespace HL7v251::Base
