#pragma once

#include "hl7/base/HL7Composite.h"
#include "hl7/datatype/DataTypes.h"

/// The field types made of components, each with its components in order. CM_ types and TS keep an older layout.
namespace HL7v251::Composite {

using namespace DataType;
using Base::CompositeOf;

class CE : public CompositeOf<ST, ST, ID, ST, ST, ID> {};
class CM_DDI : public CompositeOf<NM, NM, NM> {};
class CM_DTN : public CompositeOf<IS, NM> {};
class CM_ERL : public CompositeOf<ST, NM, NM, NM, NM, NM> {};
class CM_MSG : public CompositeOf<ID, ID, ID> {};
class CM_OSD : public CompositeOf<ID, ST, IS, ST, IS, ID, NM, ST, ID, ST, ID> {};
class CM_PEN : public CompositeOf<IS, NM> {};
class CM_PTA : public CompositeOf<IS, IS, NM> {};
class CM_RI : public CompositeOf<IS, ST> {};
class CM_RMC : public CompositeOf<IS, IS, NM> {};
class CWE : public CompositeOf<ST, ST, IS, ST, ST, IS, ST, ST, ST> {};
class DLN : public CompositeOf<ST, IS, DT> {};
class EI : public CompositeOf<ST, IS, ST, ID> {};
class FN : public CompositeOf<ST, ST, ST, ST, ST> {};
class HD : public CompositeOf<IS, ST, ID> {};
class JCC : public CompositeOf<IS, IS> {};
class MO : public CompositeOf<NM, ID> {};
class NA : public CompositeOf<NM, NM, NM, NM> {};
class PT : public CompositeOf<ID, ID> {};
class RCD : public CompositeOf<ST, ID, NM> {};
class SAD : public CompositeOf<ST, ST, ST> {};
class SN : public CompositeOf<ST, NM, ST, NM> {};
class SRT : public CompositeOf<ST, ID> {};
class TS : public CompositeOf<DTM, ID> {};
class XTN : public CompositeOf<TN, ID, ID, ST, NM, NM, NM, NM, ST> {};

// Types with composites among their components, after these.
class CM_AUI : public CompositeOf<ST, TS, ST> {};
class CM_CCD : public CompositeOf<ID, TS> {};
class CM_DLD : public CompositeOf<ID, TS> {};
class CM_EIP : public CompositeOf<EI, EI> {};
class CM_ELD : public CompositeOf<ST, NM, NM, CE> {};
class CM_MOC : public CompositeOf<MO, CE> {};
class CN : public CompositeOf<ST, FN, ST, ST, ST, ST, IS, IS, HD> {};
class CM_NDL : public CompositeOf<CN, TS, TS, IS, IS, IS, HD, IS, IS, IS, IS> {};
class CM_PCF : public CompositeOf<IS, ID, TS> {};
class CM_PRL : public CompositeOf<CE, ST, TX> {};
class CM_SPS : public CompositeOf<CE, TX, TX, CE, CE, CE, CE> {};
class CP : public CompositeOf<MO, ID, NM, NM, CE, ID> {};
class CQ : public CompositeOf<NM, CE> {};
class CX : public CompositeOf<ST, NM, ID, HD, ID, HD, DT, DT> {};
class DR : public CompositeOf<TS, TS> {};
class EIP : public CompositeOf<EI, EI> {};
class FC : public CompositeOf<IS, TS> {};
class PL : public CompositeOf<IS, IS, IS, HD, IS, IS, IS, IS, ST> {};
class RPT : public CompositeOf<CWE, ID, NM, NM, NM, IS, ID, ID, NM, IS, GTS> {};
class TQ : public CompositeOf<CQ, CM_RI, ST, TS, TS, ST, ST, TX, ID, CM_OSD, CE, NM> {};
class VID : public CompositeOf<ID, CE, CE> {};
class XAD : public CompositeOf<SAD, ST, ST, ST, ST, ID, ID, ST, IS, IS, ID, DR> {};
class XCN : public CompositeOf<ST, FN, ST, ST, ST, ST, IS, IS, HD, ID, ST, ID, IS, HD, ID, CE, DR, ID> {};
class XON : public CompositeOf<ST, IS, NM, NM, ID, HD, IS, HD, ID> {};
class XPN : public CompositeOf<FN, ST, ST, ST, ST, IS, ID, ID, CE, DR, ID> {};

}  // namespace HL7v251::Composite
