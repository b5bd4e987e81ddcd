#pragma once

#include "hl7/base/HL7DataType.h"

/// The primitive data types.
namespace HL7v251::DataType {

class DT final : public Base::HL7DataType {};
class DTM final : public Base::HL7DataType {};
class FT final : public Base::HL7DataType {};
class GTS final : public Base::HL7DataType {};
class ID final : public Base::HL7DataType {};
class IS final : public Base::HL7DataType {};
class NM final : public Base::HL7DataType {};
class SI final : public Base::HL7DataType {};
class ST final : public Base::HL7DataType {};
class TM final : public Base::HL7DataType {};
class TN final : public Base::HL7DataType {};
class TX final : public Base::HL7DataType {};
class varies final : public Base::HL7DataType {};

}  // namespace HL7v251::DataType
