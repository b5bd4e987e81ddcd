#pragma once

#include "hl7/base/HL7DataType.h"

/// The primitive data types.
namespace HL7v251::DataType {

class DT : public Base::HL7DataType {};
class DTM : public Base::HL7DataType {};
class FT : public Base::HL7DataType {};
class GTS : public Base::HL7DataType {};
class ID : public Base::HL7DataType {};
class IS : public Base::HL7DataType {};
class NM : public Base::HL7DataType {};
class SI : public Base::HL7DataType {};
class ST : public Base::HL7DataType {};
class TM : public Base::HL7DataType {};
class TN : public Base::HL7DataType {};
class TX : public Base::HL7DataType {};
class varies : public Base::HL7DataType {};

}  // namespace HL7v251::DataType
