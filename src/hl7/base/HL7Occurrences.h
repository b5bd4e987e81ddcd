#pragma once

#include <string_view>

#include "hl7/base/HL7Parent.h"

namespace HL7v251::Base {

/// What an occurrence container knows of the segment or group that it holds.
struct HL7ElementType {
    std::string_view name;
    bool (*begins)(std::string_view text);  ///< false: decoding `text` would return "absent" and consume nothing
    HL7Object& (*make)(HL7PartStore& store);
};

/// The occurrences of one segment or group at one place of a message; they belong to this container.
class HL7OccurrenceList : public HL7Parent {
public:
    int Count() const { return static_cast<int>(ItemCount()); }

    /// Adds a new, empty occurrence at the end.
    void Append() { Keep(Type().make(Store())); }

    void Write(HL7Writer& out) const override;

protected:
    virtual const HL7ElementType& Type() const = 0;

    /// Null when `index` is negative, too.
    HL7Object* Find(int index) const { return Item(static_cast<std::size_t>(index)); }

    int ReadOptional(HL7Reader& in);
    int ReadRequired(HL7Reader& in);
    int ReadRepeated(HL7Reader& in);

private:
    int ReadOne(HL7Reader& in);
    int Fail(int result) const;
    void Keep(HL7Object& element);
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
                                              [](HL7PartStore& store) -> HL7Object& { return store.Make<T>(); }};
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
