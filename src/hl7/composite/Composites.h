#pragma once

#include "hl7/base/HL7Composite.h"
#include "hl7/datatype/DataTypes.h"

/// The field types made of components, each with its components in order. CM_ types and TS keep an older layout.
namespace HL7v251::Composite {

using namespace DataType;
using Base::CompositeOf;

class CE final : public CompositeOf<ST, ST, ID, ST, ST, ID> {};
class CM_DDI final : public CompositeOf<NM, NM, NM> {};
class CM_DTN final : public CompositeOf<IS, NM> {};
class CM_ERL final : public CompositeOf<ST, NM, NM, NM, NM, NM> {};
class CM_MSG final : public CompositeOf<ID, ID, ID> {};
class CM_OSD final : public CompositeOf<ID, ST, IS, ST, IS, ID, NM, ST, ID, ST, ID> {};
class CM_PEN final : public CompositeOf<IS, NM> {};
class CM_PTA final : public CompositeOf<IS, IS, NM> {};
class CM_RI final : public CompositeOf<IS, ST> {};
class CM_RMC final : public CompositeOf<IS, IS, NM> {};
class CWE final : public CompositeOf<ST, ST, IS, ST, ST, IS, ST, ST, ST> {};
class DLN final : public CompositeOf<ST, IS, DT> {};
class EI final : public CompositeOf<ST, IS, ST, ID> {};
class FN final : public CompositeOf<ST, ST, ST, ST, ST> {};
class HD final : public CompositeOf<IS, ST, ID> {};
class JCC final : public CompositeOf<IS, IS> {};
class MO final : public CompositeOf<NM, ID> {};
class NA final : public CompositeOf<NM, NM, NM, NM> {};
class PT final : public CompositeOf<ID, ID> {};
class RCD final : public CompositeOf<ST, ID, NM> {};
class SAD final : public CompositeOf<ST, ST, ST> {};
class SN final : public CompositeOf<ST, NM, ST, NM> {};
class SRT final : public CompositeOf<ST, ID> {};
class TS final : public CompositeOf<DTM, ID> {};
class XTN final : public CompositeOf<TN, ID, ID, ST, NM, NM, NM, NM, ST> {};

// Types with composites among their components, after these.
class CM_AUI final : public CompositeOf<ST, TS, ST> {};
class CM_CCD final : public CompositeOf<ID, TS> {};
class CM_DLD final : public CompositeOf<ID, TS> {};
class CM_EIP final : public CompositeOf<EI, EI> {};
class CM_ELD final : public CompositeOf<ST, NM, NM, CE> {};
class CM_MOC final : public CompositeOf<MO, CE> {};
class CN final : public CompositeOf<ST, FN, ST, ST, ST, ST, IS, IS, HD> {};
class CM_NDL final : public CompositeOf<CN, TS, TS, IS, IS, IS, HD, IS, IS, IS, IS> {};
class CM_PCF final : public CompositeOf<IS, ID, TS> {};
class CM_PRL final : public CompositeOf<CE, ST, TX> {};
class CM_SPS final : public CompositeOf<CE, TX, TX, CE, CE, CE, CE> {};
class CP final : public CompositeOf<MO, ID, NM, NM, CE, ID> {};
class CQ final : public CompositeOf<NM, CE> {};
class CX final : public CompositeOf<ST, NM, ID, HD, ID, HD, DT, DT> {};
class DR final : public CompositeOf<TS, TS> {};
class EIP final : public CompositeOf<EI, EI> {};
class FC final : public CompositeOf<IS, TS> {};
class PL final : public CompositeOf<IS, IS, IS, HD, IS, IS, IS, IS, ST> {};
class RPT final : public CompositeOf<CWE, ID, NM, NM, NM, IS, ID, ID, NM, IS, GTS> {};
class TQ final : public CompositeOf<CQ, CM_RI, ST, TS, TS, ST, ST, TX, ID, CM_OSD, CE, NM> {};
class VID final : public CompositeOf<ID, CE, CE> {};
class XAD final : public CompositeOf<SAD, ST, ST, ST, ST, ID, ID, ST, IS, IS, ID, DR> {};
class XCN final : public CompositeOf<ST, FN, ST, ST, ST, ST, IS, IS, HD, ID, ST, ID, IS, HD, ID, CE, DR, ID> {};
class XON final : public CompositeOf<ST, IS, NM, NM, ID, HD, IS, HD, ID> {};
class XPN final : public CompositeOf<FN, ST, ST, ST, ST, IS, ID, ID, CE, DR, ID> {};

}  // namespace HL7v251::Composite
